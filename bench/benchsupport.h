// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
// What the benchmarks share: figures of a set of samples, the reference
// server started on a store, and waiting for a new client's connection.
#ifndef KAVRO_BENCH_BENCHSUPPORT_H
#define KAVRO_BENCH_BENCHSUPPORT_H

#include <kavro/kavroclient.h>

#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QTimer>

#include <algorithm>
#include <vector>

struct Figures {
    double median = 0;
    double p99 = 0;
};

inline Figures figuresOf(std::vector<double> samples)
{
    std::sort(samples.begin(), samples.end());
    return {samples[samples.size() / 2], samples[samples.size() * 99 / 100]};
}

//! Puts a small file \a name into a group's \a directory: the server adds only files that are there.
inline bool placeFile(const QString &directory, const QString &name)
{
    QFile file(directory + QLatin1Char('/') + name);
    return file.open(QIODevice::WriteOnly) && file.write("bench") == 5;
}

#ifdef KAVRO_SERVER_BINARY
/*!
 * Starts kavro-server on \a store and a free loopback port, with the further \a arguments; the port, or 0. Its log
 * goes to \a logFile, else to this process's stderr.
 */
inline quint16 startServer(QProcess &server, const QString &store, const QStringList &arguments = {},
                           const QString &logFile = QString())
{
    if (logFile.isEmpty())
        server.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    else
        server.setStandardErrorFile(logFile);
    server.start(
        QStringLiteral(KAVRO_SERVER_BINARY),
        QStringList{QStringLiteral("--store"), store, QStringLiteral("--listen"), QStringLiteral("127.0.0.1:0")}
            + arguments);
    if (!server.waitForReadyRead(10000))
        return 0;
    return quint16(server.readLine().trimmed().toUInt());
}
#endif

//! Waits for a client constructed just now: its connection comes up in the event loop at the earliest.
inline bool waitForConnection(Kavro::KavroClient &client)
{
    QEventLoop loop;
    bool connected = false;
    QObject::connect(&client, &Kavro::KavroClient::connected, &loop, [&] {
        connected = true;
        loop.quit();
    });
    QTimer::singleShot(10000, &loop, &QEventLoop::quit);
    loop.exec();
    return connected;
}

#endif
