// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "dialogsettings_p.h"

#include "queryfields_p.h"
#include "settings_p.h"

#include <QDateTime>
#include <QStringList>
#include <QWidget>

namespace Kavro
{
namespace DialogSettings
{

namespace
{
const QString s_section = QStringLiteral("Dialogs");

QString geometryKey(const QWidget *dialog)
{
    return QString::fromLatin1(dialog->metaObject()->className()).section(QStringLiteral("::"), -1)
        + QStringLiteral("/Geometry");
}

QString queryKey(const char *name)
{
    return QStringLiteral("LastQuery/") + QLatin1String(name);
}

// Bounds are kept in UTC with milliseconds; an open bound is an empty text.
QString timeText(const QDateTime &time)
{
    return time.isValid() ? time.toUTC().toString(Qt::ISODateWithMs) : QString();
}

QDateTime timeOfText(const QString &text)
{
    QDateTime time = QDateTime::fromString(text, Qt::ISODateWithMs);
    return time.isValid() ? time.toUTC() : QDateTime();
}
} // namespace

void restoreGeometry(QWidget *dialog)
{
    const QByteArray geometry = value(geometryKey(dialog));
    if (!geometry.isEmpty())
        dialog->restoreGeometry(geometry);
}

void saveGeometry(const QWidget *dialog)
{
    setValue(geometryKey(dialog), dialog->saveGeometry());
}

QByteArray value(const QString &key)
{
    const Settings settings(s_section);
    return QByteArray::fromBase64(settings.stringValue(key, QString()).toLatin1());
}

void setValue(const QString &key, const QByteArray &value)
{
    Settings settings(s_section);
    settings.setStringValue(key, QString::fromLatin1(value.toBase64()));
}

FileQuery lastQuery()
{
    const Settings settings(s_section);
    FileQuery query;
    for (const QueryTextField &field : queryTextFields())
        (query.*field.set)(settings.stringValue(queryKey(field.key), QString()));
    for (const QueryTimeField &field : queryTimeFields()) {
        const QString key = queryKey(field.key);
        (query.*field.setMin)(timeOfText(settings.stringValue(key + QStringLiteral("Min"), QString())));
        (query.*field.setMax)(timeOfText(settings.stringValue(key + QStringLiteral("Max"), QString())));
    }
    const QStringList types =
        settings.stringValue(queryKey("FileTypes"), QString()).split(QLatin1Char(','), Qt::SkipEmptyParts);
    for (const QString &type : types)
        query.AddFileType(static_cast<FileType>(type.toInt()));
    query.SetLocationState(static_cast<LocationState>(settings.intValue(queryKey("LocationState"), LocationUndefined)));
    query.SetLockState(static_cast<LockState>(settings.intValue(queryKey("LockState"), LockUndefined)));
    return query;
}

void setLastQuery(const FileQuery &query)
{
    Settings settings(s_section);
    for (const QueryTextField &field : queryTextFields())
        settings.setStringValue(queryKey(field.key), (query.*field.get)());
    for (const QueryTimeField &field : queryTimeFields()) {
        const QString key = queryKey(field.key);
        settings.setStringValue(key + QStringLiteral("Min"), timeText((query.*field.getMin)()));
        settings.setStringValue(key + QStringLiteral("Max"), timeText((query.*field.getMax)()));
    }
    QStringList types;
    for (int i = 0; i < query.GetFileTypeListSize(); ++i)
        types.append(QString::number(query.GetFileTypeAt(i)));
    settings.setStringValue(queryKey("FileTypes"), types.join(QLatin1Char(',')));
    settings.setIntValue(queryKey("LocationState"), query.GetLocationState());
    settings.setIntValue(queryKey("LockState"), query.GetLockState());
}

} // namespace DialogSettings
} // namespace Kavro
