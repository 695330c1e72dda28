// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_SERVER_SERVERLIMITS_H
#define KAVRO_SERVER_SERVERLIMITS_H

#include <QtGlobal>

namespace Kavro::Server
{

/*!
 * \brief What one client may cost the server: every figure bounds a
 * connection, or all of them together, so that no client stalls the others.
 */
struct ServerLimits {
    //! The largest request, packed or unpacked; a larger one closes its connection.
    qint64 maxRequestSize = 4 << 20;
    //! The most characters of one value (a name, a comment, a path).
    int maxFieldLength = 65536;
    //! The most entries of one list or repeated element (guids, paths, file types).
    int maxListEntries = 10000;
    //! Unfinished and unanswered requests of all connections together, beyond each one's small share.
    qint64 requestMemory = 64 << 20;
    //! What each connection may hold of its requests outside requestMemory.
    qint64 freeShare = 64 << 10;
    //! A connection's replies not yet sent, beyond which its next request waits.
    qint64 maxUnsentReplies = 8 << 20;
    int maxConnections = 1000;
    //! A connection that has sent no whole request by then is closed.
    int idleTimeoutMs = 60000;
    //! A request that has begun to arrive must be whole by then, or its connection is closed.
    int requestTimeoutMs = 60000;
};

} // namespace Kavro::Server

#endif
