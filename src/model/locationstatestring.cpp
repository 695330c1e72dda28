// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include <kavro/locationstatestring.h>

#include "texttable_p.h"

namespace Kavro
{

namespace
{
// Indexed by LocationState.
const char *const s_locationTexts[] = {
    QT_TRANSLATE_NOOP("QObject", "Undefined"),
    QT_TRANSLATE_NOOP("QObject", "Local"),
    QT_TRANSLATE_NOOP("QObject", "Central"),
    QT_TRANSLATE_NOOP("QObject", "Backup copy"),
    QT_TRANSLATE_NOOP("QObject", "Central not moved"),
    QT_TRANSLATE_NOOP("QObject", "Remote location"),
    QT_TRANSLATE_NOOP("QObject", "Deleted"),
    QT_TRANSLATE_NOOP("QObject", "Rovec"),
    QT_TRANSLATE_NOOP("QObject", "To be moved from Rovec"),
    QT_TRANSLATE_NOOP("QObject", "Central not converted"),
    QT_TRANSLATE_NOOP("QObject", "Remote not yet found"),
    QT_TRANSLATE_NOOP("QObject", "Remote not yet central"),
    QT_TRANSLATE_NOOP("QObject", "Remote but on Rovec"),
    QT_TRANSLATE_NOOP("QObject", "Unknown file group"),
};
static_assert(std::size(s_locationTexts) == LocationUnknownFileGroup + 1, "one text per location state");
} // namespace

QString LocationStateString::GetText(LocationState state)
{
    return textFromTable(s_locationTexts, state, QT_TRANSLATE_NOOP("QObject", "Invalid location state"));
}

} // namespace Kavro
