// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
// Times calls through KavroClient against kavro-server on loopback, and the
// same request bytes sent by a minimal blocking POSIX client to the same
// server process. The two alternate in rounds, so machine noise hits both.
// Figures: blocking GetUserList, blocking QueryMetaData of a group with ten
// files, and the rate of asynchronous GetUserList calls issued all at once.
//
//   bench_roundtrip [label] [calls-per-round]
//   defaults: "unpinned", 2000 calls; run under "taskset -c 0" for the pinned figures
#include "benchsupport.h"
#include "messages_p.h"
#include "rawclient.h"

#include <kavro/kavroclient.h>

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>
#include <QUuid>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <vector>

namespace
{
using Clock = std::chrono::steady_clock;
constexpr int Rounds = 3;
constexpr int AsyncCalls = 20000;

double microsecondsSince(Clock::time_point start)
{
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

// Adds one round of \a calls timed calls to \a samples (µs each); false when a call failed.
bool round(int calls, const std::function<bool()> &call, std::vector<double> *samples)
{
    for (int i = 0; i < calls; ++i) {
        const auto start = Clock::now();
        if (!call())
            return false;
        samples->push_back(microsecondsSince(start));
    }
    return true;
}

// Warms both paths up, then alternates Rounds rounds of each and prints the figure.
bool compareBlocking(const char *figure, const QString &label, int calls, const std::function<bool()> &viaClient,
                     const std::function<bool()> &viaRaw)
{
    std::vector<double> kavro;
    std::vector<double> baseline;
    if (!round(calls / 10, viaClient, &kavro) || !round(calls / 10, viaRaw, &baseline))
        return false;
    kavro.clear();
    baseline.clear();
    for (int i = 0; i < Rounds; ++i) {
        if (!round(calls, viaClient, &kavro) || !round(calls, viaRaw, &baseline))
            return false;
    }
    const Figures ours = figuresOf(kavro);
    const Figures raws = figuresOf(baseline);
    std::printf("blocking %s (%s): median %.1f us, p99 %.1f us; raw client %.1f us, %.1f us; "
                "ratio %.2fx median, %.2fx p99\n",
                figure, qPrintable(label), ours.median, ours.p99, raws.median, raws.p99, ours.median / raws.median,
                ours.p99 / raws.p99);
    std::printf("{\"figure\": \"blocking %s\", \"mode\": \"%s\", \"median_us\": %.1f, \"p99_us\": %.1f, "
                "\"baseline_median_us\": %.1f, \"baseline_p99_us\": %.1f}\n",
                figure, qPrintable(label), ours.median, ours.p99, raws.median, raws.p99);
    return true;
}

// Calls per second when AsyncCalls asynchronous requests are issued at once, until the last reply signal.
double asyncRate(Kavro::KavroClient &client)
{
    QEventLoop loop;
    int replies = 0;
    const auto connection = QObject::connect(&client, &Kavro::KavroClient::GetUserListSg, &loop,
                                             [&](const QString &, const QStringList &, int error) {
                                                 if (error != Kavro::NoError || ++replies == AsyncCalls)
                                                     loop.quit();
                                             });
    QTimer::singleShot(120000, &loop, &QEventLoop::quit);
    const auto start = Clock::now();
    for (int i = 0; i < AsyncCalls; ++i)
        client.GetUserListAsync();
    loop.exec();
    const double seconds = microsecondsSince(start) / 1e6;
    QObject::disconnect(connection);
    return replies == AsyncCalls ? AsyncCalls / seconds : 0;
}

// Calls per second of the raw client making AsyncCalls blocking calls one after the other.
double rawRate(RawClient &raw, const QByteArray &frame)
{
    const auto start = Clock::now();
    for (int i = 0; i < AsyncCalls; ++i) {
        if (!raw.call(frame))
            return 0;
    }
    return AsyncCalls / (microsecondsSince(start) / 1e6);
}

bool compareAsyncRate(const QString &label, Kavro::KavroClient &client, RawClient &raw, const QByteArray &frame)
{
    std::vector<double> kavro;
    std::vector<double> baseline;
    for (int i = 0; i < Rounds; ++i) {
        kavro.push_back(asyncRate(client));
        baseline.push_back(rawRate(raw, frame));
        if (kavro.back() == 0 || baseline.back() == 0)
            return false;
    }
    const double ours = figuresOf(kavro).median;
    const double raws = figuresOf(baseline).median;
    std::printf("asynchronous GetUserList, %d at once (%s): %.0f calls/s; raw client one at a time %.0f calls/s; "
                "ratio %.2f\n",
                AsyncCalls, qPrintable(label), ours, raws, ours / raws);
    std::printf("{\"figure\": \"asynchronous GetUserList rate\", \"mode\": \"%s\", \"calls\": %d, "
                "\"calls_per_s\": %.0f, \"baseline_calls_per_s\": %.0f}\n",
                qPrintable(label), AsyncCalls, ours, raws);
    return true;
}

// A group with ten files in the storage directory \a data, made through the raw client; its guid, or empty.
QString groupWithTenFiles(RawClient &raw, const QString &data)
{
    const QString guid = QUuid::createUuid().toString(QUuid::WithoutBraces);
    if (!raw.call(framed(Kavro::CreateFileGroupMessage(QStringLiteral("measured"), guid, QStringLiteral("detail"),
                                                       QStringLiteral("Ten files"), Kavro::FileTypeImage, QDateTime(),
                                                       0, QStringLiteral("lab"), QStringLiteral("bench"),
                                                       QStringLiteral("1.0"), QString())
                             .writeRequest())))
        return QString();
    for (int i = 0; i < 10; ++i) {
        const QString name = QStringLiteral("frame_%1.png").arg(i);
        if (!placeFile(data + QLatin1Char('/') + guid, name)
            || !raw.call(framed(Kavro::AddFileMessage(guid, name, 0).writeRequest())))
            return QString();
    }
    return guid;
}

int fail(const char *what)
{
    std::fprintf(stderr, "bench_roundtrip: %s\n", what);
    return 1;
}
} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QString label = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QStringLiteral("unpinned");
    const int calls = argc > 2 ? std::max(100, atoi(argv[2])) : 2000;

