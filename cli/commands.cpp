// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "commands.h"

#include "progressbar.h"

#include <kavro/createpath.h>
#include <kavro/filequery.h>
#include <kavro/kavrofile.h>
#include <kavro/kavrourl.h>

#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSocketNotifier>
#include <QTimer>

#include <csignal>
#include <optional>
#include <sys/socket.h>
#include <unistd.h>

using namespace Kavro;

namespace
{

// Record fields

QString timeText(const QDateTime &time)
{
    return time.isValid() ? time.toUTC().toString(QStringLiteral("yyyy-MM-dd hh:mm:ss 'UTC'")) : QString();
}

QJsonValue timeJson(const QDateTime &time)
{
    return time.isValid() ? QJsonValue(time.toUTC().toString(Qt::ISODate)) : QJsonValue();
}

// The lock count of the list form, its fifteenth column: the record on the wire carries none.
constexpr qsizetype s_lockCountColumn = 14;

/*!
 * The fields of a record as name and text, in the order people read them. The
 * lock count and the path are not among them: the record on the wire carries
 * neither, so every client would show 0 and nothing.
 */
QList<std::pair<QString, QString>> recordFields(const FileGroupData &group)
{
    return {
        {QStringLiteral("guid"), group.getGuid()},
        {QStringLiteral("name"), group.getName()},
        {QStringLiteral("type"), QString::number(group.getFileType())},
        {QStringLiteral("version"), group.getVersion()},
        {QStringLiteral("detail"), group.getDetail()},
        {QStringLiteral("comment"), group.getComment()},
        {QStringLiteral("creator"), group.getCreator()},
        {QStringLiteral("team"), group.getTeam()},
        {QStringLiteral("location"), QString::number(group.getLocationState())},
        {QStringLiteral("references"), QString::number(group.getReferenceCount())},
        {QStringLiteral("reserved"), QString::number(group.getReservedStorage())},
        {QStringLiteral("created"), timeText(group.getCreationTime())},
        {QStringLiteral("modified"), timeText(group.getModificationTime())},
        {QStringLiteral("backup"), timeText(group.getBackupTime())},
        {QStringLiteral("lifeCycle"), timeText(group.getLifeCycle())},
    };
}

QJsonObject recordJson(const FileGroupData &group)
{
    QJsonObject object;
    for (const auto &[name, text] : recordFields(group))
        object.insert(name, text);
    for (const char *number : {"type", "location", "references", "reserved"})
        object.insert(QLatin1String(number), object.value(QLatin1String(number)).toString().toLongLong());
    object.insert(QStringLiteral("created"), timeJson(group.getCreationTime()));
    object.insert(QStringLiteral("modified"), timeJson(group.getModificationTime()));
    object.insert(QStringLiteral("backup"), timeJson(group.getBackupTime()));
    object.insert(QStringLiteral("lifeCycle"), timeJson(group.getLifeCycle()));
    QJsonArray files;
    for (const auto &[name, id] : group.getFileList())
        files.append(QJsonObject{{QStringLiteral("id"), qint64(id)}, {QStringLiteral("name"), name}});
    object.insert(QStringLiteral("files"), files);
    return object;
}

// Arguments

//! The guid of a guid or of a kavro URL.
QString guidOf(const QString &argument)
{
    const KavroUrl url(argument);
    return url.isKavroUrl() ? url.toKavroGuid() : argument;
}

QString fileUrl(const QString &guid, quint32 fileId)
{
    return KavroUrl::fromKavroIds(guid, fileId).toString();
}

//! The archived file \a argument names; none, after reporting a wrong command line of \a command, when it names none.
std::optional<KavroUrl> fileArgument(Session &session, const QString &argument, const char *command)
{
    const KavroUrl url(argument);
    if (url.isKavroUrl() && url.hasKavroFileId())
        return url;
    session.output().usage(QStringLiteral("%1 names no archived file").arg(argument), QString::fromLatin1(command));
    return std::nullopt;
}

//! A time given on the command line: ISO 8601, local time unless it names its zone.
QDateTime timeArgument(const QString &text)
{
    for (Qt::DateFormat format : {Qt::ISODateWithMs, Qt::ISODate}) {
        const QDateTime time = QDateTime::fromString(text, format);
        if (time.isValid())
            return time;
    }
    return QDateTime::fromString(text, QStringLiteral("yyyy-MM-dd hh:mm:ss"));
}

QList<QCommandLineOption> createOptions()
{
    return {
        valueOption("type", "The file type (a number; default 18, report fragment).", "N"),
        valueOption("version", "The version text.", "V"),
        valueOption("detail", "The detail text.", "D"),
        valueOption("comment", "The comment.", "C"),
        valueOption("lifecycle-days", "Days until the end of the group's life (default 30).", "DAYS"),
        valueOption("reserve", "Bytes of storage to reserve.", "BYTES"),
        valueOption("guid", "The guid to create the group with (default: a new one).", "G"),
    };
}

// Steps shared by commands

//! Creates a group named \a name with the create options of \a parser.
std::unique_ptr<KavroReply> createGroup(Session &session, const QCommandLineParser &parser, const QString &name)
{
    const auto number = [&](const char *option, qint64 fallback) {
        const QString value = parser.value(QString::fromLatin1(option));
        return value.isEmpty() ? fallback : value.toLongLong();
    };
    return session.run(session.client().CreateFileGroupRequest(
        parser.value(QStringLiteral("version")), QDateTime::currentDateTimeUtc().addDays(number("lifecycle-days", 30)),
        parser.value(QStringLiteral("detail")), parser.value(QStringLiteral("comment")),
        static_cast<FileType>(number("type", FileTypeReportFragment)), quint64(number("reserve", 0)), name,
        parser.value(QStringLiteral("guid"))));
}

//! Copies each of \a files into the group's \a directory and adds it; prints each file's URL.
int addFiles(Session &session, const QString &guid, const QString &directory, const QStringList &files)
{
    for (const QString &file : files) {
        const QFileInfo source(file);
        const QString target = QDir(directory).filePath(source.fileName());
        if (!source.isFile() || !QFile::copy(source.filePath(), target))
            return session.fail(ErrorWriteFile, QStringLiteral("cannot copy %1 to %2").arg(file, target));
        const auto added = session.run(session.client().AddFileRequest(target, guid));
        if (!added)
            return session.failure();
        const QString url = fileUrl(guid, added->fileId());
        session.output().line(url);
        session.output().append(QStringLiteral("urls"), url);
    }
    return ExitSuccess;
}

/*!
 * The directory of an existing group: laid out by the hour of its creation
 * in UTC, which the client took a moment before the server; empty when it is
 * not there.
 */
QString groupDirectory(const QString &storage, const FileGroupData &group)
{
    const QDateTime created = group.getCreationTime().toUTC();
    for (const QDateTime &hour : {created, created.addSecs(-3600)}) {
        const QString directory = CreatePath(storage, group.getGuid(), group.getName(), hour);
        if (QFileInfo(directory).isDir())
            return directory;
    }
    return QString();
}

//! Runs a request whose only outcome is its error; prints \a done on success.
int simple(Session &session, KavroReply *request, const QString &done)
{
    if (!session.run(request))
        return session.failure();
    session.output().line(done);
    return ExitSuccess;
}

int list(Session &session, KavroReply *request, const char *key)
{
    const auto reply = session.run(request);
    if (!reply)
        return session.failure();
    const QStringList entries = reply->users();
    for (const QString &entry : entries)
        session.output().line(entry);
    session.output().insert(QLatin1String(key), QJsonArray::fromStringList(entries));
    return ExitSuccess;
}

// Commands

int ping(Session &session, const QCommandLineParser &, const QStringList &)
{
    const QString directory = session.client().storageDirectory();
    session.output().line(directory);
    session.output().insert(QStringLiteral("storageDirectory"), directory);
    return ExitSuccess;
}

int create(Session &session, const QCommandLineParser &parser, const QStringList &arguments)
{
    const auto created = createGroup(session, parser, arguments.at(0));
    if (!created)
        return session.failure();
    session.output().table({}, {{QStringLiteral("guid"), created->guid()}, {QStringLiteral("path"), created->path()}});
    session.output().insert(QStringLiteral("guid"), created->guid());
    session.output().insert(QStringLiteral("path"), created->path());
    return ExitSuccess;
}

int add(Session &session, const QCommandLineParser &, const QStringList &arguments)
{
    const QString guid = guidOf(arguments.at(0));
    const auto meta = session.run(session.client().QueryMetaDataRequest(guid));
    if (!meta)
        return session.failure();
    const QString directory = groupDirectory(session.client().storageDirectory(), meta->metaData());
    if (directory.isEmpty())
        return session.fail(ErrorCreatePath,
                            QStringLiteral("the directory of the group %1 is not under %2")
                                .arg(guid, session.client().storageDirectory()));
    return addFiles(session, guid, directory, arguments.mid(1));
}

int put(Session &session, const QCommandLineParser &parser, const QStringList &arguments)
{
    const QString name = parser.isSet(QStringLiteral("name")) ? parser.value(QStringLiteral("name"))
                                                              : QFileInfo(arguments.at(0)).completeBaseName();
    const auto created = createGroup(session, parser, name);
    if (!created)
        return session.failure();
    session.output().insert(QStringLiteral("guid"), created->guid());
    return addFiles(session, created->guid(), created->path(), arguments);
}

int files(Session &session, const QCommandLineParser &, const QStringList &arguments)
{
    const auto reply = session.run(session.client().GetFileListRequest(guidOf(arguments.at(0))));
    if (!reply)
        return session.failure();
    const QStringList entries = reply->files();
    QList<QStringList> rows;
    for (qsizetype i = 0; i + 1 < entries.size(); i += 2) {
        rows.append({entries.at(i), entries.at(i + 1)});
        session.output().append(
            QStringLiteral("files"),
            QJsonObject{{QStringLiteral("id"), entries.at(i).toInt()}, {QStringLiteral("name"), entries.at(i + 1)}});
    }
    if (rows.isEmpty())
        session.output().insert(QStringLiteral("files"), QJsonArray());
    session.output().table({QStringLiteral("ID"), QStringLiteral("NAME")}, rows);
    return ExitSuccess;
}

int get(Session &session, const QCommandLineParser &parser, const QStringList &arguments)
{
    const auto url = fileArgument(session, arguments.at(0), "get");
    if (!url)
        return ExitUsage;
    const bool write = parser.isSet(QStringLiteral("write"));
    KavroFile archived(&session.client(), url->toKavroGuid(), url->toKavroFileId());
    if (!archived.open(write ? QIODevice::ReadWrite : QIODevice::ReadOnly)) {
        const bool noReply = archived.GetError() == ErrorNotConnected || archived.GetError() == ErrorReplyTimeout;
        return session.fail(archived.GetError(), archived.GetErrorString(),
                            noReply ? ExitNoConnection : ExitServerError);
    }
    const QString target = parser.value(QStringLiteral("output"));
    QFile out;
    const bool opened = target.isEmpty() || target == QLatin1String("-")
        ? out.open(stdout, QIODevice::WriteOnly)
        : (out.setFileName(target), out.open(QIODevice::WriteOnly));
    if (!opened)
        return session.fail(ErrorWriteFile, QStringLiteral("cannot write %1: %2").arg(target, out.errorString()));
    ProgressBar progress(
        archived.size(),
        ProgressBar::wanted(archived.size(),
                            !session.output().isJson() && !parser.isSet(QStringLiteral("no-progress"))));
    qint64 copied = 0;
    while (!archived.atEnd()) {
        const QByteArray chunk = archived.read(1024 * 1024);
        if (chunk.isEmpty() || out.write(chunk) != chunk.size())
            return session.fail(ErrorWriteFile, QStringLiteral("copying %1 failed").arg(archived.GetName()));
        copied += chunk.size();
        progress.update(copied);
    }
    progress.finish();
    out.close();
    archived.close();
    session.output().insert(QStringLiteral("url"), archived.GetName());
    session.output().insert(QStringLiteral("bytes"), copied);
    if (!target.isEmpty() && target != QLatin1String("-"))
        session.output().insert(QStringLiteral("path"), target);
    return ExitSuccess;
}

int meta(Session &session, const QCommandLineParser &, const QStringList &arguments)
{
    const auto reply = session.run(session.client().QueryMetaDataRequest(guidOf(arguments.at(0))));
    if (!reply)
        return session.failure();
    const FileGroupData group = reply->metaData();
    QList<QStringList> rows;
    for (const auto &[name, text] : recordFields(group))
        rows.append({name, text});
    session.output().table({QStringLiteral("FIELD"), QStringLiteral("VALUE")}, rows);
    QList<QStringList> fileRows;
    for (const auto &[name, id] : group.getFileList())
        fileRows.append({QString::number(id), name});
    session.output().line(QString());
    session.output().table({QStringLiteral("ID"), QStringLiteral("FILE")}, fileRows);
    const QJsonObject record = recordJson(group);
    for (auto field = record.begin(); field != record.end(); ++field)
        session.output().insert(field.key(), field.value());
    return ExitSuccess;
}

// The query options: each text option sets one search text.
struct TextCriterion {
    const char *option;
    const char *description;
    void (FileQuery::*set)(const QString &);
};
const TextCriterion textCriteria[] = {
    {"name", "Part of the group's name.", &FileQuery::SetFileGroupSearchText},
    {"comment", "Part of the comment.", &FileQuery::SetCommentSearchText},
    {"detail", "Part of the detail.", &FileQuery::SetDetailSearchText},
    {"team", "Part of the team's name.", &FileQuery::SetTeamMembershipSearchText},
    {"version", "Part of the version.", &FileQuery::SetVersionSearchText},
    {"lock-user", "The user holding a lock.", &FileQuery::SetLockUser},
    {"ref-app", "An application referencing the group.", &FileQuery::SetReferencingApplication},
    {"user", "Part of the creator's name.", &FileQuery::SetCreatorSearchText},
};
struct TimeCriterion {
    const char *name;
    void (FileQuery::*setMin)(const QDateTime &);
    void (FileQuery::*setMax)(const QDateTime &);
};
const TimeCriterion timeCriteria[] = {
    {"created", &FileQuery::SetCreationTimeMin, &FileQuery::SetCreationTimeMax},
    {"modified", &FileQuery::SetModificationTimeMin, &FileQuery::SetModificationTimeMax},
    {"backup", &FileQuery::SetBackupTimeMin, &FileQuery::SetBackupTimeMax},
    {"lifecycle", &FileQuery::SetLifeCycleTimeMin, &FileQuery::SetLifeCycleTimeMax},
};

QList<QCommandLineOption> queryOptions()
{
    QList<QCommandLineOption> options;
    for (const TextCriterion &criterion : textCriteria)
        options.append(valueOption(criterion.option, criterion.description, "T"));
    options.append(valueOption("type", "A file type; may be given more than once.", "N"));
    options.append(valueOption("location", "The location state.", "N"));
    options.append(valueOption("lock", "The lock state.", "N"));
    for (const TimeCriterion &criterion : timeCriteria) {
        const QString name = QString::fromLatin1(criterion.name);
        options.append(QCommandLineOption(name + QStringLiteral("-from"),
                                          QStringLiteral("The %1 time from DT (ISO 8601).").arg(name),
                                          QStringLiteral("DT")));
        options.append(QCommandLineOption(name + QStringLiteral("-to"),
                                          QStringLiteral("The %1 time up to DT (ISO 8601).").arg(name),
                                          QStringLiteral("DT")));
    }
    return options;
}

int query(Session &session, const QCommandLineParser &parser, const QStringList &)
{
    FileQuery criteria;
    for (const TextCriterion &criterion : textCriteria) {
        if (parser.isSet(QString::fromLatin1(criterion.option)))
            (criteria.*criterion.set)(parser.value(QString::fromLatin1(criterion.option)));
    }
    for (const QString &type : parser.values(QStringLiteral("type")))
        criteria.AddFileType(static_cast<FileType>(type.toInt()));
    if (parser.isSet(QStringLiteral("location")))
        criteria.SetLocationState(static_cast<LocationState>(parser.value(QStringLiteral("location")).toInt()));
    if (parser.isSet(QStringLiteral("lock")))
        criteria.SetLockState(static_cast<LockState>(parser.value(QStringLiteral("lock")).toInt()));
    for (const TimeCriterion &criterion : timeCriteria) {
        for (const auto &[suffix, set] : {std::pair{"-from", criterion.setMin}, std::pair{"-to", criterion.setMax}}) {
            const QString option = QLatin1String(criterion.name) + QLatin1String(suffix);
            if (!parser.isSet(option))
                continue;
            const QDateTime time = timeArgument(parser.value(option));
            if (!time.isValid())
                return session.output().usage(QStringLiteral("--%1: not a time: %2").arg(option, parser.value(option)),
                                              QStringLiteral("query"));
            (criteria.*set)(time);
        }
    }
    const auto reply = session.run(session.client().QueryFilesRequest(criteria));
    if (!reply)
        return session.failure();
    QStringList headers;
    FileGroupData::GetHeaders(headers);
    headers.removeAt(s_lockCountColumn);
    QList<QStringList> rows;
    for (const FileGroupData &group : reply->groups()) {
        QStringList cells;
        group.ToStringList(cells);
        cells.removeAt(s_lockCountColumn);
        rows.append(cells);
        session.output().append(QStringLiteral("groups"), recordJson(group));
    }
    session.output().table(headers, rows);
    session.output().line(QStringLiteral("%1 group(s)").arg(rows.size()));
    session.output().insert(QStringLiteral("count"), rows.size());
    if (rows.isEmpty())
        session.output().insert(QStringLiteral("groups"), QJsonArray());
    return ExitSuccess;
}

int exists(Session &session, const QCommandLineParser &, const QStringList &arguments)
{
    const auto reply = session.run(session.client().CheckFileGroupExistsRequest(guidOf(arguments.at(0))));
    if (!reply)
        return session.failure();
    session.output().line(reply->exists() ? QStringLiteral("yes") : QStringLiteral("no"));
    session.output().insert(QStringLiteral("exists"), reply->exists());
    return ExitSuccess;
}

int removeGroup(Session &session, const QCommandLineParser &parser, const QStringList &arguments)
{
    const QString guid = guidOf(arguments.at(0));
    return simple(session, session.client().DeleteFileGroupRequest(guid, parser.isSet(QStringLiteral("shallow"))),
                  QStringLiteral("deleted %1").arg(guid));
}

int removeFile(Session &session, const QCommandLineParser &, const QStringList &arguments)
{
    const auto url = fileArgument(session, arguments.at(0), "rm-file");
    if (!url)
        return ExitUsage;
    return simple(session, session.client().DeleteFileNameRequest(url->toKavroFileId(), url->toKavroGuid()),
                  QStringLiteral("deleted %1").arg(arguments.at(0)));
}

int unlock(Session &session, const QCommandLineParser &parser, const QStringList &arguments)
{
    const auto url = fileArgument(session, arguments.at(0), "unlock");
    if (!url)
        return ExitUsage;
    // The server releases the lock of the user a request names; only an administrator may name another.
    const QString owner = parser.value(QStringLiteral("owner"));
    if (!owner.isEmpty())
        session.client().SetUser(owner);
    return simple(session, session.client().CloseFileRequest(url->toKavroFileId(), url->toKavroGuid()),
                  owner.isEmpty() ? QStringLiteral("unlocked %1").arg(arguments.at(0))
                                  : QStringLiteral("unlocked %1 (the lock of %2)").arg(arguments.at(0), owner));
}

int reference(Session &session, const QCommandLineParser &, const QStringList &arguments)
{
    const QString action = arguments.at(0);
    const QString guid = guidOf(arguments.at(1));
    KavroClient &client = session.client();
    if (action == QLatin1String("add"))
        return simple(session, client.AddReferenceRequest(guid), QStringLiteral("referenced %1").arg(guid));
    if (action == QLatin1String("rm"))
        return simple(session, client.RemoveReferenceRequest(guid), QStringLiteral("unreferenced %1").arg(guid));
    if (action == QLatin1String("rm-all"))
        return simple(session, client.RemoveAllReferencesRequest(guid), QStringLiteral("unreferenced %1").arg(guid));
    return session.output().usage(QStringLiteral("ref takes add, rm or rm-all, not %1").arg(action),
                                  QStringLiteral("ref"));
}

//! Reports where a group is and how far its copy has come; the reply, or null.
std::unique_ptr<KavroReply> locationOf(Session &session, const QString &guid)
{
    auto reply = session.run(session.client().QueryLocationStateProgressRequest(guid));
    if (reply) {
        session.output().insert(QStringLiteral("locationState"), int(reply->locationState()));
        session.output().insert(QStringLiteral("progress"), reply->progress());
    }
    return reply;
}

int progress(Session &session, const QCommandLineParser &, const QStringList &arguments)
{
    const auto reply = locationOf(session, guidOf(arguments.at(0)));
    if (!reply)
        return session.failure();
    session.output().line(QStringLiteral("location %1, %2%").arg(int(reply->locationState())).arg(reply->progress()));
    return ExitSuccess;
}

int moveToNas(Session &session, const QCommandLineParser &parser, const QStringList &arguments)
{
    const QString guid = guidOf(arguments.at(0));
    if (!session.run(session.client().MoveToNasRequest(guid)))
        return session.failure();
    // With --wait: asked again every fifth of a second until the group is on network storage.
    while (parser.isSet(QStringLiteral("wait"))) {
        const auto reply = locationOf(session, guid);
        if (!reply)
            return session.failure();
        if (reply->locationState() == LocationRemote)
            break;
        QEventLoop pause;
        QTimer::singleShot(200, &pause, &QEventLoop::quit);
        pause.exec();
    }
    session.output().line(QStringLiteral("moving %1 to network storage%2")
                              .arg(guid, parser.isSet(QStringLiteral("wait")) ? QStringLiteral(": done") : QString()));
    return ExitSuccess;
}

int exportArchive(Session &session, const QCommandLineParser &, const QStringList &arguments)
{
    const QStringList guids = arguments.mid(1);
    return simple(session, session.client().ExportArchiveRequest(guids, arguments.at(0)),
                  QStringLiteral("exported %1 group(s) to %2").arg(guids.size()).arg(arguments.at(0)));
}

int importArchive(Session &session, const QCommandLineParser &, const QStringList &arguments)
{
    return simple(session, session.client().ImportArchiveRequest(arguments),
                  QStringLiteral("imported %1").arg(arguments.join(QStringLiteral(", "))));
}

// The converter runs until SIGINT or SIGTERM, which reach the event loop through a socket pair.
int s_signalPipe[2] = {-1, -1};

void forwardSignal(int)
{
    const char byte = 1;
    [[maybe_unused]] const auto written = ::write(s_signalPipe[1], &byte, 1);
}

int convert(Session &session, const QCommandLineParser &parser, const QStringList &)
{
    QVector<FileType> types;
    for (const QString &type : parser.values(QStringLiteral("type")))
        types.append(static_cast<FileType>(type.toInt()));
    const QString converterId = parser.value(QStringLiteral("id"));
    const QStringList command = QProcess::splitCommand(parser.value(QStringLiteral("exec")));
    if (converterId.isEmpty() || types.isEmpty() || command.isEmpty())
        return session.output().usage(QStringLiteral("convert needs --id, --type and --exec"),
                                      QStringLiteral("convert"));
    if (!session.run(session.client().RegisterConverterRequest(converterId, types)))
        return session.failure();
    session.output().line(QStringLiteral("converting as %1; Ctrl+C ends").arg(converterId));

    KavroClient &client = session.client();
    QObject::connect(&client, &KavroClient::ConvertFileGroupRequestedSg, &client,
                     [&client, command](const QString &guid, FileType type, const QString &path) {
                         auto *process = new QProcess(&client);
                         process->setProcessChannelMode(QProcess::ForwardedOutputChannel);
                         QObject::connect(
                             process, &QProcess::finished, &client,
                             [&client, process, guid](int exitCode, QProcess::ExitStatus status) {
                                 const bool converted = status == QProcess::NormalExit && exitCode == 0;
                                 client.AnswerConvertFileGroup(
                                     guid, converted ? NoError : ErrorNotConverted,
                                     converted ? QString()
                                               : QString::fromLocal8Bit(process->readAllStandardError()).trimmed());
                                 process->deleteLater();
                             });
                         process->start(command.at(0), command.mid(1) + QStringList{guid, QString::number(type), path});
                     });
    QEventLoop loop;
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, s_signalPipe) != 0)
        return session.fail(ErrorUnknown, QStringLiteral("cannot watch for signals"));
    QSocketNotifier interrupted(s_signalPipe[0], QSocketNotifier::Read);
    QObject::connect(&interrupted, &QSocketNotifier::activated, &loop, &QEventLoop::quit);
    std::signal(SIGINT, forwardSignal);
    std::signal(SIGTERM, forwardSignal);
    loop.exec();
    session.output().insert(QStringLiteral("converter"), converterId);
    return ExitSuccess;
}

