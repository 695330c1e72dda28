// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include <kavro/filequery.h>

#include "timerange_p.h"

#include <QVector>

namespace Kavro
{

namespace
{
enum Range { BackupRange, CreationRange, LifeCycleRange, ModificationRange, RangeCount };

enum SearchText {
    CommentText,
    CreatorText,
    DetailText,
    FileGroupText,
    LockUserText,
    ReferencingApplicationText,
    TeamMembershipText,
    VersionText,
    SearchTextCount
};
} // namespace

class FileQueryPrivate
{
public:
    TimeRange ranges[RangeCount];
    QVector<FileType> fileTypes;
    LocationState locationState = LocationUndefined;
    LockState lockState = LockUndefined;
    QString texts[SearchTextCount];
};

FileQuery::FileQuery()
    : d(std::make_unique<FileQueryPrivate>())
{
    Reset();
}

FileQuery::FileQuery(const FileQuery &other)
    : d(std::make_unique<FileQueryPrivate>(*other.d))
{
}

FileQuery &FileQuery::operator=(const FileQuery &other)
{
    *d = *other.d;
    return *this;
}

FileQuery::~FileQuery() = default;

void FileQuery::Reset()
{
    *d = FileQueryPrivate();
    for (QString &text : d->texts)
        text = QLatin1String(""); // empty, not null
}

// clang-format off
void FileQuery::SetBackupTimeMin(const QDateTime &time) { d->ranges[BackupRange].minimum = time; }
void FileQuery::SetBackupTimeMax(const QDateTime &time) { d->ranges[BackupRange].maximum = time; }
QDateTime FileQuery::GetBackupTimeMin() const { return d->ranges[BackupRange].minimum; }
QDateTime FileQuery::GetBackupTimeMax() const { return d->ranges[BackupRange].maximum; }
bool FileQuery::IsBackupTimeInRange(const QDateTime &time) const { return d->ranges[BackupRange].contains(time); }

void FileQuery::SetCreationTimeMin(const QDateTime &time) { d->ranges[CreationRange].minimum = time; }
void FileQuery::SetCreationTimeMax(const QDateTime &time) { d->ranges[CreationRange].maximum = time; }
QDateTime FileQuery::GetCreationTimeMin() const { return d->ranges[CreationRange].minimum; }
QDateTime FileQuery::GetCreationTimeMax() const { return d->ranges[CreationRange].maximum; }
bool FileQuery::IsCreationTimeInRange(const QDateTime &time) const { return d->ranges[CreationRange].contains(time); }

void FileQuery::SetModificationTimeMin(const QDateTime &time) { d->ranges[ModificationRange].minimum = time; }
void FileQuery::SetModificationTimeMax(const QDateTime &time) { d->ranges[ModificationRange].maximum = time; }
QDateTime FileQuery::GetModificationTimeMin() const { return d->ranges[ModificationRange].minimum; }
QDateTime FileQuery::GetModificationTimeMax() const { return d->ranges[ModificationRange].maximum; }
bool FileQuery::IsModificationTimeInRange(const QDateTime &time) const { return d->ranges[ModificationRange].contains(time); }

void FileQuery::SetLifeCycleTimeMin(const QDateTime &time) { d->ranges[LifeCycleRange].minimum = time; }
void FileQuery::SetLifeCycleTimeMax(const QDateTime &time) { d->ranges[LifeCycleRange].maximum = time; }
QDateTime FileQuery::GetLifeCycleTimeMin() const { return d->ranges[LifeCycleRange].minimum; }
QDateTime FileQuery::GetLifeCycleTimeMax() const { return d->ranges[LifeCycleRange].maximum; }
bool FileQuery::IsLifeCycleInRange(const QDateTime &time) const { return d->ranges[LifeCycleRange].contains(time); }

void FileQuery::SetLocationState(LocationState state) { d->locationState = state; }
LocationState FileQuery::GetLocationState() const { return d->locationState; }
void FileQuery::SetLockState(LockState state) { d->lockState = state; }
LockState FileQuery::GetLockState() const { return d->lockState; }

void FileQuery::SetFileGroupSearchText(const QString &text) { d->texts[FileGroupText] = text; }
QString FileQuery::GetFileGroupSearchText() const { return d->texts[FileGroupText]; }
void FileQuery::SetCommentSearchText(const QString &text) { d->texts[CommentText] = text; }
QString FileQuery::GetCommentSearchText() const { return d->texts[CommentText]; }
void FileQuery::SetCreatorSearchText(const QString &text) { d->texts[CreatorText] = text; }
QString FileQuery::GetCreatorSearchText() const { return d->texts[CreatorText]; }
void FileQuery::SetDetailSearchText(const QString &text) { d->texts[DetailText] = text; }
QString FileQuery::GetDetailSearchText() const { return d->texts[DetailText]; }
void FileQuery::SetTeamMembershipSearchText(const QString &text) { d->texts[TeamMembershipText] = text; }
QString FileQuery::GetTeamMembershipSearchText() const { return d->texts[TeamMembershipText]; }
void FileQuery::SetVersionSearchText(const QString &text) { d->texts[VersionText] = text; }
QString FileQuery::GetVersionSearchText() const { return d->texts[VersionText]; }
void FileQuery::SetLockUser(const QString &user) { d->texts[LockUserText] = user; }
QString FileQuery::GetLockUser() const { return d->texts[LockUserText]; }
void FileQuery::SetReferencingApplication(const QString &application) { d->texts[ReferencingApplicationText] = application; }
QString FileQuery::GetReferencingApplication() const { return d->texts[ReferencingApplicationText]; }
// clang-format on

void FileQuery::AddFileType(FileType type)
{
    d->fileTypes.append(type);
}

void FileQuery::ClearFileTypeList()
{
    d->fileTypes.clear();
}

int FileQuery::GetFileTypeListSize() const
{
    return d->fileTypes.size();
}

FileType FileQuery::GetFileTypeAt(int index) const
{
    return d->fileTypes.value(index, FileTypeUnknown);
}

bool FileQuery::IsFileTypeListed(FileType type) const
{
    return d->fileTypes.contains(type);
}

QDateTime FileQuery::getValidDateTimeFromString(const QString &text)
{
    static const QString formats[] = {
        QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz"),
        QStringLiteral("yyyy-MM-ddThh:mm:ss.zzz"),
        QStringLiteral("yyyy-MM-dd hh:mm:ss"),
        QStringLiteral("yyyy-MM-ddThh:mm:ss"),
    };
    QDateTime parsed;
    for (const QString &format : formats) {
        parsed = QDateTime::fromString(text, format);
        if (parsed.isValid())
            break;
    }
    return parsed;
}

} // namespace Kavro
