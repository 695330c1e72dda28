// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "messages_p.h"

#include <kavro/filequery.h>

namespace Kavro
{

namespace
{
QString number(qint64 value)
{
    return QString::number(value);
}

// One element per entry, all of the same name.
template<typename List, typename Text>
QList<SoapField> repeated(const char *name, const List &entries, Text text)
{
    QList<SoapField> fields;
    for (const auto &entry : entries)
        fields.append({name, text(entry)});
    return fields;
}

QString sameText(const QString &text)
{
    return text;
}

QString fileTypeText(FileType type)
{
    return number(type);
}

SoapField range(const char *name, const QDateTime &minimum, const QDateTime &maximum)
{
    return {name,
            QList<SoapField>{{"Min", KavroClientSOAPMessage::dateTimeText(minimum)},
                             {"Max", KavroClientSOAPMessage::dateTimeText(maximum)}}};
}

QList<SoapField> queryFields(const FileQuery &query, const QString &application, const QString &user)
{
    QVector<FileType> types;
    for (int i = 0; i < query.GetFileTypeListSize(); ++i)
        types.append(query.GetFileTypeAt(i));
    return {
        {"Application", application},
        {"CommentSearchText", query.GetCommentSearchText()},
        {"DetailSearchText", query.GetDetailSearchText()},
        {"FileGroupNameSearchText", query.GetFileGroupSearchText()},
        {"FileTypeList", repeated("FileType", types, fileTypeText)},
        {"LocationState", number(query.GetLocationState())},
        {"LockState", number(query.GetLockState())},
        {"LockUser", query.GetLockUser()},
        range("BackupTime", query.GetBackupTimeMin(), query.GetBackupTimeMax()),
        range("CreationTime", query.GetCreationTimeMin(), query.GetCreationTimeMax()),
        range("LifeCycle", query.GetLifeCycleTimeMin(), query.GetLifeCycleTimeMax()),
        range("ModificationTime", query.GetModificationTimeMin(), query.GetModificationTimeMax()),
        {"ReferencingApplication", query.GetReferencingApplication()},
        {"TeamSearchText", query.GetTeamMembershipSearchText()},
        {"User", user},
        {"VersionSearchText", query.GetVersionSearchText()},
    };
}
} // namespace

AddFileMessage::AddFileMessage(const QString &guid, const QString &fileName, quint32 fileId, const QString &requestId)
    : KavroClientSOAPMessage("AddFile", {{"Guid", guid}, {"FileName", fileName}, {"FileId", number(fileId)}}, requestId)
{
}

CloseFileMessage::CloseFileMessage(const QString &guid, quint32 fileId, const QString &user, const QString &requestId)
    : KavroClientSOAPMessage("CloseFile", {{"Guid", guid}, {"FileId", number(fileId)}, {"UserName", user}}, requestId)
{
}

ConvertFileGroupReplyMessage::ConvertFileGroupReplyMessage(const QString &guid, int error, const QString &errorString,
                                                           const QString &requestId)
    : KavroClientSOAPMessage("ConvertFileGroupReply",
                             {{"Guid", guid}, {"Error", number(error)}, {"ErrorString", errorString}}, requestId)
{
}

CreateFileGroupMessage::CreateFileGroupMessage(const QString &comment, const QString &guid, const QString &detail,
                                               const QString &name, FileType fileType, const QDateTime &lifeCycle,
                                               quint64 reservedStorage, const QString &team, const QString &user,
                                               const QString &version, const QString &path, const QString &requestId)
    : KavroClientSOAPMessage("CreateFileGroup",
                             {{"Comment", comment},
                              {"Guid", guid},
                              {"Detail", detail},
                              {"FileGroupName", name},
                              {"FileType", number(fileType)},
                              {"LifeCycle", dateTimeText(lifeCycle)},
                              {"ReservedStorage", QString::number(reservedStorage)},
                              {"TeamMembership", team},
                              {"UserName", user},
                              {"FileGroupVersion", version},
                              {"Path", path}},
                             requestId)
{
}

CreateRovecFileGroupMessage::CreateRovecFileGroupMessage(const QString &rovecId, const QString &subsystem,
                                                         const QString &recordId, const QString &version,
                                                         const QString &detail, const QString &comment,
                                                         FileType fileType, const QString &team, const QString &user,
                                                         const QString &guid, const QString &path,
                                                         const QString &requestId)
    : KavroClientSOAPMessage("CreateRovecFileGroup",
                             {{"RovecId", rovecId},
                              {"SubSystemName", subsystem},
                              {"RecordId", recordId},
                              {"FileGroupVersion", version},
                              {"Detail", detail},
                              {"Comment", comment},
                              {"FileType", number(fileType)},
                              {"TeamMembership", team},
                              {"UserName", user},
                              {"Guid", guid},
                              {"Path", path}},
                             requestId)
{
}

DeleteFileGroupMessage::DeleteFileGroupMessage(const QString &guid, bool shallow, const QString &requestId)
    : KavroClientSOAPMessage("DeleteFileGroup", {{"Guid", guid}, {"ShallowDelete", booleanText(shallow)}}, requestId)
{
}

DeleteFileMessage::DeleteFileMessage(const QString &guid, quint32 fileId, const QString &requestId)
    : KavroClientSOAPMessage("DeleteFile", {{"Guid", guid}, {"FileId", number(fileId)}}, requestId)
{
}

ExportArchiveMessage::ExportArchiveMessage(const QString &path, const QStringList &guids, const QString &requestId)
    : KavroClientSOAPMessage("ExportArchive", QList<SoapField>{{"Path", path}} + repeated("Guid", guids, sameText),
                             requestId)
{
}

ImportArchiveMessage::ImportArchiveMessage(const QStringList &paths, const QString &requestId)
    : KavroClientSOAPMessage("ImportArchive", repeated("Path", paths, sameText), requestId)
{
}

MoveToNasMessage::MoveToNasMessage(const QString &guid, const QString &user, const QString &requestId)
    : KavroClientSOAPMessage("MoveToNas", {{"Guid", guid}, {"UserName", user}}, requestId)
{
}

QueryFileGroupsMessage::QueryFileGroupsMessage(const FileQuery &query, const QString &application, const QString &user,
                                               const QString &requestId)
    : KavroClientSOAPMessage("QueryFileGroups", queryFields(query, application, user), requestId)
{
}

RegisterConverterMessage::RegisterConverterMessage(const QString &converterId, const QVector<FileType> &fileTypes,
                                                   const QString &requestId)
    : KavroClientSOAPMessage(
        "RegisterConverter",
        QList<SoapField>{{"ConverterId", converterId}} + repeated("FileType", fileTypes, fileTypeText), requestId)
{
}

RequestFileMessage::RequestFileMessage(const QString &guid, quint32 fileId, bool writeLock, const QString &user,
                                       const QString &requestId)
    : KavroClientSOAPMessage(
        "RequestFile",
        {{"Guid", guid}, {"FileId", number(fileId)}, {"WriteLock", booleanText(writeLock)}, {"UserName", user}},
        requestId)
{
}

} // namespace Kavro
