// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_SERVER_REQUESTHANDLER_H
#define KAVRO_SERVER_REQUESTHANDLER_H

#include "serverlimits.h"
#include "soapmessage_p.h"

#include <kavro/kavrotypes.h>

#include <functional>
#include <optional>

namespace Kavro::Server
{

class ArchiveStore;
struct ConverterAddress;
struct StorePaths;

//! Names a connection to the server for as long as it lives; 0 names none.
using ConnectionId = quint64;

//! Who sends a request: the connection, where it comes from, and whom its certificate proves.
struct Caller {
    ConnectionId connection = 0;
    QString peer;
    //! The common name of the client's certificate; empty where the server asks for none.
    QString user;
    //! May act for other users: release their locks, delete their groups.
    bool administrator = false;
};

/*!
 * \brief What a request sets going beyond its own reply, on the live server:
 * converters and moves, which belong to connections. Called from the threads
 * that answer requests.
 */
class ServerEvents
{
public:
    virtual ~ServerEvents() = default;
    //! The connection \a origin registered as a converter: its registration goes when it does.
    virtual void converterRegistered(ConnectionId origin) = 0;
    //! Sends "ConvertFileGroup" to \a converter, of this server or another one of the archive.
    virtual void requestConversion(const ConverterAddress &converter, const QString &guid, FileType type,
                                   const QString &path) = 0;
    //! Starts copying a group to network storage; progress goes to \a origin under \a requestId.
    virtual void startMove(ConnectionId origin, const QString &requestId, const QString &guid) = 0;
    //! Names this server among those that share the archive: its moves and converters are recorded under it.
    virtual QString serverId() const = 0;
};

/*!
 * \brief The meaning of every command: a request in, its reply out.
 *
 * A request is checked whole before anything is done: every value must be
 * of its kind and within its range and size, or the reply is 57 saying which
 * is not. Each request's changes are one transaction, committed before the
 * reply is returned; work on files that must not hold the database up
 * (copies) runs outside it. One handler serves one thread, with that
 * thread's store.
 *
 * Where the caller's user is proved, a request may name no other user and
 * may delete only what that user created, unless the caller is an
 * administrator. Every change is written to the log as one audit line.
 */
class RequestHandler
{
public:
    /*!
     * \a events may be null where no request needs it; \a stop, when given, is
     * asked during long copies whether to give up (the server is stopping).
     */
    RequestHandler(ArchiveStore &store, const StorePaths &paths, const ServerLimits &limits, ServerEvents *events,
                   std::function<bool()> stop = {});

    //! The reply to \a request from \a caller; none for a document that gets no reply.
    std::optional<SoapMessage> handle(const SoapMessage &request, const Caller &caller);

    //! True for the commands whose work may take long: they run apart from the quick ones.
    static bool runsInBackground(const QString &command);

private:
    struct Request;
    struct Command;
    static const QHash<QString, Command> &commands();

    QString invalidValue(SoapMessage &request) const;
    //! ErrorNoWritePermission (ErrorNoReadPermission for a read lock) when \a request names a user it may not.
    static KavroError refusedUser(const SoapMessage &request, const Caller &caller);
    //! ErrorNoWritePermission when the caller may not delete from \a group.
    static KavroError refusedDeletion(Request &request, const FileGroupData &group);

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

    //! The group \a request names, for a change: ErrorFileGroupLocked while it is being moved.
    KavroError groupForChange(Request &request, FileGroupData *group);

    ArchiveStore &m_store;
    const StorePaths &m_paths;
    const ServerLimits &m_limits;
    ServerEvents *const m_events;
    const std::function<bool()> m_stop;
};

} // namespace Kavro::Server

#endif
