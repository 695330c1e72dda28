// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include <kavro/kavrotypes.h>

#include "texttable_p.h"

namespace Kavro
{

namespace
{
// Indexed by LockState.
const char *const s_lockTexts[] = {
    QT_TRANSLATE_NOOP("QObject", "Undefined"),
    QT_TRANSLATE_NOOP("QObject", "Free"),
    QT_TRANSLATE_NOOP("QObject", "Read"),
    QT_TRANSLATE_NOOP("QObject", "Write"),
};
static_assert(std::size(s_lockTexts) == LockWrite + 1, "one text per lock state");
} // namespace

QString GetLockStateText(LockState state)
{
    return textFromTable(s_lockTexts, state, QT_TRANSLATE_NOOP("QObject", "Invalid lock state"));
}

} // namespace Kavro
