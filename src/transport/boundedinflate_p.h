// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_BOUNDEDINFLATE_P_H
#define KAVRO_BOUNDEDINFLATE_P_H

#include <QByteArray>

namespace Kavro
{

enum class InflateResult {
    Inflated, //!< the payload was compressed; the output holds it unpacked
    NotCompressed, //!< the payload is not in the compressed format (or unpacks to nothing)
    TooLarge, //!< unpacking would exceed the limit; the output is empty
};

/*!
 * Unpacks a payload in Qt's compressed format (a 4-byte big-endian size,
 * then a zlib stream) without trusting the size it claims: at most
 * \a maxSize bytes are ever produced.
 */
InflateResult inflateBounded(const QByteArray &payload, qint64 maxSize, QByteArray *output);

} // namespace Kavro

#endif
