// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_SERVER_SERVERCONNECTION_H
#define KAVRO_SERVER_SERVERCONNECTION_H

#include "soapmessage_p.h"

#include <QObject>

QT_BEGIN_NAMESPACE
class QTcpSocket;
QT_END_NAMESPACE

namespace Kavro
{
class XmlSeparator;

namespace Server
{

class ArchiveServer;

//! Writes one line of the server's log on stderr.
void logLine(const QString &line);

/*!
 * \brief One client's connection: its documents in, its replies out, in order.
 *
 * Documents are read in whatever framing the client uses. While a request
 * runs in the background, the connection's later requests wait for it.
 */
class ServerConnection : public QObject
{
    Q_OBJECT
public:
    ServerConnection(QTcpSocket *socket, ArchiveServer *server);
    ~ServerConnection() override;
    Q_DISABLE_COPY_MOVE(ServerConnection)

    void send(const SoapMessage &message);
    //! The reply of a request that ran in the background; the next request follows.
    void finishBackground(const SoapMessage &reply);
    void close();
    QString peer() const { return m_peer; }

private:
    void received(const QByteArray &document);
    void answerPending();
    void sendReply(const SoapMessage &reply);

    QTcpSocket *const m_socket;
    XmlSeparator *const m_separator;
    ArchiveServer *const m_server;
    const QString m_peer;
    QList<QByteArray> m_pending;
    bool m_busy = false;
};

} // namespace Server
} // namespace Kavro

#endif
