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

QStringList fileTypeTexts(const QVector<FileType> &types)
{
    QStringList texts;
    for (FileType type : types)
        texts << number(type);
    return texts;
}

struct Range {
    const char *name;
    QDateTime (FileQuery::*minimum)() const;
    QDateTime (FileQuery::*maximum)() const;
    void (FileQuery::*setMinimum)(const QDateTime &);
    void (FileQuery::*setMaximum)(const QDateTime &);
};

const Range ranges[] = {
    {"BackupTime", &FileQuery::GetBackupTimeMin, &FileQuery::GetBackupTimeMax, &FileQuery::SetBackupTimeMin,
     &FileQuery::SetBackupTimeMax},
    {"CreationTime", &FileQuery::GetCreationTimeMin, &FileQuery::GetCreationTimeMax, &FileQuery::SetCreationTimeMin,
     &FileQuery::SetCreationTimeMax},
    {"LifeCycle", &FileQuery::GetLifeCycleTimeMin, &FileQuery::GetLifeCycleTimeMax, &FileQuery::SetLifeCycleTimeMin,
     &FileQuery::SetLifeCycleTimeMax},
    {"ModificationTime", &FileQuery::GetModificationTimeMin, &FileQuery::GetModificationTimeMax,
     &FileQuery::SetModificationTimeMin, &FileQuery::SetModificationTimeMax},
};

struct SearchText {
    const char *name;
    QString (FileQuery::*get)() const;
    void (FileQuery::*set)(const QString &);
};

const SearchText searchTexts[] = {
    {"CommentSearchText", &FileQuery::GetCommentSearchText, &FileQuery::SetCommentSearchText},
    {"DetailSearchText", &FileQuery::GetDetailSearchText, &FileQuery::SetDetailSearchText},
    {"FileGroupNameSearchText", &FileQuery::GetFileGroupSearchText, &FileQuery::SetFileGroupSearchText},
    {"LockUser", &FileQuery::GetLockUser, &FileQuery::SetLockUser},
    {"ReferencingApplication", &FileQuery::GetReferencingApplication, &FileQuery::SetReferencingApplication},
    {"TeamSearchText", &FileQuery::GetTeamMembershipSearchText, &FileQuery::SetTeamMembershipSearchText},
    {"VersionSearchText", &FileQuery::GetVersionSearchText, &FileQuery::SetVersionSearchText},
};
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
                              {"LifeCycle", soapTimeText(lifeCycle)},
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
    : KavroClientSOAPMessage("ExportArchive", {{"Path", path}}, requestId)
{
    m_message.lists.insert(QStringLiteral("Guid"), guids);
}

ImportArchiveMessage::ImportArchiveMessage(const QStringList &paths, const QString &requestId)
    : KavroClientSOAPMessage("ImportArchive", {}, requestId)
{
    m_message.lists.insert(QStringLiteral("Path"), paths);
}

MoveToNasMessage::MoveToNasMessage(const QString &guid, const QString &user, const QString &requestId)
    : KavroClientSOAPMessage("MoveToNas", {{"Guid", guid}, {"UserName", user}}, requestId)
{
}

QueryFileGroupsMessage::QueryFileGroupsMessage(const FileQuery &query, const QString &application, const QString &user,
                                               const QString &requestId)
    : KavroClientSOAPMessage("QueryFileGroups",
                             {{"Application", application},
                              {"LocationState", number(query.GetLocationState())},
                              {"LockState", number(query.GetLockState())},
                              {"User", user}},
                             requestId)
{
    for (const SearchText &text : searchTexts)
        m_message.values.insert(QLatin1String(text.name), (query.*text.get)());
    QVector<FileType> types;
    for (int i = 0; i < query.GetFileTypeListSize(); ++i)
        types.append(query.GetFileTypeAt(i));
    m_message.lists.insert(QStringLiteral("FileTypeList"), fileTypeTexts(types));
    for (const Range &range : ranges)
        m_message.lists.insert(QLatin1String(range.name),
                               {soapTimeText((query.*range.minimum)()), soapTimeText((query.*range.maximum)())});
}

FileQuery QueryFileGroupsMessage::queryOf(const SoapMessage &request)
{
    FileQuery query;
    for (const SearchText &text : searchTexts)
        (query.*text.set)(request.text(QLatin1String(text.name)));
    for (const QString &type : request.lists.value(QStringLiteral("FileTypeList")))
        query.AddFileType(static_cast<FileType>(type.toInt()));
    query.SetLocationState(static_cast<LocationState>(request.number(QStringLiteral("LocationState"))));
    query.SetLockState(static_cast<LockState>(request.number(QStringLiteral("LockState"))));
    for (const Range &range : ranges) {
        const QStringList bounds = request.lists.value(QLatin1String(range.name));
        (query.*range.setMinimum)(soapTime(bounds.value(0)));
        (query.*range.setMaximum)(soapTime(bounds.value(1)));
    }
    return query;
}

RegisterConverterMessage::RegisterConverterMessage(const QString &converterId, const QVector<FileType> &fileTypes,
                                                   const QString &requestId)
    : KavroClientSOAPMessage("RegisterConverter", {{"ConverterId", converterId}}, requestId)
{
    m_message.lists.insert(QStringLiteral("FileType"), fileTypeTexts(fileTypes));
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
