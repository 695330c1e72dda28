// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_CLI_PROGRESSBAR_H
#define KAVRO_CLI_PROGRESSBAR_H

#include <QElapsedTimer>

/*!
 * A one-line progress bar on stderr: bytes, rate and time left, redrawn at
 * most ten times a second. Drawn only when enabled; finish() ends the line.
 */
class ProgressBar
{
public:
    //! Large transfers get a bar, when stderr is a terminal and the caller allows it.
    static constexpr qint64 threshold = 4 * 1024 * 1024;
    static bool wanted(qint64 total, bool allowed);

    ProgressBar(qint64 total, bool enabled);
    void update(qint64 done);
    void finish();

private:
    void draw(qint64 done);

    const qint64 m_total;
    const bool m_enabled;
    QElapsedTimer m_clock;
    qint64 m_lastDraw = -1;
};

#endif
