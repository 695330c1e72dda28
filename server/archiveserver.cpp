// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "archiveserver.h"

#include "archivestore.h"
#include "archivetransfer.h"
#include "serverconnection.h"
#include "serverlog.h"

#include <kavro/kavroerrorstring.h>

#include <QJsonDocument>
#include <QJsonObject>
#include <QSocketNotifier>
#include <QSslSocket>
#include <QThread>
#include <QThreadStorage>
#include <QUuid>

#include <cerrno>
#include <cstring>
#include <memory>
#include <sys/socket.h>
#include <unistd.h>

namespace Kavro::Server
{

namespace
{
// How long accepting pauses when the system refuses a new connection (out of file descriptors).
constexpr int s_acceptRetryMs = 1000;
constexpr qint64 s_acceptFailureLogMs = 60000;
// The most connections taken in one turn of the event loop.
constexpr int s_acceptBatch = 64;
// How often a server says that it is alive, and for how long each time: a server silent for longer is gone.
constexpr int s_heartbeatMs = 5000;
constexpr qint64 s_aliveForMs = 20000;
// Where servers tell each other of conversions for converters connected to them.
const QString s_conversionChannel = QStringLiteral("kavro_conversions");

/*!
 * The store of the calling worker thread for \a database, opened on first use and kept for the thread's life:
 * each thread has a database connection of its own. Null, with \a error, when it cannot be opened. The stores
 * go when their thread finishes, before anyone waiting for the thread goes on.
 */
ArchiveStore *threadStore(const QString &database, QString *error)
{
    static QThreadStorage<QHash<QString, std::shared_ptr<ArchiveStore>>> stores;
    std::shared_ptr<ArchiveStore> &store = stores.localData()[database];
    if (!store) {
        auto opened = std::make_shared<ArchiveStore>();
        if (!opened->open(database, error))
            return nullptr;
        store = std::move(opened);
    }
    return store.get();
}

SoapMessage progressMessage(const QString &requestId, double progress, KavroError error)
{
    SoapMessage message;
    message.element = QStringLiteral("CopyForeignFileGroupProgress");
    message.requestId = requestId;
    message.setDecimal(QStringLiteral("CopyProgress"), progress);
    message.setError(error, KavroErrorString::Get(error));
    return message;
}

void logRefusal(const QString &peer, const SoapMessage &reply)
{
    if (reply.number(QStringLiteral("Error")) != NoError)
        logLine(QStringLiteral("%1: %2 refused with %3: %4")
                    .arg(peer, reply.element, reply.text(QStringLiteral("Error")),
                         reply.text(QStringLiteral("ErrorString"))));
}
} // namespace

ArchiveServer::ArchiveServer(QObject *parent)
    : QObject(parent)
    , m_serverId(QUuid::createUuid().toString(QUuid::WithoutBraces))
{
    m_heartbeat.setInterval(s_heartbeatMs);
    connect(&m_heartbeat, &QTimer::timeout, this, [this] {
        m_requests.start([this] {
            QString error;
            if (ArchiveStore *store = threadStore(m_paths.database, &error))
                beat(*store);
        });
    });
    m_acceptRetry.setSingleShot(true);
    m_acceptRetry.setInterval(s_acceptRetryMs);
    connect(&m_acceptRetry, &QTimer::timeout, this, [this] {
        if (m_acceptNotifier)
            m_acceptNotifier->setEnabled(true);
    });
    m_requests.setMaxThreadCount(qMax(4, QThread::idealThreadCount() * 2));
    m_transfers.setMaxThreadCount(2);
    // Threads keep their database connections: they live as long as the server.
    m_requests.setExpiryTimeout(-1);
    m_transfers.setExpiryTimeout(-1);
}

ArchiveServer::~ArchiveServer()
{
    close();
}

bool ArchiveServer::open(const QString &storeDirectory, const QString &archiveRoot, const QString &database,
                         QString *error)
{
    ArchiveStore store;
    if (!m_paths.create(storeDirectory, archiveRoot, database, error) || !store.open(m_paths.database, error))
        return false;
    beat(store);
    m_heartbeat.start();
    // A connection of its own on this thread hears what other servers ask of this one's converters.
    m_notifications = std::make_unique<ArchiveStore>();
    if (!m_notifications->open(m_paths.database, nullptr, ArchiveStore::Schema::AsItIs)
        || !m_notifications->listen(s_conversionChannel, [this](const QString &payload) {
               conversionNotified(payload);
           }))
        m_notifications.reset();
    return true;
}

void ArchiveServer::beat(ArchiveStore &store)
{
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    if (store.beat(m_serverId, now + s_aliveForMs) != NoError)
        logLine(QStringLiteral("cannot tell the database that this server is alive; other servers may put back "
                               "its moves"));
    if (const int interrupted = rollBackInterruptedMoves(store, m_paths, now))
        logLine(QStringLiteral("%1 move(s) to network storage were cut off; the groups are back where they were")
                    .arg(interrupted));
}

void ArchiveServer::setLimits(const ServerLimits &limits)
{
    m_limits = limits;
}

// The listener only listens: connections are accepted here, so that a failing accept() is seen. (QTcpServer takes
// running out of descriptors for a passing condition once it has met one, and tries again at once, for ever.)
bool ArchiveServer::listen(const QHostAddress &address, quint16 port)
{
    if (!m_listener.listen(address, port))
        return false;
    m_listener.pauseAccepting();
    m_acceptNotifier = new QSocketNotifier(m_listener.socketDescriptor(), QSocketNotifier::Read, this);
    connect(m_acceptNotifier, &QSocketNotifier::activated, this, &ArchiveServer::acceptConnections);
    return true;
}

quint16 ArchiveServer::port() const
{
    return m_listener.serverPort();
}

QString ArchiveServer::errorString() const
{
    return m_listener.errorString();
}

void ArchiveServer::setCompressReplies(bool compress)
{
    m_compressReplies = compress;
}

void ArchiveServer::setTls(const QSslConfiguration &configuration)
{
    m_tls = configuration;
}

void ArchiveServer::setAdministrators(const QStringList &users)
{
    m_administrators = users;
}

void ArchiveServer::close()
{
    m_stopping = true;
    m_acceptRetry.stop();
    delete std::exchange(m_acceptNotifier, nullptr);
    m_listener.close();
    // A connection may close at once, and leave the list as it does.
    const QList<ServerConnection *> connections = m_connections.values();
    for (ServerConnection *connection : connections)
        connection->close();
    const bool opened = m_heartbeat.isActive();
    m_heartbeat.stop();
    m_notifications.reset();
    m_requests.waitForDone();
    m_transfers.waitForDone();
    // Gone, not silent: the others need not wait for this server's heartbeat to lapse.
    if (opened) {
        ArchiveStore store;
        if (store.open(m_paths.database, nullptr, ArchiveStore::Schema::AsItIs))
            store.forgetServer(m_serverId);
    }
}

void ArchiveServer::acceptConnections()
{
    for (int batch = 0; batch < s_acceptBatch; ++batch) {
        const int descriptor = ::accept4(int(m_listener.socketDescriptor()), nullptr, nullptr, SOCK_CLOEXEC);
        if (descriptor < 0) {
            if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR && errno != ECONNABORTED)
                acceptFailed(errno);
            return;
        }
        if (m_connections.size() >= m_limits.maxConnections) {
            if (!std::exchange(m_refusingConnections, true))
                logLine(QStringLiteral("%1 connections are open, as many as allowed; refusing more until one closes")
                            .arg(m_connections.size()));
            ::close(descriptor);
            continue;
        }
        QTcpSocket *socket = m_tls ? new QSslSocket : new QTcpSocket;
        if (auto *ssl = qobject_cast<QSslSocket *>(socket))
            ssl->setSslConfiguration(*m_tls);
        if (!socket->setSocketDescriptor(descriptor)) {
            ::close(descriptor);
            delete socket;
            continue;
        }
        const ConnectionId id = ++m_lastConnectionId;
        auto *connection = new ServerConnection(socket, this, id, m_limits);
        m_connections.insert(id, connection);
    }
}