Command command(const char *name, const char *synopsis, const char *summary, int minArguments, int maxArguments,
                const Command::Run &run, const QList<QCommandLineOption> &options = {},
                const QStringList &examples = {})
{
    return {QString::fromLatin1(name),
            QString::fromLatin1(synopsis),
            QString::fromLatin1(summary),
            options,
            examples,
            minArguments,
            maxArguments,
            run};
}

QStringList examples(std::initializer_list<const char *> lines)
{
    QStringList texts;
    for (const char *line : lines)
        texts.append(QString::fromLatin1(line));
    return texts;
}

} // namespace

QCommandLineOption valueOption(const char *name, const char *description, const char *valueName)
{
    return QCommandLineOption(QString::fromLatin1(name), QString::fromLatin1(description),
                              QString::fromLatin1(valueName));
}

QCommandLineOption flag(const char *name, const char *description)
{
    return QCommandLineOption(QString::fromLatin1(name), QString::fromLatin1(description));
}

const QList<Command> &commands()
{
    static const QList<Command> all = {
        command("ping", "", "Connects and prints the server's storage directory.", 0, 0, ping, {},
                examples({"kavro ping", "kavro --host archive.example.org --port 5223 ping"})),
        command(
            "users", "", "Lists the users the server knows.", 0, 0,
            [](Session &s, const QCommandLineParser &, const QStringList &) {
                return list(s, s.client().GetUserListRequest(), "users");
            },
            {}, examples({"kavro users", "kavro --json users"})),
        command(
            "apps", "", "Lists the applications the server knows.", 0, 0,
            [](Session &s, const QCommandLineParser &, const QStringList &) {
                return list(s, s.client().GetApplicationListRequest(), "applications");
            },
            {}, examples({"kavro apps"})),
        command("create", "NAME", "Creates a file group; prints its guid and local directory.", 1, 1, create,
                createOptions(), examples({"kavro create report --type 11 --comment 'monthly report'"})),
        command("add", "GUID FILE...", "Copies files into a group's directory and adds them; prints their URLs.", 2, -1,
                add, {}, examples({"kavro add 0f8fad5b-d9cb-469f-a165-70867728950e notes.txt scan.png"})),
        command("put", "FILE...", "Creates a group named after the first file and adds the files; prints their URLs.",
                1, -1, put,
                createOptions() + QList<QCommandLineOption>{valueOption("name", "The group's name.", "NAME")},
                examples({"kavro put report.pdf", "kavro put a.txt b.txt --name pair --lifecycle-days 7"})),
        command("files", "GUID|URL", "Lists the files of a group.", 1, 1, files, {},
                examples({"kavro files kavro:///0f8fad5b-d9cb-469f-a165-70867728950e"})),
        command(
            "get", "URL", "Fetches an archived file, locked while it is copied, to a file or stdout.", 1, 1, get,
            {QCommandLineOption({QStringLiteral("o"), QStringLiteral("output")},
                                QStringLiteral("Where to write the file (default: stdout)."), QStringLiteral("PATH")),
             flag("write", "Take a write lock instead of a read lock.")},
            examples({"kavro get kavro:///0f8fad5b-d9cb-469f-a165-70867728950e/1 -o report.pdf"})),
        command("meta", "GUID", "Prints a group's record and its files.", 1, 1, meta, {},
                examples({"kavro meta 0f8fad5b-d9cb-469f-a165-70867728950e"})),
        command("query", "", "Lists the groups that meet every criterion given.", 0, 0, query, queryOptions(),
                examples({"kavro query --name report --type 11", "kavro --json query --created-from 2026-11-01"})),
        command("exists", "GUID", "Tells whether a group exists.", 1, 1, exists, {},
                examples({"kavro exists 0f8fad5b-d9cb-469f-a165-70867728950e"})),
        command("rm", "GUID", "Deletes a group and its files.", 1, 1, removeGroup,
                {flag("shallow", "Keep the group's files on disk.")},
                examples({"kavro rm 0f8fad5b-d9cb-469f-a165-70867728950e"})),
        command("rm-file", "URL", "Deletes one file of a group.", 1, 1, removeFile, {},
                examples({"kavro rm-file kavro:///0f8fad5b-d9cb-469f-a165-70867728950e/2"})),
        command(
            "unlock", "URL", "Releases the caller's lock on an archived file, or with --owner another user's.", 1, 1,
            unlock,
            {valueOption("owner", "The user whose lock to release; the server allows it to administrators.", "NAME")},
            examples({"kavro unlock kavro:///0f8fad5b-d9cb-469f-a165-70867728950e/1",
                      "kavro --cert admin.pem --key admin.key unlock "
                      "kavro:///0f8fad5b-d9cb-469f-a165-70867728950e/1 --owner alice"})),
        command("ref", "add|rm|rm-all GUID", "Adds or removes this application's reference to a group.", 2, 2,
                reference, {}, examples({"kavro --app viewer ref add 0f8fad5b-d9cb-469f-a165-70867728950e"})),
        command("move-to-nas", "GUID", "Moves a group to network storage.", 1, 1, moveToNas,
                {flag("wait", "Wait until the group has arrived.")},
                examples({"kavro move-to-nas 0f8fad5b-d9cb-469f-a165-70867728950e --wait"})),
        command("progress", "GUID", "Prints where a group is and how far its copy has come.", 1, 1, progress, {},
                examples({"kavro progress 0f8fad5b-d9cb-469f-a165-70867728950e"})),
        command("export", "TARGET GUID...", "Exports groups to an archive.", 2, -1, exportArchive, {},
                examples({"kavro export backup-2026 0f8fad5b-d9cb-469f-a165-70867728950e"})),
        command("import", "PATH...", "Imports archives.", 1, -1, importArchive, {},
                examples({"kavro import /srv/exports/backup-2026"})),
        command("convert", "", "Converts groups for the server, running a command for each request, until interrupted.",
                0, 0, convert,
                {valueOption("id", "The converter's id.", "ID"),
                 valueOption("type", "A file type it converts; may be given more than once.", "N"),
                 valueOption("exec", "The command to run with the guid, type and path appended.", "COMMAND")},
                examples({"kavro convert --id pdf --type 11 --exec '/usr/local/bin/to-pdf'"})),
    };
    return all;
}

const Command *findCommand(const QString &name)
{
    for (const Command &candidate : commands()) {
        if (candidate.name == name)
            return &candidate;
    }
    return nullptr;
}
