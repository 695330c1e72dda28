// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_MESSAGES_P_H
#define KAVRO_MESSAGES_P_H

#include "kavroclientsoapmessage_p.h"

#include <kavro/kavrotypes.h>

#include <QDateTime>
#include <QStringList>
#include <QVector>

namespace Kavro
{

class FileQuery;

// The request messages, one per command. Each constructor takes the
// command's fields in the order they are written, then an optional request id.

namespace Command
{
inline constexpr char AddReference[] = "AddReference";
inline constexpr char CheckFileGroupExists[] = "CheckFileGroupExists";
inline constexpr char GetApplicationList[] = "GetApplicationList";
inline constexpr char GetBasePath[] = "GetBasePath";
inline constexpr char GetFileList[] = "GetFileList";
inline constexpr char GetUserList[] = "GetUserList";
inline constexpr char QueryLocationStateProgress[] = "QueryLocationStateProgress";
inline constexpr char QueryMetaData[] = "QueryMetaData";
inline constexpr char RemoveAllReferences[] = "RemoveAllReferences";
inline constexpr char RemoveReference[] = "RemoveReference";
} // namespace Command

//! A command without fields.
template<const char *Name>
class EmptyMessage : public KavroClientSOAPMessage
{
public:
    explicit EmptyMessage(const QString &requestId = QString())
        : KavroClientSOAPMessage(Name, {}, requestId)
    {
    }
};

//! A command whose only field is the file group's guid.
template<const char *Name>
class GuidMessage : public KavroClientSOAPMessage
{
public:
    explicit GuidMessage(const QString &guid, const QString &requestId = QString())
        : KavroClientSOAPMessage(Name, {{"Guid", guid}}, requestId)
    {
    }
};

//! A command on a file group for an application.
template<const char *Name>
class GuidApplicationMessage : public KavroClientSOAPMessage
{
public:
    GuidApplicationMessage(const QString &guid, const QString &application, const QString &requestId = QString())
        : KavroClientSOAPMessage(Name, {{"Guid", guid}, {"Application", application}}, requestId)
    {
    }
};

using GetApplicationListMessage = EmptyMessage<Command::GetApplicationList>;
using GetBasePathMessage = EmptyMessage<Command::GetBasePath>;
using GetUserListMessage = EmptyMessage<Command::GetUserList>;
using CheckFileGroupExistsMessage = GuidMessage<Command::CheckFileGroupExists>;
using GetFileListMessage = GuidMessage<Command::GetFileList>;
using QueryLocationStateProgressMessage = GuidMessage<Command::QueryLocationStateProgress>;
using AddReferenceMessage = GuidApplicationMessage<Command::AddReference>;
using QueryMetaDataMessage = GuidApplicationMessage<Command::QueryMetaData>;
using RemoveAllReferencesMessage = GuidApplicationMessage<Command::RemoveAllReferences>;
using RemoveReferenceMessage = GuidApplicationMessage<Command::RemoveReference>;

class AddFileMessage : public KavroClientSOAPMessage
{
public:
    AddFileMessage(const QString &guid, const QString &fileName, quint32 fileId, const QString &requestId = QString());
};

class CloseFileMessage : public KavroClientSOAPMessage
{
public:
    CloseFileMessage(const QString &guid, quint32 fileId, const QString &user, const QString &requestId = QString());
};

class ConvertFileGroupReplyMessage : public KavroClientSOAPMessage
{
public:
    ConvertFileGroupReplyMessage(const QString &guid, int error, const QString &errorString,
                                 const QString &requestId = QString());
};

class CreateFileGroupMessage : public KavroClientSOAPMessage
{
public:
    CreateFileGroupMessage(const QString &comment, const QString &guid, const QString &detail, const QString &name,
                           FileType fileType, const QDateTime &lifeCycle, quint64 reservedStorage, const QString &team,
                           const QString &user, const QString &version, const QString &path,
                           const QString &requestId = QString());
};

class CreateRovecFileGroupMessage : public KavroClientSOAPMessage
{
public:
    CreateRovecFileGroupMessage(const QString &rovecId, const QString &subsystem, const QString &recordId,
                                const QString &version, const QString &detail, const QString &comment,
                                FileType fileType, const QString &team, const QString &user, const QString &guid,
                                const QString &path, const QString &requestId = QString());
};

class DeleteFileGroupMessage : public KavroClientSOAPMessage
{
public:
    DeleteFileGroupMessage(const QString &guid, bool shallow, const QString &requestId = QString());
};

class DeleteFileMessage : public KavroClientSOAPMessage
{
public:
    DeleteFileMessage(const QString &guid, quint32 fileId, const QString &requestId = QString());
};

class ExportArchiveMessage : public KavroClientSOAPMessage
{
public:
    ExportArchiveMessage(const QString &path, const QStringList &guids, const QString &requestId = QString());
};

class ImportArchiveMessage : public KavroClientSOAPMessage
{
public:
    explicit ImportArchiveMessage(const QStringList &paths, const QString &requestId = QString());
};

class MoveToNasMessage : public KavroClientSOAPMessage
{
public:
    MoveToNasMessage(const QString &guid, const QString &user, const QString &requestId = QString());
};

class QueryFileGroupsMessage : public KavroClientSOAPMessage
{
public:
    QueryFileGroupsMessage(const FileQuery &query, const QString &application, const QString &user,
                           const QString &requestId = QString());
    //! The criteria a "QueryFileGroups" request carries.
    static FileQuery queryOf(const SoapMessage &request);
};

class RegisterConverterMessage : public KavroClientSOAPMessage
{
public:
    RegisterConverterMessage(const QString &converterId, const QVector<FileType> &fileTypes,
                             const QString &requestId = QString());
};

class RequestFileMessage : public KavroClientSOAPMessage
{
public:
    RequestFileMessage(const QString &guid, quint32 fileId, bool writeLock, const QString &user,
                       const QString &requestId = QString());
};

} // namespace Kavro

#endif