    QTemporaryDir store;
    QProcess server;
    const quint16 port = startServer(server, store.path());
    if (port == 0)
        return fail("kavro-server did not start");
    auto owned = std::make_unique<Kavro::KavroClient>(QStringLiteral("127.0.0.1"), port, QStringLiteral("bench"),
                                                      QStringLiteral("bench"), QString());
    Kavro::KavroClient &client = *owned;
    RawClient raw(port);
    if (!waitForConnection(client) || !raw.isConnected())
        return fail("no connection to kavro-server");
    const QString guid = groupWithTenFiles(raw, QDir(store.path()).canonicalPath() + QLatin1String("/data"));
    if (guid.isEmpty())
        return fail("could not make the measured group");

    const QByteArray userList = framed(Kavro::GetUserListMessage().writeRequest());
    const QByteArray metaData = framed(Kavro::QueryMetaDataMessage(guid, QStringLiteral("bench")).writeRequest());
    const bool measured = compareBlocking(
                              "GetUserList", label, calls,
                              [&client] {
                                  client.GetUserList();
                                  return client.GetError() == Kavro::NoError;
                              },
                              [&] {
                                  return raw.call(userList);
                              })
        && compareBlocking(
                              "QueryMetaData, 10 files", label, calls,
                              [&] {
                                  return client.QueryMetaData(guid, QStringLiteral("bench")).getFileList().size() == 10;
                              },
                              [&] {
                                  return raw.call(metaData);
                              })
        && compareAsyncRate(label, client, raw, userList);
    owned.reset(); // before the server goes, so the client does not see it go
    server.terminate();
    server.waitForFinished(10000);
    return measured ? 0 : fail("a call failed");
}