// Out of file descriptors, or another failure of accept(): pause instead of trying again at once. Said once,
// and then at most once a minute while it goes on.
void ArchiveServer::acceptFailed(int error)
{
    m_acceptNotifier->setEnabled(false);
    m_acceptRetry.start();
    if (m_lastAcceptFailureLog.isValid() && !m_lastAcceptFailureLog.hasExpired(s_acceptFailureLogMs))
        return;
    m_lastAcceptFailureLog.start();
    logLine(QStringLiteral("cannot accept connections (%1); trying again every %2 ms")
                .arg(QString::fromLocal8Bit(std::strerror(error)))
                .arg(s_acceptRetryMs));
}

void ArchiveServer::connectionClosed(ServerConnection *connection)
{
    const ConnectionId id = connection->id();
    m_connections.remove(id);
    if (m_connections.size() < m_limits.maxConnections)
        m_refusingConnections = false;
    holdMemory(connection, 0);
    m_heldMemory.remove(id);
    m_waitingForMemory.removeAll(id);
    bool converter = false;
    {
        const QMutexLocker locker(&m_convertersMutex);
        converter = m_converters.remove(id);
    }
    if (converter) {
        m_requests.start([this, id] {
            QString error;
            if (ArchiveStore *store = threadStore(m_paths.database, &error))
                store->dropConverters({m_serverId, id});
        });
    }
    connection->deleteLater();
}

