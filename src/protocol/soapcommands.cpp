// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "soapcommands_p.h"

namespace Kavro
{

namespace
{
SoapElement text(const char *name)
{
    return {name, SoapKind::Text};
}

SoapElement number(const char *name)
{
    return {name, SoapKind::Number};
}

SoapElement boolean(const char *name)
{
    return {name, SoapKind::Boolean};
}

SoapElement timeRange(const char *name)
{
    return {name, SoapKind::TimeRange};
}

SoapElement textList(const char *container, const char *entry)
{
    return {container, SoapKind::TextList, entry};
}

QList<SoapElement> withErrors(QList<SoapElement> elements)
{
    return elements << number("Error") << text("ErrorString");
}

const QList<SoapElement> guidAndApplication = {text("Guid"), text("Application")};
} // namespace

QString SoapCommand::replyName() const
{
    return QLatin1String(name) + QLatin1String("Reply");
}

const QList<SoapCommand> &soapCommands()
{
    const SoapSender client = SoapSender::Client;
    const SoapSender server = SoapSender::Server;
    static const QList<SoapCommand> commands = {
        {"CreateFileGroup",
         client,
         {text("Comment"),
          text("Guid"),
          text("Detail"),
          text("FileGroupName"),
          number("FileType"),
          {"LifeCycle", SoapKind::Time},
          number("ReservedStorage"),
          text("TeamMembership"),
          text("UserName"),
          text("FileGroupVersion"),
          text("Path")},
         withErrors({text("Guid"), text("Path")})},
        {"AddFile", client, {text("Guid"), text("FileName"), number("FileId")}, withErrors({number("FileId")})},
        {"DeleteFile", client, {text("Guid"), number("FileId")}, withErrors({})},
        {"RequestFile",
         client,
         {text("Guid"), number("FileId"), boolean("WriteLock"), text("UserName")},
         withErrors({text("Path")})},
        {"CloseFile", client, {text("Guid"), number("FileId"), text("UserName")}, withErrors({})},
        {"MoveToNas", client, {text("Guid"), text("UserName")}, withErrors({})},
        {"AddReference", client, guidAndApplication, withErrors({})},
        {"RemoveReference", client, guidAndApplication, withErrors({})},
        {"RemoveAllReferences", client, guidAndApplication, withErrors({})},
        {"QueryMetaData", client, guidAndApplication, withErrors({{"FileGroup", SoapKind::Record}})},
        {"GetApplicationList", client, {}, withErrors({textList("Applications", "Application")})},
        {"GetFileList",
         client,
         {text("Guid")},
         withErrors({{"Files", SoapKind::Entries, "File", {"FileId", "FileName"}}})},
        {"GetUserList", client, {}, withErrors({textList("Users", "User")})},
        {"QueryFileGroups",
         client,
         {text("Application"), text("CommentSearchText"), text("DetailSearchText"), text("FileGroupNameSearchText"),
          textList("FileTypeList", "FileType"), number("LocationState"), number("LockState"), text("LockUser"),
          timeRange("BackupTime"), timeRange("CreationTime"), timeRange("LifeCycle"), timeRange("ModificationTime"),
          text("ReferencingApplication"), text("TeamSearchText"), text("User"), text("VersionSearchText")},
         withErrors({{"FileGroup", SoapKind::Records}})},
        {"GetBasePath", client, {}, withErrors({text("Path")})},
        {"ExportArchive", client, {text("Path"), {"Guid", SoapKind::Texts}}, withErrors({})},
        {"ImportArchive", client, {{"Path", SoapKind::Texts}}, withErrors({})},
        {"CreateRovecFileGroup",
         client,
         {text("RovecId"), text("SubSystemName"), text("RecordId"), text("FileGroupVersion"), text("Detail"),
          text("Comment"), number("FileType"), text("TeamMembership"), text("UserName"), text("Guid"), text("Path")},
         withErrors({text("Guid"), text("Path")})},
        {"RegisterConverter", client, {text("ConverterId"), {"FileType", SoapKind::Texts}}, withErrors({})},
        {"DeleteFileGroup", client, {text("Guid"), boolean("ShallowDelete")}, withErrors({})},
        {"QueryLocationStateProgress",
         client,
         {text("Guid")},
         withErrors({number("LocationState"), number("CopyProgress")})},
        {"CheckFileGroupExists", client, {text("Guid")}, withErrors({boolean("Exists")})},
        {"CopyForeignFileGroupProgress", server, withErrors({number("CopyProgress")}), {}},
        {"ConvertFileGroup", server, {text("Guid"), number("FileType"), text("Path")}, withErrors({text("Guid")})},
    };
    return commands;
}

const SoapCommand *soapCommandOf(QStringView element, bool *isReply)
{
    for (const SoapCommand &command : soapCommands()) {
        const bool reply = command.hasReply() && element == command.replyName();
        if (reply || element == QLatin1String(command.name)) {
            if (isReply)
                *isReply = reply;
            return &command;
        }
    }
    return nullptr;
}

QStringList soapElementsReceivedBy(SoapSender receiver)
{
    QStringList elements;
    for (const SoapCommand &command : soapCommands()) {
        if (command.sender != receiver)
            elements << QLatin1String(command.name);
        else if (command.hasReply())
            elements << command.replyName();
    }
    return elements;
}

namespace
{
QString describe(const SoapElement &element)
{
    const QString name = QLatin1Char('`') + QLatin1String(element.name) + QLatin1Char('`');
    switch (element.kind) {
    case SoapKind::Text:
        return name;
    case SoapKind::Number:
        return name + QLatin1String(" (number)");
    case SoapKind::Boolean:
        return name + QLatin1String(" (boolean)");
    case SoapKind::Time:
        return name + QLatin1String(" (time)");
    case SoapKind::Texts:
        return name + QLatin1String(" (repeated)");
    case SoapKind::TextList:
        return name + QLatin1String(" (list of `") + QLatin1String(element.entry) + QLatin1String("`)");
    case SoapKind::Entries: {
        QStringList fields;
        for (const char *field : element.entryFields)
            fields << QLatin1Char('`') + QLatin1String(field) + QLatin1Char('`');
        return name + QLatin1String(" (entries `") + QLatin1String(element.entry) + QLatin1String("`: ")
            + fields.join(QLatin1String(", ")) + QLatin1Char(')');
    }
    case SoapKind::TimeRange:
        return name + QLatin1String(" (time range)");
    case SoapKind::Record:
        return name + QLatin1String(" (record)");
    case SoapKind::Records:
        return name + QLatin1String(" (records)");
    }
    return name;
}

QString describe(const QList<SoapElement> &elements)
{
    QStringList described;
    for (const SoapElement &element : elements)
        described << describe(element);
    return described.isEmpty() ? QStringLiteral("none") : described.join(QLatin1String(", "));
}
} // namespace

QString soapCommandsMarkdown()
{
    QString table = QStringLiteral("| Command | Sent by | Request elements | Reply elements |\n|---|---|---|---|\n");
    for (const SoapCommand &command : soapCommands()) {
        const QString sender =
            command.sender == SoapSender::Client ? QStringLiteral("client") : QStringLiteral("server");
        const QString reply = command.hasReply() ? describe(command.reply) : QStringLiteral("no reply");
        table += QLatin1String("| `") + QLatin1String(command.name) + QLatin1String("` | ") + sender
            + QLatin1String(" | ") + describe(command.request) + QLatin1String(" | ") + reply + QLatin1String(" |\n");
    }
    return table;
}

} // namespace Kavro
