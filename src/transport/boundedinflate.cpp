// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "boundedinflate_p.h"

#include <zlib.h>

#include <algorithm>

namespace Kavro
{

namespace
{
constexpr int s_sizeHeaderLength = 4;
constexpr qint64 s_chunkSize = 64 * 1024;

// Frees the zlib stream on every way out.
struct InflateStream {
    z_stream stream{};
    bool initialised = false;
    ~InflateStream()
    {
        if (initialised)
            inflateEnd(&stream);
    }
};
} // namespace

InflateResult inflateBounded(const QByteArray &payload, qint64 maxSize, QByteArray *output)
{
    output->clear();
    if (payload.size() <= s_sizeHeaderLength)
        return InflateResult::NotCompressed;

    InflateStream zlib;
    zlib.stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(payload.constData() + s_sizeHeaderLength));
    zlib.stream.avail_in = static_cast<uInt>(payload.size() - s_sizeHeaderLength);
    if (inflateInit(&zlib.stream) != Z_OK)
        return InflateResult::NotCompressed;
    zlib.initialised = true;

    // The claimed size is only a hint for the first allocation.
    const auto *header = reinterpret_cast<const uchar *>(payload.constData());
    const qint64 claimed = (qint64(header[0]) << 24) | (header[1] << 16) | (header[2] << 8) | header[3];
    output->reserve(static_cast<qsizetype>(std::clamp<qint64>(claimed, 0, std::min(maxSize, s_chunkSize * 16))));

    int status = Z_OK;
    while (status == Z_OK) {
        const qint64 produced = output->size();
        if (produced >= maxSize + 1) {
            output->clear();
            return InflateResult::TooLarge;
        }
        const qint64 room = std::min(s_chunkSize, maxSize + 1 - produced);
        output->resize(static_cast<qsizetype>(produced + room));
        zlib.stream.next_out = reinterpret_cast<Bytef *>(output->data() + produced);
        zlib.stream.avail_out = static_cast<uInt>(room);
        status = inflate(&zlib.stream, Z_NO_FLUSH);
        output->resize(static_cast<qsizetype>(produced + room - zlib.stream.avail_out));
    }
    // Z_BUF_ERROR here means the input ended before the stream did.
    if (status != Z_STREAM_END || output->isEmpty()) {
        output->clear();
        return InflateResult::NotCompressed;
    }
    if (output->size() > maxSize) {
        output->clear();
        return InflateResult::TooLarge;
    }
    return InflateResult::Inflated;
}

} // namespace Kavro