// Claims are whole requests, so an admitted one never waits halfway: it arrives, or its connection times out,
// and its memory comes back. A claim that does not fit waits, and the connection keeps what it held before.
bool ArchiveServer::holdMemory(ServerConnection *connection, qint64 bytes)
{
    const ConnectionId id = connection->id();
    const qint64 counted = qMax(qint64(0), bytes - m_limits.freeShare);
    qint64 &held = m_heldMemory[id];
    if (counted > held && m_totalHeld - held + counted > m_limits.requestMemory) {
        if (m_waitingForMemory.isEmpty())
            logLine(QStringLiteral("the memory for requests (%1 bytes) is spent; connections with large requests wait")
                        .arg(m_limits.requestMemory));
        if (!m_waitingForMemory.contains(id))
            m_waitingForMemory.append(id);
        return false;
    }
    const bool freed = counted < held;
    m_totalHeld += counted - held;
    held = counted;
    if (freed) {
        for (const ConnectionId waiting : std::exchange(m_waitingForMemory, {})) {
            if (ServerConnection *other = m_connections.value(waiting))
                QMetaObject::invokeMethod(other, &ServerConnection::memoryFreed, Qt::QueuedConnection);
        }
    }
    return true;
}

QByteArray ArchiveServer::framed(const SoapMessage &message) const
{
    const QByteArray document = writeSoapMessage(message);
    return m_compressReplies ? qCompress(document) : document;
}

void ArchiveServer::answer(ServerConnection *connection, const QByteArray &document)
{
    const ConnectionId id = connection->id();
    const QString peer = connection->peer();
    const Caller caller{id, peer, connection->user(),
                        !connection->user().isEmpty() && m_administrators.contains(connection->user())};
    const auto work = [this, id, peer, caller](const SoapMessage &request) {
        QString error;
        std::optional<SoapMessage> reply;
        if (ArchiveStore *store = threadStore(m_paths.database, &error)) {
            RequestHandler handler(*store, m_paths, m_limits, this, [this] {
                return m_stopping.load();
            });
            reply = handler.handle(request, caller);
        } else {
            logLine(QStringLiteral("cannot open the database: %1").arg(error));
            reply = SoapMessage::replyTo(request);
            reply->setError(ErrorDatabaseUnavailable, KavroErrorString::Get(ErrorDatabaseUnavailable));
        }
        if (reply)
            logRefusal(peer, *reply);
        QMetaObject::invokeMethod(this, [this, id, bytes = reply ? framed(*reply) : QByteArray()] {
            if (ServerConnection *target = m_connections.value(id))
                target->finishRequest(bytes);
        });
    };
    // Read on a worker; the long commands move on to the transfer pool, apart from the quick ones.
    m_requests.start([this, document, work] {
        const SoapMessage request = readSoapMessage(document, SoapSender::Client);
        if (request.readError.isEmpty() && RequestHandler::runsInBackground(request.element))
            m_transfers.start([request, work] {
                work(request);
            });
        else
            work(request);
    });
}

