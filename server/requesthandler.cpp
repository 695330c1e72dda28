// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "requesthandler.h"

#include "archivestore.h"
#include "archivetransfer.h"
#include "messages_p.h"
#include "serverlog.h"
#include "storepaths.h"

#include <kavro/filequery.h>
#include <kavro/kavroerrorstring.h>

#include <QFileInfo>
#include <QUuid>

#include <limits>

namespace Kavro::Server
{

struct RequestHandler::Request {
    const SoapMessage &in;
    SoapMessage &out;
    const Caller &caller;
    //! The reply's text where the code's own would not say what was wrong.
    QString errorText = QString();
    //! Takes back what was done on disk, when the request fails.
    QList<std::function<void()>> undo = {};
    //! Runs once the request's changes are committed.
    QList<std::function<void()>> committed = {};
    //! Who was seen, noted once the request's own work is done.
    QString user = QString();
    QString application = QString();

    QString text(const char *name) const { return in.text(QLatin1String(name)); }
    QString guid() const { return text("Guid"); }
    quint32 fileId() const { return quint32(in.number(QStringLiteral("FileId"))); }
    KavroError fail(KavroError error, const QString &why)
    {
        errorText = why;
        return error;
    }
};

struct RequestHandler::Command {
    enum Access {
        Read, //!< in a read transaction
        Write, //!< in a write transaction
        Own, //!< outside any: the command keeps its transactions short around its copies
    };
    KavroError (RequestHandler::*run)(Request &);
    Access access;
    //! Changes (every command that writes) are written to the audit trail.
    bool changes() const { return access != Read; }
};

namespace
{
constexpr int s_shownValueLength = 40;

// The whole numbers clients send, with their ranges; the entries of "FileTypeList" are file types too.
struct WholeNumber {
    const char *name;
    qint64 minimum;
    qint64 maximum;
};
const WholeNumber s_wholeNumbers[] = {
    {"FileType", FileTypeUnknown, FileTypeTechnicalParameters},
    {"FileTypeList", FileTypeUnknown, FileTypeTechnicalParameters},
    {"FileId", 0, std::numeric_limits<quint32>::max()},
    {"ReservedStorage", 0, std::numeric_limits<qint64>::max()},
    {"LocationState", LocationUndefined, LocationUnknownFileGroup},
    {"LockState", LockUndefined, LockWrite},
    {"Error", std::numeric_limits<qint32>::min(), std::numeric_limits<qint32>::max()},
};

QString shown(const QString &value)
{
    return value.size() > s_shownValueLength ? value.left(s_shownValueLength) + QLatin1String("...") : value;
}

// Empty when \a text is a whole number in the range of the element \a name, else what is wrong with it.
QString wholeNumberProblem(const QString &name, const QString &text)
{
    const auto range = std::find_if(std::begin(s_wholeNumbers), std::end(s_wholeNumbers), [&](const WholeNumber &n) {
        return name == QLatin1String(n.name);
    });
    Q_ASSERT(range != std::end(s_wholeNumbers));
    bool ok = false;
    const qint64 value = text.toLongLong(&ok);
    if (ok && value >= range->minimum && value <= range->maximum)
        return QString();
    return QStringLiteral("%1 \"%2\" is not a whole number from %3 to %4")
        .arg(name, shown(text))
        .arg(range->minimum)
        .arg(range->maximum);
}

QString timeProblem(const QString &name, const QString &text)
{
    if (text.isEmpty() || soapTime(text).isValid())
        return QString();
    return QStringLiteral("%1 \"%2\" is not a time").arg(name, shown(text));
}

// Each text at most \a maxLength characters and the list at most \a maxEntries long.
QString sizeProblem(const QString &name, const QStringList &texts, const ServerLimits &limits)
{
    if (texts.size() > limits.maxListEntries)
        return QStringLiteral("%1 holds more than %2 entries").arg(name).arg(limits.maxListEntries);
    for (const QString &text : texts) {
        if (text.size() > limits.maxFieldLength)
            return QStringLiteral("%1 is longer than %2 characters").arg(name).arg(limits.maxFieldLength);
    }
    return QString();
}

QStringList withoutDuplicates(QStringList texts)
{
    texts.removeDuplicates();
    return texts;
}

QList<FileType> fileTypes(const QStringList &texts)
{
    QList<FileType> types;
    for (const QString &text : texts)
        types << static_cast<FileType>(text.toInt());
    return types;
}

/*!
 * True when something stands at a group's path that does not open as its directory: a link on the way or at
 * the end, or something that is not a directory. A path with nothing at it is not tampered with.
 */
bool isTampered(const StorePaths &paths, const QString &path)
{
    if (openGroupDirectory(paths, path).isValid())
        return false;
    const QFileInfo info(path);
    return info.exists() || info.isSymLink();
}

bool isRegularFileOfGroup(const StorePaths &paths, const FileGroupData &group, const QString &name)
{
    const FileDescriptor directory = openGroupDirectory(paths, group.getPath());
    return directory.isValid() && entryType(directory.get(), name) == EntryType::RegularFile;
}
// What an audit line names of a request: what it acts on, in this order.
const char *const s_auditedValues[] = {"Guid",          "FileId",      "FileName",    "UserName", "WriteLock",
                                       "ShallowDelete", "Application", "ConverterId", "Path"};
constexpr int s_auditedValueLength = 256;

QString auditValue(const QString &value)
{
    QString quoted = value.left(s_auditedValueLength);
    quoted.replace(QLatin1Char('\\'), QLatin1String("\\\\")).replace(QLatin1Char('"'), QLatin1String("\\\""));
    return QLatin1Char('"') + quoted
        + (value.size() > s_auditedValueLength ? QLatin1String("...\"") : QLatin1String("\""));
}

/*!
 * One line of the audit trail: when, from where, who (proved, or "unauthenticated"), what on what, and how it
 * ended, e.g. 2026-11-25T09:04:17.120Z 10.0.0.7:40312 alice CloseFile Guid="..." FileId="1" -> 0 No error.
 */
QString auditLine(const SoapMessage &request, const SoapMessage &reply, const Caller &caller)
{
    QString line = QStringLiteral("audit %1 %2 %3 %4")
                       .arg(QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs), caller.peer,
                            caller.user.isEmpty() ? QStringLiteral("unauthenticated") : caller.user, request.element);
    for (const char *name : s_auditedValues) {
        const QString key = QLatin1String(name);
        // A new group's guid is the reply's.
        QStringList values = request.lists.value(key);
        if (const QString value = request.text(key).isEmpty() ? reply.text(key) : request.text(key); !value.isEmpty())
            values.prepend(value);
        if (!values.isEmpty())
            line += QLatin1Char(' ') + key + QLatin1Char('=') + auditValue(values.join(QLatin1Char(',')));
    }
    return line
        + QStringLiteral(" -> %1 %2")
              .arg(reply.text(QStringLiteral("Error")), reply.text(QStringLiteral("ErrorString")));
}
} // namespace

