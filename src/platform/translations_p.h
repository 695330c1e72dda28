// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_TRANSLATIONS_P_H
#define KAVRO_TRANSLATIONS_P_H

#include <QLocale>
#include <QString>

namespace Kavro
{

/*!
 * \brief The library's translation catalogue "kavroclient".
 *
 * The catalogues are built into the library. At application start-up the
 * catalogue of the system locale is installed on the application; it is
 * removed again when the application object goes away.
 */
namespace Translations
{
//! Installs the catalogue for \a locale, replacing one installed before. False when there is none.
bool install(const QLocale &locale);
//! Removes the installed catalogue; display texts are English again.
void remove();
//! Translates \a sourceText, marked with QT_TRANSLATE_NOOP("QObject", ...), when asked for.
QString translate(const char *sourceText);
} // namespace Translations

} // namespace Kavro

#endif
