// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_CREATEPATH_H
#define KAVRO_CREATEPATH_H

#include <kavro/kavro_export.h>

#include <QDateTime>
#include <QString>

namespace Kavro
{

/*!
 * \brief The storage directory of a new file group.
 *
 * Lays out "<base>/yyyy/MM/dd/hh/<guid>/<name>/": one directory per hour of
 * \a when (in its own time zone), then the guid, then the name. The path is
 * cleaned, made absolute against the current directory, and returned with
 * native separators and exactly one trailing separator. The four parts are
 * substituted one after the other, so a marker such as "%2" inside \a base
 * is replaced by the parts that follow it.
 */
KAVRO_EXPORT QString CreatePath(const QString &base, const QString &guid, const QString &name, const QDateTime &when);

//! CreatePath() for the current time in UTC.
KAVRO_EXPORT QString CreatePath(const QString &base, const QString &guid, const QString &name);

} // namespace Kavro

#endif
