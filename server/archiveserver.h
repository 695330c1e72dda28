// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_SERVER_ARCHIVESERVER_H
#define KAVRO_SERVER_ARCHIVESERVER_H

#include "archivestore.h"
#include "requesthandler.h"
#include "storepaths.h"

#include <QHostAddress>
#include <QObject>
#include <QPointer>
#include <QTcpServer>

namespace Kavro::Server
{

class ServerConnection;

/*!
 * \brief The reference archive server: accepts connections and answers
 * their requests.
 *
 * Each connection's requests are answered in order. Quick requests are
 * answered on the server's thread; archive exports and imports, and the
 * copying of moves to network storage, run on a thread pool with stores of
 * their own, so they never hold up other connections.
 *
 * \code
 * Kavro::Server::ArchiveServer server;
 * QString error;
 * if (server.open(QStringLiteral("/srv/kavro"), QString(), &error) && server.listen(QHostAddress::LocalHost, 5223))
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

    //! Opens the store in \a storeDirectory, creating its directories and database as needed.
    bool open(const QString &storeDirectory, const QString &archiveRoot, QString *error);
    bool listen(const QHostAddress &address, quint16 port);
    quint16 port() const;
    QString errorString() const;
    //! Sends every reply compressed in Qt's format.
    void setCompressReplies(bool compress);

    //! Stops accepting, closes every connection and waits for work in the background.
    void close();

private:
    friend class ServerConnection;

    void acceptConnections();
    void connectionClosed(ServerConnection *connection);
    //! Answers \a request on a pool thread, then hands the reply to \a connection.
    void answerInBackground(ServerConnection *connection, const SoapMessage &request);

    // ServerEvents
    void registerConverter(QObject *origin, const QString &converterId, const QList<FileType> &types) override;
    bool hasConverter(FileType type) const override;
    void requestConversion(const QString &guid, FileType type, const QString &path) override;
    void startMove(QObject *origin, const QString &requestId, const QString &guid) override;

    QTcpServer m_listener;
    StorePaths m_paths;
    ArchiveStore m_store;
    RequestHandler m_handler;
    bool m_compressReplies = false;
    QList<ServerConnection *> m_connections;
    struct Converter {
        QPointer<ServerConnection> connection;
        QList<FileType> types;
    };
    QList<Converter> m_converters;
};

} // namespace Kavro::Server

#endif
