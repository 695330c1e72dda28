// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_ERRORHANDLER_P_H
#define KAVRO_ERRORHANDLER_P_H

#include <kavro/kavro_export.h>

#include <QtGlobal>

#include <atomic>

namespace Kavro
{

/*!
 * \brief Reports which trace lines are written.
 *
 * The mask comes from the environment variable KAVRO_TRACE_MASK (decimal or
 * 0x-hexadecimal) where set, else from "TraceMask" of the section "KAVRO",
 * else it is TraceWarning.
 *
 * Exported for Kavro::Widgets, whose trace lines follow the same mask; the
 * header is not installed.
 */
class KAVRO_EXPORT ErrorHandler
{
public:
    enum TraceFlag {
        TraceWarning = 0x20, //!< warnings and errors
        TraceInfo = 0x40, //!< Start/End lines and other information
    };

    static ErrorHandler &instance();

    int traceMask() const;
    bool isTraceEnabled(int flag) const;
    //! Replaces the mask for the rest of the process, or until reload().
    void setTraceMask(int mask);
    //! Reads the mask again from the environment and the settings.
    void reload();

private:
    ErrorHandler();
    Q_DISABLE_COPY_MOVE(ErrorHandler)

    std::atomic<int> m_mask;
};

} // namespace Kavro

#endif
