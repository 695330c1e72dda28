// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include <kavro/createpath.h>

#include <QDir>

namespace Kavro
{

QString CreatePath(const QString &base, const QString &guid, const QString &name, const QDateTime &when)
{
    // One substitution after the other: a marker inside an earlier part is
    // filled by a later one.
    const QString layout = QStringLiteral("%1/%2/%3/%4/")
                               .arg(base)
                               .arg(when.toString(QStringLiteral("yyyy/MM/dd/hh")))
                               .arg(guid)
                               .arg(name);
    const QString absolute = QDir(QDir::cleanPath(layout)).absolutePath();
    return QDir::toNativeSeparators(absolute + QLatin1Char('/'));
}

QString CreatePath(const QString &base, const QString &guid, const QString &name)
{
    return CreatePath(base, guid, name, QDateTime::currentDateTimeUtc());
}

} // namespace Kavro