RequestHandler::RequestHandler(ArchiveStore &store, const StorePaths &paths, const ServerLimits &limits,
                               ServerEvents *events, std::function<bool()> stop)
    : m_store(store)
    , m_paths(paths)
    , m_limits(limits)
    , m_events(events)
    , m_stop(std::move(stop))
{
}

const QHash<QString, RequestHandler::Command> &RequestHandler::commands()
{
    using H = RequestHandler;
    static const QHash<QString, Command> table = {
        {QStringLiteral("CreateFileGroup"), {&H::createFileGroup, Command::Write}},
        {QStringLiteral("CreateRovecFileGroup"), {&H::createRovecFileGroup, Command::Write}},
        {QStringLiteral("DeleteFileGroup"), {&H::deleteFileGroup, Command::Write}},
        {QStringLiteral("CheckFileGroupExists"), {&H::checkFileGroupExists, Command::Read}},
        {QStringLiteral("QueryMetaData"), {&H::queryMetaData, Command::Read}},
        {QStringLiteral("QueryLocationStateProgress"), {&H::queryLocationStateProgress, Command::Read}},
        {QStringLiteral("AddFile"), {&H::addFile, Command::Write}},
        {QStringLiteral("DeleteFile"), {&H::deleteFile, Command::Write}},
        {QStringLiteral("RequestFile"), {&H::requestFile, Command::Write}},
        {QStringLiteral("CloseFile"), {&H::closeFile, Command::Write}},
        {QStringLiteral("MoveToNas"), {&H::moveToNas, Command::Write}},
        {QStringLiteral("AddReference"), {&H::addReference, Command::Write}},
        {QStringLiteral("RemoveReference"), {&H::removeReference, Command::Write}},
        {QStringLiteral("RemoveAllReferences"), {&H::removeAllReferences, Command::Write}},
        {QStringLiteral("GetApplicationList"), {&H::getApplicationList, Command::Read}},
        {QStringLiteral("GetUserList"), {&H::getUserList, Command::Read}},
        {QStringLiteral("GetFileList"), {&H::getFileList, Command::Read}},
        {QStringLiteral("GetBasePath"), {&H::getBasePath, Command::Read}},
        {QStringLiteral("QueryFileGroups"), {&H::queryFileGroups, Command::Read}},
        {QStringLiteral("ExportArchive"), {&H::exportArchive, Command::Own}},
        {QStringLiteral("ImportArchive"), {&H::importArchive, Command::Own}},
        {QStringLiteral("RegisterConverter"), {&H::registerConverter, Command::Write}},
        {QStringLiteral("ConvertFileGroupReply"), {&H::convertFileGroupAnswered, Command::Write}},
    };
    return table;
}

