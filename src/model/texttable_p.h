// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_TEXTTABLE_P_H
#define KAVRO_TEXTTABLE_P_H

#include "translations_p.h"

#include <QString>

#include <iterator>

namespace Kavro
{

/*!
 * The translated text of \a value in a table of source texts indexed by
 * value, or \a invalidText when the value lies outside the table.
 */
template<std::size_t N>
QString textFromTable(const char *const (&table)[N], qint32 value, const char *invalidText)
{
    const bool known = value >= 0 && static_cast<std::size_t>(value) < N;
    return Translations::translate(known ? table[value] : invalidText);
}

} // namespace Kavro

#endif
