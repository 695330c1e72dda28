// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_TRACE_P_H
#define KAVRO_TRACE_P_H

#include "errorhandler_p.h"

#include <QLoggingCategory>
#include <QString>

Q_DECLARE_LOGGING_CATEGORY(lcKavro)

namespace Kavro
{
//! Writes one trace line into the category "kavro": information at debug level, the rest as warnings.
KAVRO_EXPORT void writeTrace(int flag, const char *file, int line, const char *function, const QString &text);
} // namespace Kavro

/*!
 * Writes \a text as a trace line with its source file and line when \a flag
 * is in the trace mask. \a text is only evaluated when the line is written.
 */
#define KAVRO_TRACE(flag, text)                                                                                        \
    do {                                                                                                               \
        if (::Kavro::ErrorHandler::instance().isTraceEnabled(flag))                                                    \
            ::Kavro::writeTrace(flag, __FILE__, __LINE__, Q_FUNC_INFO, text);                                          \
    } while (false)

//! Start/End lines of operations and other information (flag 0x40).
#define KAVRO_TRACE_INFO(text) KAVRO_TRACE(::Kavro::ErrorHandler::TraceInfo, text)
//! Warnings and errors (flag 0x20).
#define KAVRO_TRACE_WARNING(text) KAVRO_TRACE(::Kavro::ErrorHandler::TraceWarning, text)

#endif
