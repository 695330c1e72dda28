// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "errorhandler_p.h"

#include "settings_p.h"

namespace Kavro
{

namespace
{
// Reads "64" or "0x40"; false when the text is neither.
bool parseMask(const QString &text, int *mask)
{
    const QString trimmed = text.trimmed();
    const bool hex = trimmed.startsWith(QLatin1String("0x"), Qt::CaseInsensitive);
    bool ok = false;
    const int value = hex ? trimmed.mid(2).toInt(&ok, 16) : trimmed.toInt(&ok, 10);
    if (ok)
        *mask = value;
    return ok;
}

int configuredMask()
{
    int mask = 0;
    if (parseMask(qEnvironmentVariable("KAVRO_TRACE_MASK"), &mask))
        return mask;
    const Settings settings(Settings::kavroSection());
    if (parseMask(settings.stringValue(QStringLiteral("TraceMask"), QString()), &mask))
        return mask;
    return ErrorHandler::TraceWarning;
}
} // namespace

ErrorHandler::ErrorHandler()
    : m_mask(configuredMask())
{
}

ErrorHandler &ErrorHandler::instance()
{
    static ErrorHandler handler;
    return handler;
}

int ErrorHandler::traceMask() const
{
    return m_mask.load(std::memory_order_relaxed);
}

bool ErrorHandler::isTraceEnabled(int flag) const
{
    return (traceMask() & flag) != 0;
}

void ErrorHandler::setTraceMask(int mask)
{
    m_mask.store(mask, std::memory_order_relaxed);
}

void ErrorHandler::reload()
{
    setTraceMask(configuredMask());
}

} // namespace Kavro