void ArchiveServer::sendTo(ConnectionId id, const QByteArray &document)
{
    QMetaObject::invokeMethod(this, [this, id, document] {
        if (ServerConnection *target = m_connections.value(id))
            target->send(document);
    });
}

void ArchiveServer::converterRegistered(ConnectionId origin)
{
    const QMutexLocker locker(&m_convertersMutex);
    m_converters.insert(origin);
}

QByteArray ArchiveServer::conversionRequest(const QString &guid, FileType type, const QString &path) const
{
    SoapMessage request;
    request.element = QStringLiteral("ConvertFileGroup");
    request.requestId = QUuid::createUuid().toString(QUuid::WithoutBraces);
    request.values.insert(QStringLiteral("Guid"), guid);
    request.setNumber(QStringLiteral("FileType"), type);
    request.values.insert(QStringLiteral("Path"), path);
    return framed(request);
}

// Our own converter is sent the request at once; another server's hears of it through the database.
void ArchiveServer::requestConversion(const ConverterAddress &converter, const QString &guid, FileType type,
                                      const QString &path)
{
    if (converter.server == m_serverId) {
        sendTo(converter.connection, conversionRequest(guid, type, path));
        return;
    }
    const QByteArray payload =
        QJsonDocument(QJsonObject{{QStringLiteral("server"), converter.server},
                                  {QStringLiteral("connection"), QString::number(converter.connection)},
                                  {QStringLiteral("guid"), guid},
                                  {QStringLiteral("type"), int(type)},
                                  {QStringLiteral("path"), path}})
            .toJson(QJsonDocument::Compact);
    QString error;
    ArchiveStore *store = threadStore(m_paths.database, &error);
    if (!store || store->inTransaction([&] {
            return store->notify(s_conversionChannel, QString::fromUtf8(payload)) ? NoError : ErrorUnknown;
        }) != NoError)
        logLine(QStringLiteral("cannot ask another server's converter to convert %1").arg(guid));
}

void ArchiveServer::conversionNotified(const QString &payload)
{
    const QJsonObject request = QJsonDocument::fromJson(payload.toUtf8()).object();
    if (request.value(QStringLiteral("server")).toString() != m_serverId)
        return;
    sendTo(request.value(QStringLiteral("connection")).toString().toULongLong(),
           conversionRequest(request.value(QStringLiteral("guid")).toString(),
                             static_cast<FileType>(request.value(QStringLiteral("type")).toInt()),
                             request.value(QStringLiteral("path")).toString()));
}

void ArchiveServer::startMove(ConnectionId origin, const QString &requestId, const QString &guid)
{
    // Progress goes to the connection that asked, after its reply to the MoveToNas.
    const auto notify = [this, origin, requestId](double progress, KavroError error) {
        sendTo(origin, framed(progressMessage(requestId, progress, error)));
    };
    const auto move = [this, guid, notify] {
        m_transfers.start([this, guid, notify] {
            QString error;
            ArchiveStore *store = threadStore(m_paths.database, &error);
            const KavroError outcome = store
                ? moveGroup(
                    *store, m_paths, guid, m_serverId,
                    [&](double progress) {
                        store->inTransaction([&] {
                            return store->setLocationState(guid, LocationCentralNotMoved, progress);
                        });
                        notify(progress, NoError);
                    },
                    [this] {
                        return m_stopping.load();
                    })
                : ErrorDatabaseUnavailable;
            notify(outcome == NoError ? 100 : 0, outcome);
        });
    };
    QMetaObject::invokeMethod(this, [this, origin, move] {
        if (ServerConnection *connection = m_connections.value(origin))
            connection->afterReply(move);
        else
            move();
    });
}

} // namespace Kavro::Server
