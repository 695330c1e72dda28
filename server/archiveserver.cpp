// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "archiveserver.h"

#include "archivetransfer.h"
#include "serverconnection.h"

#include <kavro/kavroerrorstring.h>

#include <QTcpSocket>
#include <QThreadPool>
#include <QUuid>

namespace Kavro::Server
{

namespace
{
// The server's own thread pool: its work is waited for on close.
QThreadPool &workers()
{
    static QThreadPool pool;
    return pool;
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
} // namespace

ArchiveServer::ArchiveServer(QObject *parent)
    : QObject(parent)
    , m_handler(m_store, m_paths, this)
{
    connect(&m_listener, &QTcpServer::newConnection, this, &ArchiveServer::acceptConnections);
}

ArchiveServer::~ArchiveServer()
{
    close();
}

bool ArchiveServer::open(const QString &storeDirectory, const QString &archiveRoot, QString *error)
{
    return m_paths.create(storeDirectory, archiveRoot, error) && m_store.open(m_paths.database, error);
}

bool ArchiveServer::listen(const QHostAddress &address, quint16 port)
{
    return m_listener.listen(address, port);
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

void ArchiveServer::close()
{
    m_listener.close();
    for (ServerConnection *connection : std::as_const(m_connections))
        connection->close();
    workers().waitForDone();
}

void ArchiveServer::acceptConnections()
{
    while (QTcpSocket *socket = m_listener.nextPendingConnection())
        m_connections.append(new ServerConnection(socket, this));
}

void ArchiveServer::connectionClosed(ServerConnection *connection)
{
    m_connections.removeOne(connection);
    m_converters.removeIf([connection](const Converter &converter) {
        return converter.connection == connection;
    });
    connection->deleteLater();
}

void ArchiveServer::answerInBackground(ServerConnection *connection, const SoapMessage &request)
{
    const QPointer<ServerConnection> target(connection);
    workers().start([this, paths = m_paths, request, target] {
        ArchiveStore store;
        QString error;
        std::optional<SoapMessage> reply;
        if (store.open(paths.database, &error)) {
            RequestHandler handler(store, paths, nullptr);
            reply = handler.handle(request, nullptr);
        } else {
            reply = SoapMessage::replyTo(request);
            reply->setError(ErrorDatabaseUnavailable, KavroErrorString::Get(ErrorDatabaseUnavailable));
        }
        QMetaObject::invokeMethod(this, [target, reply = *reply] {
            if (target)
                target->finishBackground(reply);
        });
    });
}

void ArchiveServer::registerConverter(QObject *origin, const QString &converterId, const QList<FileType> &types)
{
    auto *connection = qobject_cast<ServerConnection *>(origin);
    m_converters.removeIf([connection](const Converter &converter) {
        return converter.connection == connection;
    });
    m_converters.append({connection, types});
    logLine(QStringLiteral("%1: converter %2 registered").arg(connection->peer(), converterId));
}

bool ArchiveServer::hasConverter(FileType type) const
{
    return std::any_of(m_converters.begin(), m_converters.end(), [type](const Converter &converter) {
        return converter.connection && converter.types.contains(type);
    });
}

void ArchiveServer::requestConversion(const QString &guid, FileType type, const QString &path)
{
    for (const Converter &converter : std::as_const(m_converters)) {
        if (!converter.connection || !converter.types.contains(type))
            continue;
        SoapMessage request;
        request.element = QStringLiteral("ConvertFileGroup");
        request.requestId = QUuid::createUuid().toString(QUuid::WithoutBraces);
        request.values.insert(QStringLiteral("Guid"), guid);
        request.setNumber(QStringLiteral("FileType"), type);
        request.values.insert(QStringLiteral("Path"), path);
        converter.connection->send(request);
        return;
    }
}

void ArchiveServer::startMove(QObject *origin, const QString &requestId, const QString &guid)
{
    const QPointer<ServerConnection> target(qobject_cast<ServerConnection *>(origin));
    // Progress goes to the connection that asked, on the server's thread.
    const auto notify = [this, target, requestId](double progress, KavroError error) {
        QMetaObject::invokeMethod(this, [target, message = progressMessage(requestId, progress, error)] {
            if (target)
                target->send(message);
        });
    };
    workers().start([paths = m_paths, guid, notify] {
        ArchiveStore store;
        QString error;
        FileGroupData group;
        if (!store.open(paths.database, &error) || store.fileGroup(guid, &group) != NoError) {
            notify(0, ErrorMoveFileGroup);
            return;
        }
        const QString nas = paths.nas + QLatin1Char('/') + guid;
        const bool copied = copyGroupFiles(group, nas, [&](double progress) {
            store.inTransaction([&] {
                return store.setLocationState(guid, LocationCentralNotMoved, progress);
            });
            notify(progress, NoError);
        });
        const KavroError outcome = store.inTransaction([&] {
            if (!copied)
                return store.setLocationState(guid, LocationCentral, 0);
            const KavroError moved = store.setPath(guid, nas);
            return moved != NoError ? moved : store.setLocationState(guid, LocationRemote, 100);
        });
        notify(copied && outcome == NoError ? 100 : 0, copied ? outcome : ErrorMoveFileGroup);
    });
}

} // namespace Kavro::Server
