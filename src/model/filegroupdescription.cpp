// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
// File-group description files (".fgdesc"): the XML element form of one record.
#include "filegroupdata_p.h"
#include "trace_p.h"

#include <QDir>
#include <QFile>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>

namespace Kavro
{

namespace
{
const QLatin1String s_extension(".fgdesc");
}

QString FileGroupData::toXmlFileForExport(const QString &directory) const
{
    QByteArray document;
    {
        QXmlStreamWriter writer(&document);
        ToHtml(writer, true, true);
    }

    // The first candidate has a separator between directory and name; the
    // numbered ones are joined to the directory without one.
    const QString baseName = d->name + QLatin1Char('_') + d->guid;
    QString name = baseName;
    QString path = directory + QDir::separator() + name + s_extension;
    for (int counter = 1; QFile::exists(path); ++counter) {
        name = baseName + QLatin1Char('_') + QString::number(counter);
        path = directory + name + s_extension;
    }

    QFile file(path);
    if (file.open(QIODevice::WriteOnly))
        file.write(document);
    else
        KAVRO_TRACE_WARNING(
            QStringLiteral("Could not create Xml file for export of filegroup %1 with guid %2").arg(d->name, d->guid));
    return name + s_extension;
}

bool FileGroupData::fromXmlforImport(const QString &path)
{
    QFile file(path);
    if (!file.exists())
        return false;
    if (!file.open(QIODevice::ReadOnly)) {
        KAVRO_TRACE_WARNING(QStringLiteral("Could not open filegroup file %1 for import").arg(path));
        return false;
    }
    QXmlStreamReader reader(file.readAll());
    return FromHtml(reader) == NoError;
}

} // namespace Kavro
