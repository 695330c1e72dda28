// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_DIALOGSETTINGS_P_H
#define KAVRO_DIALOGSETTINGS_P_H

#include <kavro/filequery.h>

#include <QByteArray>
#include <QString>

class QWidget;

namespace Kavro
{

/*!
 * \brief What the dialogs remember between runs, in the section "Dialogs" of the Kavro configuration file.
 *
 * Each dialog keeps its geometry under its class name; FileSelectDialog also
 * keeps the last query it ran and the state of its tree's header.
 */
namespace DialogSettings
{
//! Gives \a dialog the geometry it had when it was last closed, if any.
void restoreGeometry(QWidget *dialog);
void saveGeometry(const QWidget *dialog);

QByteArray value(const QString &key);
void setValue(const QString &key, const QByteArray &value);

FileQuery lastQuery();
void setLastQuery(const FileQuery &query);
} // namespace DialogSettings

} // namespace Kavro

#endif
