// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_SERVER_ARCHIVESERVER_H
#define KAVRO_SERVER_ARCHIVESERVER_H

#include "requesthandler.h"
#include "serverlimits.h"
#include "storepaths.h"

#include <QElapsedTimer>
#include <QHash>
#include <QHostAddress>
#include <QMutex>
#include <QObject>
#include <QSet>
#include <QSocketNotifier>
#include <QSslConfiguration>
#include <QTcpServer>
#include <QThreadPool>
#include <QTimer>

#include <atomic>
#include <memory>
#include <optional>

namespace Kavro::Server
{

class ArchiveStore;
class ServerConnection;

/*!
 * \brief The reference archive server: accepts connections and answers
 * their requests.
 *
 * The server's thread only moves bytes: it accepts connections and cuts and
 * frames their documents. Requests are read, answered and written on worker
 * threads, each with a database connection of its own, so a request that
 * waits for the database never holds up another connection; exports,
 * imports and the copies of moves run on a pool of their own. Each
 * connection's requests are answered one after the other, in order.
 *
 * Several servers may share one database and one storage directory. Each
 * says in the database, every few seconds, that it is alive; a move belongs
 * to the server that started it, and the moves of a server that has stopped
 * saying so are put back by the others.
 *
 * \code
 * Kavro::Server::ArchiveServer server;
 * QString error;
 * if (server.open(QStringLiteral("/srv/kavro"), QString(), QString(), &error)
 *     && server.listen(QHostAddress::LocalHost, 5223))
 *     app.exec();
 * \endcode
 */
class ArchiveServer : public QObject, private ServerEvents
{
    Q_OBJECT
public:
    explicit ArchiveServer(QObject *parent = nullptr);
    ~ArchiveServer() override;
    Q_DISABLE_COPY_MOVE(ArchiveServer)

    /*!
     * Opens the store in \a storeDirectory, creating its directories and
     * database as needed (\a database: see StorePaths::create()), and puts
     * back the groups whose move a crash cut off.
     */
    bool open(const QString &storeDirectory, const QString &archiveRoot, const QString &database, QString *error);
    //! Takes effect for connections made afterwards.
    void setLimits(const ServerLimits &limits);
    bool listen(const QHostAddress &address, quint16 port);
    quint16 port() const;
    QString errorString() const;
    //! Sends every reply compressed in Qt's format.
    void setCompressReplies(bool compress);
    /*!
     * Serves TLS only, with \a configuration; where it verifies peers
     * (QSslSocket::VerifyPeer), every client must present a certificate, and
     * its common name is the user it acts as. Takes effect for connections
     * made afterwards.
     */
    void setTls(const QSslConfiguration &configuration);
    //! The users who may act for others, where users are proved by certificates.
    void setAdministrators(const QStringList &users);

    //! Stops accepting, closes every connection, stops the copies under way and waits for the work in progress.
    void close();

private:
    friend class ServerConnection;

    void acceptConnections();
    void acceptFailed(int error);
    void connectionClosed(ServerConnection *connection);
    //! Answers \a document of \a connection on a worker thread; the reply comes back through finishRequest().
    void answer(ServerConnection *connection, const QByteArray &document);
    //! Hands \a document to the connection \a id, when it is still there.
    void sendTo(ConnectionId id, const QByteArray &document);
    QByteArray framed(const SoapMessage &message) const;
    //! What \a connection holds of its requests now; false when it must stop reading until others let go.
    bool holdMemory(ServerConnection *connection, qint64 bytes);

    // ServerEvents, called from worker threads
    void converterRegistered(ConnectionId origin) override;
    void requestConversion(const ConverterAddress &converter, const QString &guid, FileType type,
                           const QString &path) override;
    void startMove(ConnectionId origin, const QString &requestId, const QString &guid) override;
    QString serverId() const override { return m_serverId; }

    //! Says in the database that this server is alive, and puts back the moves of servers that are gone.
    void beat(ArchiveStore &store);
    //! A conversion request another server of the archive sent through the database, for one of ours.
    void conversionNotified(const QString &payload);
    QByteArray conversionRequest(const QString &guid, FileType type, const QString &path) const;

    const QString m_serverId;
    QTimer m_heartbeat;
    QTcpServer m_listener;
    QSocketNotifier *m_acceptNotifier = nullptr;
    QTimer m_acceptRetry;
    StorePaths m_paths;
    ServerLimits m_limits;
    bool m_compressReplies = false;
    std::optional<QSslConfiguration> m_tls;
    QStringList m_administrators;
    ConnectionId m_lastConnectionId = 0;
    QHash<ConnectionId, ServerConnection *> m_connections;
    bool m_refusingConnections = false; // the connection limit was reached, and said so once
    QElapsedTimer m_lastAcceptFailureLog;
    QThreadPool m_requests;
    QThreadPool m_transfers;
    std::atomic<bool> m_stopping{false};

    // Memory held by unfinished and unanswered requests, beyond each connection's free share.
    QHash<ConnectionId, qint64> m_heldMemory;
    qint64 m_totalHeld = 0;
    QList<ConnectionId> m_waitingForMemory;

    mutable QMutex m_convertersMutex;
    QSet<ConnectionId> m_converters; // the connections registered as converters
    // Hears the other servers' conversion requests, where the database carries notifications.
    std::unique_ptr<ArchiveStore> m_notifications;
};

} // namespace Kavro::Server

#endif
