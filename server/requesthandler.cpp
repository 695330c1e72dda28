// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "requesthandler.h"

#include "archivestore.h"
#include "archivetransfer.h"
#include "messages_p.h"
#include "storepaths.h"

#include <kavro/filequery.h>
#include <kavro/kavroerrorstring.h>

#include <QDir>
#include <QFileInfo>
#include <QUuid>

namespace Kavro::Server
{

struct RequestHandler::Request {
    const SoapMessage &in;
    SoapMessage &out;
    QObject *origin;

    QString text(const char *name) const { return in.text(QLatin1String(name)); }
    QString guid() const { return text("Guid"); }
    quint32 fileId() const { return quint32(in.number(QStringLiteral("FileId"))); }
};

namespace
{
QList<FileType> fileTypes(const QStringList &texts)
{
    QList<FileType> types;
    for (const QString &text : texts)
        types << static_cast<FileType>(text.toInt());
    return types;
}
} // namespace

RequestHandler::RequestHandler(ArchiveStore &store, const StorePaths &paths, ServerEvents *events)
    : m_store(store)
    , m_paths(paths)
    , m_events(events)
{
}

const QHash<QString, RequestHandler::Command> &RequestHandler::commands()
{
    using H = RequestHandler;
    static const QHash<QString, Command> table = {
        {QStringLiteral("CreateFileGroup"), &H::createFileGroup},
        {QStringLiteral("CreateRovecFileGroup"), &H::createRovecFileGroup},
        {QStringLiteral("DeleteFileGroup"), &H::deleteFileGroup},
        {QStringLiteral("CheckFileGroupExists"), &H::checkFileGroupExists},
        {QStringLiteral("QueryMetaData"), &H::queryMetaData},
        {QStringLiteral("QueryLocationStateProgress"), &H::queryLocationStateProgress},
        {QStringLiteral("AddFile"), &H::addFile},
        {QStringLiteral("DeleteFile"), &H::deleteFile},
        {QStringLiteral("RequestFile"), &H::requestFile},
        {QStringLiteral("CloseFile"), &H::closeFile},
        {QStringLiteral("MoveToNas"), &H::moveToNas},
        {QStringLiteral("AddReference"), &H::addReference},
        {QStringLiteral("RemoveReference"), &H::removeReference},
        {QStringLiteral("RemoveAllReferences"), &H::removeAllReferences},
        {QStringLiteral("GetApplicationList"), &H::getApplicationList},
        {QStringLiteral("GetUserList"), &H::getUserList},
        {QStringLiteral("GetFileList"), &H::getFileList},
        {QStringLiteral("GetBasePath"), &H::getBasePath},
        {QStringLiteral("QueryFileGroups"), &H::queryFileGroups},
        {QStringLiteral("ExportArchive"), &H::exportArchive},
        {QStringLiteral("ImportArchive"), &H::importArchive},
        {QStringLiteral("RegisterConverter"), &H::registerConverter},
        {QStringLiteral("ConvertFileGroupReply"), &H::convertFileGroupAnswered},
    };
    return table;
}

bool RequestHandler::runsInBackground(const QString &command)
{
    return command == QLatin1String("ExportArchive") || command == QLatin1String("ImportArchive");
}

std::optional<SoapMessage> RequestHandler::handle(const SoapMessage &request, QObject *origin)
{
    SoapMessage reply = SoapMessage::replyTo(request);
    if (!request.readError.isEmpty()) {
        reply.setError(ErrorSoapParsing, request.readError);
        return reply;
    }
    const Command command = commands().value(request.element);
    if (!request.known || !command) {
        reply.setError(ErrorUnknownReplyCommand, KavroErrorString::Get(ErrorUnknownReplyCommand));
        return reply;
    }
    Request call{request, reply, origin};
    const KavroError error = m_store.inTransaction([&] {
        return (this->*command)(call);
    });
    if (request.element == QLatin1String("ConvertFileGroupReply"))
        return std::nullopt;
    reply.setError(error, KavroErrorString::Get(error));
    return reply;
}

// File groups

KavroError RequestHandler::createFileGroup(Request &request)
{
    FileGroupData record;
    record.setName(request.text("FileGroupName"));
    record.setLifeCycle(request.in.time(QStringLiteral("LifeCycle")));
    record.setReservedStorage(int(request.in.number(QStringLiteral("ReservedStorage"))));
    record.setLocationState(LocationCentral);
    return storeNewGroup(request, record);
}

KavroError RequestHandler::createRovecFileGroup(Request &request)
{
    FileGroupData record;
    record.setName(request.text("RecordId"));
    record.setLocationState(LocationRovec);
    return storeNewGroup(request, record);
}

KavroError RequestHandler::storeNewGroup(Request &request, FileGroupData &record)
{
    QString guid = request.guid();
    if (guid.isEmpty())
        guid = QUuid::createUuid().toString(QUuid::WithoutBraces);
    if (!isPlainName(guid))
        return ErrorAddFileGroup;
    const QString wanted = request.text("Path");
    const QString path = containedPath(m_paths.data, wanted.isEmpty() ? guid : wanted);
    if (path.isEmpty() || path == m_paths.data || !QDir().mkpath(path))
        return ErrorCreatePath;
    const QDateTime now = QDateTime::currentDateTimeUtc();
    record.setGuid(guid);
    record.setPath(path);
    record.setFileType(static_cast<FileType>(request.in.number(QStringLiteral("FileType"))));
    record.setCreator(request.text("UserName"));
    record.setTeam(request.text("TeamMembership"));
    record.setVersion(request.text("FileGroupVersion"));
    record.setDetail(request.text("Detail"));
    record.setComment(request.text("Comment"));
    record.setCreationTime(now);
    record.setModificationTime(now);
    m_store.noteUser(record.getCreator());
    const KavroError error = m_store.createFileGroup(record);
    request.out.values.insert(QStringLiteral("Guid"), guid);
    request.out.values.insert(QStringLiteral("Path"), error == NoError ? path : QString());
    return error;
}

KavroError RequestHandler::deleteFileGroup(Request &request)
{
    FileGroupData group;
    KavroError error = m_store.fileGroup(request.guid(), &group);
    if (error == NoError)
        error = m_store.deleteFileGroup(request.guid());
    if (error == NoError && !request.in.boolean(QStringLiteral("ShallowDelete")))
        removeGroupDirectory(m_paths, group.getPath());
    return error;
}

KavroError RequestHandler::checkFileGroupExists(Request &request)
{
    // The answer to an unknown guid is "false", not an error.
    request.out.setBoolean(QStringLiteral("Exists"), m_store.fileGroupExists(request.guid()));
    return NoError;
}

KavroError RequestHandler::queryMetaData(Request &request)
{
    m_store.noteApplication(request.text("Application"));
    FileGroupData group;
    const KavroError error = m_store.fileGroup(request.guid(), &group);
    if (error == NoError)
        request.out.groups = {group};
    return error;
}

KavroError RequestHandler::queryLocationStateProgress(Request &request)
{
    LocationState state = LocationUndefined;
    double progress = 0;
    const KavroError error = m_store.locationState(request.guid(), &state, &progress);
    request.out.setNumber(QStringLiteral("LocationState"), state);
    request.out.setDecimal(QStringLiteral("CopyProgress"), progress);
    return error;
}

// Files

KavroError RequestHandler::addFile(Request &request)
{
    const QString name = request.text("FileName");
    if (!isPlainName(name))
        return ErrorAddFile;
    quint32 id = 0;
    KavroError error = m_store.addFile(request.guid(), name, request.fileId(), &id);
    request.out.setNumber(QStringLiteral("FileId"), id);
    FileGroupData group;
    if (error == NoError)
        error = m_store.fileGroup(request.guid(), &group);
    // A group of a type some converter handles waits for it from its first file on.
    if (error == NoError && m_events && group.getFileList().size() == 1
        && m_events->hasConverter(group.getFileType())) {
        error = m_store.setLocationState(request.guid(), LocationCentralNotConverted, 0);
        if (error == NoError)
            m_events->requestConversion(request.guid(), group.getFileType(), group.getPath());
    }
    return error;
}

KavroError RequestHandler::deleteFile(Request &request)
{
    FileGroupData group;
    QString name;
    KavroError error = m_store.fileGroup(request.guid(), &group);
    if (error == NoError)
        error = m_store.fileName(request.guid(), request.fileId(), &name);
    if (error == NoError)
        error = m_store.deleteFile(request.guid(), request.fileId());
    if (error == NoError)
        QFile::remove(filePath(group, name));
    return error == ErrorOpenFile ? ErrorRemoveFile : error;
}

QString RequestHandler::filePath(const FileGroupData &group, const QString &name) const
{
    for (const QString &root : {m_paths.data, m_paths.nas}) {
        const QString path = containedPath(root, group.getPath() + QLatin1Char('/') + name);
        if (!path.isEmpty() && QFileInfo(path).isFile())
            return path;
    }
    return QString();
}

KavroError RequestHandler::requestFile(Request &request)
{
    const QString user = request.text("UserName");
    m_store.noteUser(user);
    FileGroupData group;
    QString name;
    KavroError error = m_store.fileGroup(request.guid(), &group);
    if (error == NoError)
        error = m_store.fileName(request.guid(), request.fileId(), &name);
    const QString path = error == NoError ? filePath(group, name) : QString();
    if (error == NoError && path.isEmpty())
        error = ErrorOpenFile;
    if (error == NoError)
        error =
            m_store.lockFile(request.guid(), request.fileId(), user, request.in.boolean(QStringLiteral("WriteLock")));
    request.out.values.insert(QStringLiteral("Path"), error == NoError ? path : QString());
    return error;
}

KavroError RequestHandler::closeFile(Request &request)
{
    return m_store.unlockFile(request.guid(), request.fileId(), request.text("UserName"));
}

KavroError RequestHandler::moveToNas(Request &request)
{
    m_store.noteUser(request.text("UserName"));
    if (!m_store.fileGroupExists(request.guid()))
        return ErrorGuidNotFound;
    const KavroError error = m_store.setLocationState(request.guid(), LocationCentralNotMoved, 0);
    if (error == NoError && m_events)
        m_events->startMove(request.origin, request.in.requestId, request.guid());
    return error;
}

// References

KavroError RequestHandler::addReference(Request &request)
{
    m_store.noteApplication(request.text("Application"));
    return m_store.addReference(request.guid(), request.text("Application"));
}

KavroError RequestHandler::removeReference(Request &request)
{
    return m_store.removeReference(request.guid(), request.text("Application"));
}

KavroError RequestHandler::removeAllReferences(Request &request)
{
    return m_store.removeAllReferences(request.guid(), request.text("Application"));
}

// Lists and queries

KavroError RequestHandler::getApplicationList(Request &request)
{
    request.out.lists.insert(QStringLiteral("Applications"), m_store.applications());
    return NoError;
}

KavroError RequestHandler::getUserList(Request &request)
{
    request.out.lists.insert(QStringLiteral("Users"), m_store.users());
    return NoError;
}

KavroError RequestHandler::getFileList(Request &request)
{
    if (!m_store.fileGroupExists(request.guid()))
        return ErrorGuidNotFound;
    QList<QStringList> &files = request.out.entries[QStringLiteral("Files")];
    for (const StoredFile &file : m_store.files(request.guid()))
        files.append({QString::number(file.id), file.name});
    return NoError;
}

KavroError RequestHandler::getBasePath(Request &request)
{
    request.out.values.insert(QStringLiteral("Path"), m_paths.data);
    return NoError;
}

KavroError RequestHandler::queryFileGroups(Request &request)
{
    m_store.noteUser(request.text("User"));
    m_store.noteApplication(request.text("Application"));
    request.out.groups = m_store.query(QueryFileGroupsMessage::queryOf(request.in));
    return NoError;
}

// Archives and converters

KavroError RequestHandler::exportArchive(Request &request)
{
    return exportGroups(m_store, m_paths, request.text("Path"), request.in.lists.value(QStringLiteral("Guid")));
}

KavroError RequestHandler::importArchive(Request &request)
{
    return importArchives(m_store, m_paths, request.in.lists.value(QStringLiteral("Path")));
}

KavroError RequestHandler::registerConverter(Request &request)
{
    if (m_events)
        m_events->registerConverter(request.origin, request.text("ConverterId"),
                                    fileTypes(request.in.lists.value(QStringLiteral("FileType"))));
    return NoError;
}

KavroError RequestHandler::convertFileGroupAnswered(Request &request)
{
    if (request.in.error != NoError)
        return NoError; // the group stays waiting for its conversion
    return m_store.setLocationState(request.guid(), LocationCentral, 100);
}

} // namespace Kavro::Server