bool RequestHandler::runsInBackground(const QString &command)
{
    return commands().value(command).access == Command::Own;
}

// Checks every value of \a request against its kind, range and size, and brings guids and type lists to the
// form they are compared in: lowered, without duplicates. Empty when all is well, else what is wrong.
QString RequestHandler::invalidValue(SoapMessage &request) const
{
    bool isReply = false;
    const SoapCommand *command = soapCommandOf(request.element, &isReply);
    for (const SoapElement &element : isReply ? command->reply : command->request) {
        const QString name = QLatin1String(element.name);
        QString problem;
        switch (element.kind) {
        case SoapKind::Text:
            problem = sizeProblem(name, {request.text(name)}, m_limits);
            break;
        case SoapKind::Number:
            problem = wholeNumberProblem(name, request.text(name));
            break;
        case SoapKind::Boolean:
            if (const QString value = request.text(name);
                !value.isEmpty() && value != QLatin1String("true") && value != QLatin1String("false"))
                problem = QStringLiteral("%1 \"%2\" is not true or false").arg(name, shown(value));
            break;
        case SoapKind::Time:
            problem = timeProblem(name, request.text(name));
            break;
        case SoapKind::Texts:
        case SoapKind::TextList: {
            QStringList &texts = request.lists[name];
            problem = sizeProblem(name, texts, m_limits);
            const bool fileTypes = name == QLatin1String("FileType") || name == QLatin1String("FileTypeList");
            for (qsizetype i = 0; problem.isEmpty() && fileTypes && i < texts.size(); ++i) {
                texts[i] = texts.at(i).trimmed();
                problem = wholeNumberProblem(QStringLiteral("FileTypeList"), texts.at(i));
            }
            if (fileTypes)
                texts = withoutDuplicates(texts);
            break;
        }
        case SoapKind::TimeRange: {
            const QStringList bounds = request.lists.value(name);
            problem = timeProblem(name + QLatin1String(" Min"), bounds.value(0));
            if (problem.isEmpty())
                problem = timeProblem(name + QLatin1String(" Max"), bounds.value(1));
            break;
        }
        case SoapKind::Entries:
        case SoapKind::Record:
        case SoapKind::Records:
            break; // clients send none of these
        }
        if (!problem.isEmpty())
            return problem;
    }
    if (request.values.contains(QStringLiteral("Guid")))
        request.values[QStringLiteral("Guid")] = request.text(QStringLiteral("Guid")).toLower();
    for (QString &guid : request.lists[QStringLiteral("Guid")])
        guid = guid.toLower();
    return QString();
}

KavroError RequestHandler::refusedUser(const SoapMessage &request, const Caller &caller)
{
    const QString named = request.text(QStringLiteral("UserName"));
    if (caller.user.isEmpty() || caller.administrator || named == caller.user
        || !request.values.contains(QStringLiteral("UserName")))
        return NoError;
    const bool reading =
        request.element == QLatin1String("RequestFile") && !request.boolean(QStringLiteral("WriteLock"));
    return reading ? ErrorNoReadPermission : ErrorNoWritePermission;
}

