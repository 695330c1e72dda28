// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_FILEGROUPDATA_P_H
#define KAVRO_FILEGROUPDATA_P_H

#include <kavro/filegroupdata.h>

#include <QSharedData>

namespace Kavro
{

class FileGroupDataPrivate : public QSharedData
{
public:
    bool operator==(const FileGroupDataPrivate &other) const;

    QString guid;
    QString name;
    FileType fileType = FileTypeUnknown;
    LocationState locationState = LocationUndefined;
    QDateTime backupTime;
    QDateTime creationTime;
    QDateTime modificationTime;
    QDateTime lifeCycle;
    QString comment;
    QString creator;
    QString detail;
    QString path;
    QString team;
    QString version;
    qint64 reservedStorage = 0;
    int referenceCount = 0;
    int lockCount = 0;
    FileGroupData::FileList fileList;
};

//! The format of the record's times in its XML and list forms.
inline QString recordTimeFormat()
{
    return QStringLiteral("yyyy-MM-dd hh:mm:ss");
}

} // namespace Kavro

#endif
