// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "filegroupdata_p.h"

#include <kavro/filetypemanager.h>
#include <kavro/locationstatestring.h>

#include "texttable_p.h"
#include "trace_p.h"

#include <QCoreApplication>

namespace Kavro
{

namespace
{
const char *const s_headers[] = {
    QT_TRANSLATE_NOOP("QObject", "File group name"),
    QT_TRANSLATE_NOOP("QObject", "File type"),
    QT_TRANSLATE_NOOP("QObject", "Location state"),
    QT_TRANSLATE_NOOP("QObject", "Backup time"),
    QT_TRANSLATE_NOOP("QObject", "Creation time"),
    QT_TRANSLATE_NOOP("QObject", "Modification time"),
    QT_TRANSLATE_NOOP("QObject", "Life cycle"),
    QT_TRANSLATE_NOOP("QObject", "Comment"),
    QT_TRANSLATE_NOOP("QObject", "Creator"),
    QT_TRANSLATE_NOOP("QObject", "Detail"),
    QT_TRANSLATE_NOOP("QObject", "Team"),
    QT_TRANSLATE_NOOP("QObject", "Version"),
    QT_TRANSLATE_NOOP("QObject", "Reserved storage"),
    QT_TRANSLATE_NOOP("QObject", "Reference count"),
    QT_TRANSLATE_NOOP("QObject", "Lock count"),
    QT_TRANSLATE_NOOP("QObject", "Guid"),
};

// Positions of the list form, in the order of the headers.
enum Column {
    ColumnName,
    ColumnFileType,
    ColumnLocationState,
    ColumnBackupTime,
    ColumnCreationTime,
    ColumnModificationTime,
    ColumnLifeCycle,
    ColumnComment,
    ColumnCreator,
    ColumnDetail,
    ColumnTeam,
    ColumnVersion,
    ColumnReservedStorage,
    ColumnReferenceCount,
    ColumnLockCount,
    ColumnGuid,
    ColumnCount
};
static_assert(std::size(s_headers) == ColumnCount, "one header per column");

QString localTimeText(const QDateTime &time)
{
    return time.toLocalTime().toString(recordTimeFormat());
}

QDateTime fromLocalTimeText(const QString &text)
{
    const QDateTime local = QDateTime::fromString(text, recordTimeFormat());
    return local.isValid() ? local.toUTC() : QDateTime();
}

// The value whose display text is \a text, searching 0 to \a last; -1 when none has it.
template<typename Enum>
int valueOfText(const QString &text, int last, QString (*textOf)(Enum))
{
    for (int value = 0; value <= last; ++value) {
        if (textOf(static_cast<Enum>(value)) == text)
            return value;
    }
    return -1;
}

void registerMetaTypes()
{
    qRegisterMetaType<FileGroupData>("Kavro::FileGroupData");
    qRegisterMetaType<FileType>("FileType");
}
} // namespace

bool FileGroupDataPrivate::operator==(const FileGroupDataPrivate &other) const
{
    return guid == other.guid && name == other.name && fileType == other.fileType
        && locationState == other.locationState && backupTime == other.backupTime && creationTime == other.creationTime
        && modificationTime == other.modificationTime && lifeCycle == other.lifeCycle && comment == other.comment
        && creator == other.creator && detail == other.detail && path == other.path && team == other.team
        && version == other.version && reservedStorage == other.reservedStorage
        && referenceCount == other.referenceCount && lockCount == other.lockCount && fileList == other.fileList;
}

FileGroupData::FileGroupData()
    : d(new FileGroupDataPrivate)
{
}

FileGroupData::FileGroupData(const FileGroupData &other) = default;
FileGroupData::FileGroupData(FileGroupData &&other) noexcept = default;
FileGroupData &FileGroupData::operator=(const FileGroupData &other) = default;
FileGroupData &FileGroupData::operator=(FileGroupData &&other) noexcept = default;
FileGroupData::~FileGroupData() = default;

bool FileGroupData::operator==(const FileGroupData &other) const
{
    return d == other.d || *d == *other.d;
}

// clang-format off
QString FileGroupData::getGuid() const { return d->guid; }
void FileGroupData::setGuid(const QString &guid) { d->guid = guid; }
QString FileGroupData::getName() const { return d->name; }
void FileGroupData::setName(const QString &name) { d->name = name; }
FileType FileGroupData::getFileType() const { return d->fileType; }
void FileGroupData::setFileType(FileType type) { d->fileType = type; }
LocationState FileGroupData::getLocationState() const { return d->locationState; }
void FileGroupData::setLocationState(LocationState state) { d->locationState = state; }
QDateTime FileGroupData::getBackupTime() const { return d->backupTime; }
void FileGroupData::setBackupTime(const QDateTime &time) { d->backupTime = time; }
QDateTime FileGroupData::getCreationTime() const { return d->creationTime; }
void FileGroupData::setCreationTime(const QDateTime &time) { d->creationTime = time; }
QDateTime FileGroupData::getModificationTime() const { return d->modificationTime; }
void FileGroupData::setModificationTime(const QDateTime &time) { d->modificationTime = time; }
QDateTime FileGroupData::getLifeCycle() const { return d->lifeCycle; }
void FileGroupData::setLifeCycle(const QDateTime &time) { d->lifeCycle = time; }
QString FileGroupData::getComment() const { return d->comment; }
void FileGroupData::setComment(const QString &comment) { d->comment = comment; }
QString FileGroupData::getCreator() const { return d->creator; }
void FileGroupData::setCreator(const QString &creator) { d->creator = creator; }
QString FileGroupData::getDetail() const { return d->detail; }
void FileGroupData::setDetail(const QString &detail) { d->detail = detail; }
QString FileGroupData::getPath() const { return d->path; }
void FileGroupData::setPath(const QString &path) { d->path = path; }
QString FileGroupData::getTeam() const { return d->team; }
void FileGroupData::setTeam(const QString &team) { d->team = team; }
QString FileGroupData::getVersion() const { return d->version; }
void FileGroupData::setVersion(const QString &version) { d->version = version; }
qint64 FileGroupData::getReservedStorage() const { return d->reservedStorage; }
void FileGroupData::setReservedStorage(qint64 reservedStorage) { d->reservedStorage = reservedStorage; }
int FileGroupData::getReferenceCount() const { return d->referenceCount; }
void FileGroupData::setReferenceCount(int referenceCount) { d->referenceCount = referenceCount; }
int FileGroupData::getLockCount() const { return d->lockCount; }
void FileGroupData::setLockCount(int lockCount) { d->lockCount = lockCount; }
// clang-format on

void FileGroupData::addFile(const QString &name, quint32 id)
{
    d->fileList.append(qMakePair(name, id));
}

const FileGroupData::FileList &FileGroupData::getFileList() const
{
    return d->fileList;
}

void FileGroupData::setFileList(const FileList &files)
{
    d->fileList = files;
}

void FileGroupData::GetHeaders(QStringList &headers)
{
    for (const char *header : s_headers)
        headers.append(Translations::translate(header));
}

void FileGroupData::ToStringList(QStringList &values) const
{
    values << d->name << FileTypeManager::GetText(d->fileType) << LocationStateString::GetText(d->locationState)
           << localTimeText(d->backupTime) << localTimeText(d->creationTime) << localTimeText(d->modificationTime)
           << localTimeText(d->lifeCycle) << d->comment << d->creator << d->detail << d->team << d->version
           << QString::number(d->reservedStorage) << QString::number(d->referenceCount) << QString::number(d->lockCount)
           << d->guid;
}

FileGroupData FileGroupData::fromStringList(const QStringList &values)
{
    FileGroupData record;
    FileGroupDataPrivate &data = *record.d;
    data.name = values.value(ColumnName);

    const QString typeText = values.value(ColumnFileType);
    const int type = valueOfText(typeText, FileTypeTechnicalParameters, &FileTypeManager::GetText);
    if (type >= 0)
        data.fileType = static_cast<FileType>(type);
    else
        KAVRO_TRACE_WARNING(
            QStringLiteral("FileGroupData::fromStringList: Unkown file type \"%1\" read").arg(typeText));

    const QString locationText = values.value(ColumnLocationState);
    const int location = valueOfText(locationText, LocationUnknownFileGroup, &LocationStateString::GetText);
    if (location >= 0)
        data.locationState = static_cast<LocationState>(location);
    else
        KAVRO_TRACE_WARNING(
            QStringLiteral("FileGroupData::fromStringList: Unkown location state \"%1\" read").arg(locationText));

    data.backupTime = fromLocalTimeText(values.value(ColumnBackupTime));
    data.creationTime = fromLocalTimeText(values.value(ColumnCreationTime));
    data.modificationTime = fromLocalTimeText(values.value(ColumnModificationTime));
    data.lifeCycle = fromLocalTimeText(values.value(ColumnLifeCycle));
    data.comment = values.value(ColumnComment);
    data.creator = values.value(ColumnCreator);
    data.detail = values.value(ColumnDetail);
    data.team = values.value(ColumnTeam);
    data.version = values.value(ColumnVersion);
    data.reservedStorage = values.value(ColumnReservedStorage).toLongLong();
    data.referenceCount = values.value(ColumnReferenceCount).toInt();
    data.lockCount = values.value(ColumnLockCount).toInt();
    data.guid = values.value(ColumnGuid);
    return record;
}

} // namespace Kavro

// The record and the file type cross threads in queued signals.
static void kavroRegisterModelMetaTypes()
{
    Kavro::registerMetaTypes();
}
Q_COREAPP_STARTUP_FUNCTION(kavroRegisterModelMetaTypes)