KavroError RequestHandler::refusedDeletion(Request &request, const FileGroupData &group)
{
    const Caller &caller = request.caller;
    if (caller.user.isEmpty() || caller.administrator || group.getCreator() == caller.user)
        return NoError;
    return ErrorNoWritePermission;
}

std::optional<SoapMessage> RequestHandler::handle(const SoapMessage &received, const Caller &caller)
{
    SoapMessage reply = SoapMessage::replyTo(received);
    if (!received.readError.isEmpty()) {
        reply.setError(ErrorSoapParsing, received.readError);
        return reply;
    }
    const auto command = commands().constFind(received.element);
    if (!received.known || command == commands().constEnd()) {
        reply.setError(ErrorUnknownReplyCommand, KavroErrorString::Get(ErrorUnknownReplyCommand));
        return reply;
    }
    SoapMessage request = received;
    if (const QString problem = invalidValue(request); !problem.isEmpty()) {
        reply.setError(ErrorSoapParsing, problem);
        return reply;
    }

    Request call{request, reply, caller};
    const auto run = [&] {
        return (this->*command->run)(call);
    };
    KavroError error = refusedUser(request, caller);
    if (error == NoError)
        error = command->access == Command::Own
            ? run()
            : m_store.inTransaction(
                run, command->access == Command::Read ? ArchiveStore::Access::Read : ArchiveStore::Access::Write);
    for (const auto &step : error == NoError ? call.committed : call.undo)
        step();
    m_store.noteUser(call.user);
    m_store.noteApplication(call.application);
    reply.setError(error, call.errorText.isEmpty() ? KavroErrorString::Get(error) : call.errorText);
    if (command->changes())
        logLine(auditLine(request, reply, caller));
    if (request.element == QLatin1String("ConvertFileGroupReply"))
        return std::nullopt;
    return reply;
}

KavroError RequestHandler::groupForChange(Request &request, FileGroupData *group)
{
    const KavroError error = m_store.fileGroup(request.guid(), group);
    if (error == NoError && group->getLocationState() == LocationCentralNotMoved)
        return request.fail(ErrorFileGroupLocked, QStringLiteral("The file group is being moved"));
    return error;
}

// File groups

