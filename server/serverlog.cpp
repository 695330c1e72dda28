// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "serverlog.h"

#include <cstdio>

namespace Kavro::Server
{

QString escapedForLog(const QString &text)
{
    QString escaped;
    escaped.reserve(text.size());
    for (const QChar character : text) {
        const char16_t code = character.unicode();
        if (code == u'\\')
            escaped += QLatin1String("\\\\");
        else if (code == u'\n')
            escaped += QLatin1String("\\n");
        else if (code == u'\r')
            escaped += QLatin1String("\\r");
        else if (code == u'\t')
            escaped += QLatin1String("\\t");
        else if (code < 0x20 || code == 0x7f || (code >= 0x80 && code < 0xa0) || code == 0x2028 || code == 0x2029)
            escaped += QStringLiteral("\\x%1").arg(uint(code), 2, 16, QLatin1Char('0'));
        else
            escaped += character;
    }
    return escaped;
}

void logLine(const QString &line)
{
    // One call per line: lines written from several threads do not interleave.
    std::fprintf(stderr, "kavro-server: %s\n", escapedForLog(line).toUtf8().constData());
    std::fflush(stderr);
}

} // namespace Kavro::Server
