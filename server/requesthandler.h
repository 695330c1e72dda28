// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_SERVER_REQUESTHANDLER_H
#define KAVRO_SERVER_REQUESTHANDLER_H

#include "soapmessage_p.h"

#include <kavro/kavrotypes.h>

#include <QObject>

#include <optional>

namespace Kavro::Server
{

class ArchiveStore;
struct StorePaths;

/*!
 * \brief What a request sets going beyond its own reply, on the live server:
 * converters and moves, which belong to connections.
 */
class ServerEvents
{
public:
    virtual ~ServerEvents() = default;
    virtual void registerConverter(QObject *origin, const QString &converterId, const QList<FileType> &types) = 0;
    virtual bool hasConverter(FileType type) const = 0;
    //! Sends "ConvertFileGroup" to the converter of \a type.
    virtual void requestConversion(const QString &guid, FileType type, const QString &path) = 0;
    //! Starts copying a group to network storage; progress goes to \a origin under \a requestId.
    virtual void startMove(QObject *origin, const QString &requestId, const QString &guid) = 0;
};

/*!
 * \brief The meaning of every command: a request in, its reply out.
 *
 * Each request's changes are one transaction, committed before the reply
 * is returned. One handler serves one thread, with that thread's store.
 */
class RequestHandler
{
public:
    //! \a events may be null where no request needs it (archive work in the background).
    RequestHandler(ArchiveStore &store, const StorePaths &paths, ServerEvents *events);

    //! The reply to \a request from \a origin; none for a document that gets no reply.
    std::optional<SoapMessage> handle(const SoapMessage &request, QObject *origin);

    //! True for the commands whose work may take long: they run off the thread that reads sockets.
    static bool runsInBackground(const QString &command);

private:
    struct Request;
    using Command = KavroError (RequestHandler::*)(Request &);
    static const QHash<QString, Command> &commands();

    KavroError createFileGroup(Request &request);
    KavroError createRovecFileGroup(Request &request);
    KavroError storeNewGroup(Request &request, FileGroupData &record);
    KavroError deleteFileGroup(Request &request);
    KavroError checkFileGroupExists(Request &request);
    KavroError queryMetaData(Request &request);
    KavroError queryLocationStateProgress(Request &request);
    KavroError addFile(Request &request);
    KavroError deleteFile(Request &request);
    KavroError requestFile(Request &request);
    KavroError closeFile(Request &request);
    KavroError moveToNas(Request &request);
    KavroError addReference(Request &request);
    KavroError removeReference(Request &request);
    KavroError removeAllReferences(Request &request);
    KavroError getApplicationList(Request &request);
    KavroError getUserList(Request &request);
    KavroError getFileList(Request &request);
    KavroError getBasePath(Request &request);
    KavroError queryFileGroups(Request &request);
    KavroError exportArchive(Request &request);
    KavroError importArchive(Request &request);
    KavroError registerConverter(Request &request);
    KavroError convertFileGroupAnswered(Request &request);

    //! The absolute path of a file of a group, when it lies in the store and exists.
    QString filePath(const FileGroupData &group, const QString &name) const;

    ArchiveStore &m_store;
    const StorePaths &m_paths;
    ServerEvents *const m_events;
};

} // namespace Kavro::Server

#endif
