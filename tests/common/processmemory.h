// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_TESTS_PROCESSMEMORY_H
#define KAVRO_TESTS_PROCESSMEMORY_H

#include "temporarysettings.h"

//! A figure of a process's /proc status in KiB ("VmRSS", "VmHWM"); -1 where there is none.
inline qint64 memoryKiB(const QByteArray &name, const QString &process = QStringLiteral("self"))
{
    for (const QByteArray &line : readFile(QStringLiteral("/proc/%1/status").arg(process)).split('\n')) {
        if (line.startsWith(QByteArray(name + ':')))
            return line.mid(name.size() + 1).trimmed().split(' ').value(0).toLongLong();
    }
    return -1;
}

//! Starts a process's peak resident set ("VmHWM") afresh; false where it cannot be.
inline bool resetPeakMemory(const QString &process = QStringLiteral("self"))
{
    QFile file(QStringLiteral("/proc/%1/clear_refs").arg(process));
    return file.open(QIODevice::WriteOnly) && file.write("5") == 1;
}

#endif
