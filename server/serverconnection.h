// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_SERVER_SERVERCONNECTION_H
#define KAVRO_SERVER_SERVERCONNECTION_H

#include "requesthandler.h"
#include "serverlimits.h"

#include <QAbstractSocket>
#include <QObject>
#include <QTimer>

#include <functional>

QT_BEGIN_NAMESPACE
class QTcpSocket;
QT_END_NAMESPACE

namespace Kavro
{
class XmlSeparator;

namespace Server
{

class ArchiveServer;

/*!
 * \brief One client's connection: its documents in, its replies out, in order.
 *
 * Documents are read in whatever framing the client uses. One request is
 * answered at a time: while it is, and while the replies not yet sent exceed
 * their bound or the server's memory for requests is spent, nothing more is
 * read, so a client that sends faster than it reads slows down only itself.
 * A connection that sends no whole request in time is closed.
 *
 * Over TLS the connection's documents are read once the handshake is done;
 * where the server asks for client certificates, user() is the common name
 * of the client's, and a certificate that names nobody ends the connection.
 */
class ServerConnection : public QObject
{
    Q_OBJECT
public:
    ServerConnection(QTcpSocket *socket, ArchiveServer *server, ConnectionId id, const ServerLimits &limits);
    ~ServerConnection() override;
    Q_DISABLE_COPY_MOVE(ServerConnection)

    ConnectionId id() const { return m_id; }
    QString peer() const { return m_peer; }
    //! The user the client's certificate proves; empty where the server asks for none.
    QString user() const { return m_user; }
    //! Writes a framed document: a reply or a message of the server's own.
    void send(const QByteArray &document);
    //! The reply to the request being answered (empty for none); the next request may follow.
    void finishRequest(const QByteArray &reply);
    //! Runs \a work once the reply to the request being answered is sent, or now when none is.
    void afterReply(const std::function<void()> &work);
    //! Reads again after waiting for memory that other connections held.
    void memoryFreed();
    void close();

private:
    void received(const QByteArray &document);
    void bytesArrived();
    //! Reads on when nothing holds the connection back.
    void readOn();
    qint64 bytesHeld() const;
    void reportMemory();
    void watchDeadline();
    void deadlinePassed();
    void encrypted();
    void failed(QAbstractSocket::SocketError error);
    //! Refuses a TLS handshake sent to this connection, which serves no TLS.
    void refuseUnexpectedHandshake();
    void closed();

    QTcpSocket *const m_socket;
    XmlSeparator *m_separator = nullptr;
    ArchiveServer *const m_server;
    const ConnectionId m_id;
    const ServerLimits m_limits;
    const QString m_peer;
    QString m_user;
    bool m_closed = false;
    QTimer m_deadline;
    qint64 m_requestSize = 0; // of the request being answered
    bool m_answering = false;
    bool m_waitingForMemory = false;
    bool m_hadRequest = false;
    bool m_repliesPiledUp = false; // said once in the log until the client reads again
    QList<std::function<void()>> m_afterReply;
};

} // namespace Server
} // namespace Kavro

#endif
