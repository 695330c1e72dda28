// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "progressbar.h"

#include <QString>

#include <algorithm>
#include <cstdio>
#include <unistd.h>

namespace
{
constexpr int barWidth = 30;

QString megabytes(double bytes)
{
    return QString::number(bytes / (1024 * 1024), 'f', 1);
}

QString duration(qint64 seconds)
{
    return QStringLiteral("%1:%2").arg(seconds / 60).arg(seconds % 60, 2, 10, QLatin1Char('0'));
}
} // namespace

bool ProgressBar::wanted(qint64 total, bool allowed)
{
    return allowed && total >= threshold && isatty(STDERR_FILENO);
}

ProgressBar::ProgressBar(qint64 total, bool enabled)
    : m_total(total)
    , m_enabled(enabled)
{
    m_clock.start();
}

void ProgressBar::update(qint64 done)
{
    if (m_enabled && (m_lastDraw < 0 || m_clock.elapsed() - m_lastDraw >= 100))
        draw(done);
}

void ProgressBar::finish()
{
    if (!m_enabled)
        return;
    draw(m_total);
    std::fputs("\n", stderr);
    std::fflush(stderr);
}

void ProgressBar::draw(qint64 done)
{
    m_lastDraw = m_clock.elapsed();
    const double seconds = std::max<qint64>(m_lastDraw, 1) / 1000.0;
    const double rate = done / seconds;
    const int filled = m_total > 0 ? int(barWidth * done / m_total) : barWidth;
    const qint64 left = rate > 0 ? qint64((m_total - done) / rate) : 0;
    const QString text = QStringLiteral("\r[%1%2] %3/%4 MB  %5 MB/s  %6 left ")
                             .arg(QString(filled, QLatin1Char('#')), QString(barWidth - filled, QLatin1Char('.')),
                                  megabytes(done), megabytes(m_total), megabytes(rate), duration(left));
    std::fputs(text.toLocal8Bit().constData(), stderr);
    std::fflush(stderr);
}