KavroError RequestHandler::createFileGroup(Request &request)
{
    FileGroupData record;
    record.setName(request.text("FileGroupName"));
    record.setLifeCycle(request.in.time(QStringLiteral("LifeCycle")));
    record.setReservedStorage(request.in.number(QStringLiteral("ReservedStorage")));
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

// A group's directory is new, or an empty directory that a client made for it, inside the storage directory
// but outside the imported groups' place; no other group's directory is it, lies inside it or above it.
KavroError RequestHandler::storeNewGroup(Request &request, FileGroupData &record)
{
    QString guid = request.guid();
    if (guid.isEmpty())
        guid = QUuid::createUuid().toString(QUuid::WithoutBraces);
    request.out.values.insert(QStringLiteral("Guid"), guid);
    if (!isGuid(guid) || m_store.fileGroupExists(guid))
        return ErrorAddFileGroup;
    const QString wanted = request.text("Path");
    const QString path = pathBeneath(m_paths.data, wanted.isEmpty() ? guid : wanted);
    const QString imported = m_paths.data + QLatin1String("/imported");
    if (path.isEmpty() || !pathBeneath(imported, path, true).isEmpty())
        return request.fail(ErrorCreatePath,
                            QStringLiteral("The path must lie inside the storage directory, "
                                           "outside its directory \"imported\""));
    if (!m_store.groupUsingPath(path).isEmpty())
        return request.fail(ErrorCreatePath,
                            QStringLiteral("The path is another file group's directory, or lies inside or above one"));
    QString created;
    const FileDescriptor directory = makeDirectory(m_paths.data, path, &created);
    if (!directory.isValid())
        return request.fail(ErrorCreatePath,
                            QStringLiteral("The path leads through a link or to something "
                                           "that is not a directory"));
    if (!created.isEmpty()) {
        request.undo.append([paths = m_paths, created] {
            removeGroupDirectory(paths, created);
        });
    } else if (!entryNames(directory.get()).isEmpty()) {
        return request.fail(ErrorCreatePath, QStringLiteral("The directory exists and is not empty"));
    }
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
    request.user = record.getCreator();
    const KavroError error = m_store.createFileGroup(record);
    request.out.values.insert(QStringLiteral("Path"), error == NoError ? path : QString());
    return error;
}

KavroError RequestHandler::deleteFileGroup(Request &request)
{
    FileGroupData group;
    KavroError error = groupForChange(request, &group);
    if (error == NoError)
        error = refusedDeletion(request, group);
    const bool deep = !request.in.boolean(QStringLiteral("ShallowDelete"));
    if (error == NoError && deep && isTampered(m_paths, group.getPath()))
        return request.fail(ErrorDeleteFileGroup,
                            QStringLiteral("The file group's directory has been replaced by "
                                           "something else; it is left as it is"));
    if (error == NoError)
        error = m_store.deleteFileGroup(group.getGuid());
    // A directory another group still uses stays.
    if (error == NoError && deep && m_store.groupUsingPath(group.getPath(), group.getGuid()).isEmpty()) {
        request.committed.append([paths = m_paths, directory = group.getPath()] {
            removeGroupDirectory(paths, directory);
        });
    }
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
    request.application = request.text("Application");
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
    FileGroupData group;
    KavroError error = isPlainName(name) ? groupForChange(request, &group) : ErrorAddFile;
    if (error != NoError)
        return error;
    if (!isRegularFileOfGroup(m_paths, group, name))
        return request.fail(
            ErrorAddFile,
            QStringLiteral("\"%1\" is not a regular file in the file group's directory").arg(shown(name)));
    quint32 id = request.fileId();
    if (id == 0) {
        const std::optional<quint32> next = m_store.nextFreeFileId(group.getGuid());
        if (!next)
            return request.fail(ErrorAddFile, QStringLiteral("No file id is left in the file group"));
        id = *next;
    }
    error = m_store.addFile(group.getGuid(), name, id, &id);
    request.out.setNumber(QStringLiteral("FileId"), id);
    // A group of a type some converter handles waits for it from its first file on.
    const std::optional<ConverterAddress> converter = error == NoError && m_events && group.getFileList().isEmpty()
        ? m_store.converterFor(group.getFileType(), m_events->serverId(), QDateTime::currentMSecsSinceEpoch())
        : std::nullopt;
    if (converter) {
        error = m_store.setLocationState(group.getGuid(), LocationCentralNotConverted, 0);
        if (error == NoError)
            error = m_store.askConversion(group.getGuid(), *converter);
        request.committed.append([events = m_events, converter = *converter, group] {
            events->requestConversion(converter, group.getGuid(), group.getFileType(), group.getPath());
        });
    }
    return error;
}

KavroError RequestHandler::deleteFile(Request &request)
{
    FileGroupData group;
    QString name;
    KavroError error = groupForChange(request, &group);
    if (error == NoError)
        error = refusedDeletion(request, group);
    if (error == NoError)
        error = m_store.fileName(group.getGuid(), request.fileId(), &name);
    if (error == NoError && isTampered(m_paths, group.getPath()))
        error = request.fail(ErrorRemoveFile,
                             QStringLiteral("The file group's directory has been replaced by "
                                            "something else"));
    if (error == NoError)
        error = m_store.deleteFile(group.getGuid(), request.fileId());
    // The entry itself goes: a link in its place is removed, never what it points to.
    if (error == NoError) {
        request.committed.append([paths = m_paths, directory = group.getPath(), name] {
            const FileDescriptor opened = openGroupDirectory(paths, directory);
            if (opened.isValid())
                removeEntry(opened.get(), name);
        });
    }
    return error == ErrorOpenFile ? ErrorRemoveFile : error;
}

KavroError RequestHandler::requestFile(Request &request)
{
    request.user = request.text("UserName");
    FileGroupData group;
    QString name;
    KavroError error = groupForChange(request, &group);
    if (error == NoError)
        error = m_store.fileName(group.getGuid(), request.fileId(), &name);
    // Only a regular file in the group's own directory is handed out: no link, no pipe, nothing of another group.
    if (error == NoError && !isRegularFileOfGroup(m_paths, group, name))
        error = ErrorOpenFile;
    if (error == NoError)
        error = m_store.lockFile(group.getGuid(), request.fileId(), request.user,
                                 request.in.boolean(QStringLiteral("WriteLock")));
    request.out.values.insert(QStringLiteral("Path"),
                              error == NoError ? group.getPath() + QLatin1Char('/') + name : QString());
    return error;
}

KavroError RequestHandler::closeFile(Request &request)
{
    return m_store.unlockFile(request.guid(), request.fileId(), request.text("UserName"));
}

KavroError RequestHandler::moveToNas(Request &request)
{
    request.user = request.text("UserName");
    FileGroupData group;
    KavroError error = groupForChange(request, &group);
    if (error != NoError)
        return error;
    if (storageRootOf(m_paths, group.getPath()) != m_paths.data)
        return request.fail(ErrorMoveFileGroup, QStringLiteral("The file group is not in the storage directory"));
    if (group.getLockCount() > 0)
        return ErrorFileGroupLocked;
    if (!openGroupDirectory(m_paths, group.getPath()).isValid())
        return request.fail(ErrorMoveFileGroup, QStringLiteral("The file group's directory does not open"));
    error = m_store.setLocationState(group.getGuid(), LocationCentralNotMoved, 0);
    // Claimed with the state, so that no other server takes the move for one whose server is gone.
    if (error == NoError && m_events)
        error = m_store.claimMove(group.getGuid(), m_events->serverId());
    if (error == NoError && m_events) {
        request.committed.append(
            [events = m_events, origin = request.caller.connection, id = request.in.requestId, guid = group.getGuid()] {
                events->startMove(origin, id, guid);
            });
    }
    return error;
}

// References

KavroError RequestHandler::addReference(Request &request)
{
    request.application = request.text("Application");
    return m_store.addReference(request.guid(), request.application);
}

KavroError RequestHandler::removeReference(Request &request)
{
    return m_store.removeReference(request.guid(), request.text("Application"));
}

KavroError RequestHandler::removeAllReferences(Request &request)
{
    FileGroupData group;
    KavroError error = m_store.fileGroup(request.guid(), &group);
    if (error == NoError)
        error = refusedDeletion(request, group);
    return error == NoError ? m_store.removeAllReferences(request.guid(), request.text("Application")) : error;
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
    request.user = request.text("User");
    request.application = request.text("Application");
    request.out.groups = m_store.query(QueryFileGroupsMessage::queryOf(request.in));
    return NoError;
}

// Archives and converters

KavroError RequestHandler::exportArchive(Request &request)
{
    return exportGroups(m_store, m_paths, request.text("Path"), request.in.lists.value(QStringLiteral("Guid")), m_stop);
}

KavroError RequestHandler::importArchive(Request &request)
{
    return importArchives(m_store, m_paths, request.in.lists.value(QStringLiteral("Path")), m_stop);
}

KavroError RequestHandler::registerConverter(Request &request)
{
    if (!m_events)
        return NoError;
    const KavroError error = m_store.registerConverter({m_events->serverId(), request.caller.connection},
                                                       fileTypes(request.in.lists.value(QStringLiteral("FileType"))));
    if (error == NoError) {
        m_events->converterRegistered(request.caller.connection);
        logLine(QStringLiteral("%1: converter %2 registered by %3")
                    .arg(request.caller.peer, request.text("ConverterId"),
                         request.caller.user.isEmpty() ? QStringLiteral("an unauthenticated client")
                                                       : request.caller.user));
    }
    return error;
}

// Only the converter that was asked may answer, and only while the group waits for it.
KavroError RequestHandler::convertFileGroupAnswered(Request &request)
{
    const bool converted = request.in.error == NoError;
    LocationState state = LocationUndefined;
    if (!m_events || m_store.locationState(request.guid(), &state, nullptr) != NoError
        || state != LocationCentralNotConverted
        || !m_store.answersConversion(request.guid(), {m_events->serverId(), request.caller.connection}, converted)) {
        logLine(QStringLiteral("%1: ignored an answer to a conversion of %2 that it was not asked for")
                    .arg(request.caller.peer, request.guid()));
        return ErrorNoWritePermission;
    }
    // After an error the group stays waiting for its conversion.
    return converted ? m_store.setLocationState(request.guid(), LocationCentral, 100) : NoError;
}

} // namespace Kavro::Server
