// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_SERVER_SERVERLOG_H
#define KAVRO_SERVER_SERVERLOG_H

#include <QString>

namespace Kavro::Server
{

/*!
 * Writes one line of the server's log on stderr, from any thread. Control
 * characters are written escaped ("\n", "\x1b"), so that text a client sent
 * can never start a line of its own.
 */
void logLine(const QString &line);

//! \a text with its control characters escaped as logLine() writes them.
QString escapedForLog(const QString &text);

} // namespace Kavro::Server

#endif
