// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
// Times calls through KavroClient against kavro-server on loopback, and the
// same request bytes sent by a minimal blocking POSIX client to the same
// server process. The two alternate in rounds, so machine noise hits both.
// Figures: blocking GetUserList, blocking QueryMetaData of a group with ten
// files, and the rate of asynchronous GetUserList calls issued all at once.
// Beside the plain client, one that talks TLS with a client certificate to a
// second server: blocking GetUserList once connected, and the time from
// making a client to its connected(), which holds the TLS handshake.
//
//   bench_roundtrip [label] [calls-per-round]
//   defaults: "unpinned", 2000 calls; run under "taskset -c 0" for the pinned figures
#include "benchsupport.h"
#include "messages_p.h"
#include "rawclient.h"
#include "testcertificates.h"

#include <kavro/kavroclient.h>

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QProcess>
#include <QSslConfiguration>
#include <QTemporaryDir>
#include <QTimer>
#include <QUuid>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace
{
using Clock = std::chrono::steady_clock;
constexpr int Rounds = 3;
constexpr int AsyncCalls = 20000;
constexpr int Connections = 40;

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

// Warms both paths up, then alternates Rounds rounds of each and prints the figure beside its \a baseline.
bool compareBlocking(const char *figure, const char *baseline, const QString &label, int calls,
                     const std::function<bool()> &measured, const std::function<bool()> &viaBaseline)
{
    std::vector<double> samples;
    std::vector<double> baselineSamples;
    if (!round(calls / 10, measured, &samples) || !round(calls / 10, viaBaseline, &baselineSamples))
        return false;
    samples.clear();
    baselineSamples.clear();
    for (int i = 0; i < Rounds; ++i) {
        if (!round(calls, measured, &samples) || !round(calls, viaBaseline, &baselineSamples))
            return false;
    }
    const Figures ours = figuresOf(samples);
    const Figures theirs = figuresOf(baselineSamples);
    std::printf("blocking %s (%s): median %.1f us, p99 %.1f us; %s %.1f us, %.1f us; "
                "ratio %.2fx median, %.2fx p99\n",
                figure, qPrintable(label), ours.median, ours.p99, baseline, theirs.median, theirs.p99,
                ours.median / theirs.median, ours.p99 / theirs.p99);
    std::printf("{\"figure\": \"blocking %s\", \"mode\": \"%s\", \"median_us\": %.1f, \"p99_us\": %.1f, "
                "\"baseline\": \"%s\", \"baseline_median_us\": %.1f, \"baseline_p99_us\": %.1f}\n",
                figure, qPrintable(label), ours.median, ours.p99, baseline, theirs.median, theirs.p99);
    return true;
}

struct Medians {
    double measured;
    double baseline;
};

// Takes \a times samples of \a measured and of \a baseline, alternately; their medians, or none when a sample failed
// (was 0).
std::optional<Medians> alternatingMedians(int times, const std::function<double()> &measured,
                                          const std::function<double()> &baseline)
{
    std::vector<double> samples;
    std::vector<double> baselineSamples;
    for (int i = 0; i < times; ++i) {
        samples.push_back(measured());
        baselineSamples.push_back(baseline());
        if (samples.back() == 0 || baselineSamples.back() == 0)
            return std::nullopt;
    }
    return Medians{figuresOf(samples).median, figuresOf(baselineSamples).median};
}

// Where a client connects, as whom, and with what TLS configuration (null: none).
struct Endpoint {
    quint16 port = 0;
    QString user;
    QSslConfiguration tls;
};

// A client of \a endpoint; it connects on its own thread from now on.
std::unique_ptr<Kavro::KavroClient> newClient(const Endpoint &endpoint)
{
    auto client = std::make_unique<Kavro::KavroClient>(QStringLiteral("127.0.0.1"), endpoint.port,
                                                       QStringLiteral("bench"), endpoint.user, QString());
    if (!endpoint.tls.isNull())
        client->setSslConfiguration(endpoint.tls);
    return client;
}

// Milliseconds from making a client of \a endpoint to its connected(); 0 when it did not connect.
double connectionSetUp(const Endpoint &endpoint)
{
    const auto start = Clock::now();
    const auto client = newClient(endpoint);
    return waitForConnection(*client) ? microsecondsSince(start) / 1000 : 0;
}

// Alternates Connections set-ups of a client of \a tls and of \a plain and prints their medians.
bool compareConnectionSetUp(const QString &label, const Endpoint &tls, const Endpoint &plain)
{
    const auto medians = alternatingMedians(
        Connections,
        [&] {
            return connectionSetUp(tls);
        },
        [&] {
            return connectionSetUp(plain);
        });
    if (!medians)
        return false;
    const auto [ours, theirs] = *medians;
    std::printf("connection set up to connected over TLS, %d times (%s): median %.2f ms; plain %.2f ms; "
                "ratio %.1fx\n",
                Connections, qPrintable(label), ours, theirs, ours / theirs);
    std::printf("{\"figure\": \"connection set up to connected over TLS\", \"mode\": \"%s\", \"connections\": %d, "
                "\"median_ms\": %.2f, \"baseline\": \"plain\", \"baseline_median_ms\": %.2f}\n",
                qPrintable(label), Connections, ours, theirs);
    return true;
}

// kavro-server on a store of its own, with the further \a arguments, for as long as the object lives.
class BenchServer
{
public:
    explicit BenchServer(const QStringList &arguments = {})
        : m_port(startServer(m_process, m_store.path(), arguments))
    {
    }
    ~BenchServer()
    {
        m_process.terminate();
        m_process.waitForFinished(10000);
    }
    BenchServer(const BenchServer &) = delete;
    BenchServer &operator=(const BenchServer &) = delete;

    //! The port it listens on; 0 when it did not start.
    quint16 port() const { return m_port; }
    //! The storage directory under its store, where the files of groups go.
    QString dataDirectory() const { return QDir(m_store.path()).canonicalPath() + QLatin1String("/data"); }

private:
    QTemporaryDir m_store;
    QProcess m_process;
    const quint16 m_port;
};

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
    const auto medians = alternatingMedians(
        Rounds,
        [&] {
            return asyncRate(client);
        },
        [&] {
            return rawRate(raw, frame);
        });
    if (!medians)
        return false;
    const auto [ours, raws] = *medians;
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

    TestCertificates certificates;
    if (!certificates.make())
        return fail("could not make the certificates");
    // The servers outlive the clients declared after them, so no client sees its server go.
    const BenchServer server;
    const BenchServer tlsServer(certificates.serverArguments());
    if (server.port() == 0 || tlsServer.port() == 0)
        return fail("kavro-server did not start");
    const QString alice = QStringLiteral("alice");
    QString error;
    const Endpoint plain{server.port(), QStringLiteral("bench"), QSslConfiguration()};
    const Endpoint tls{tlsServer.port(), alice,
                       Kavro::KavroClient::sslConfigurationFromFiles(certificates.certificate(QStringLiteral("ca")),
                                                                     certificates.certificate(alice),
                                                                     certificates.key(alice), &error)};
    if (tls.tls.isNull())
        return fail(qPrintable(error));

    const auto client = newClient(plain);
    const bool clientConnected = waitForConnection(*client);
    const auto tlsClient = newClient(tls);
    RawClient raw(server.port());
    if (!clientConnected || !waitForConnection(*tlsClient) || !raw.isConnected())
        return fail("no connection to kavro-server");
    const QString guid = groupWithTenFiles(raw, server.dataDirectory());
    if (guid.isEmpty())
        return fail("could not make the measured group");

    const QByteArray userList = framed(Kavro::GetUserListMessage().writeRequest());
    const QByteArray metaData = framed(Kavro::QueryMetaDataMessage(guid, QStringLiteral("bench")).writeRequest());
    const auto userListThrough = [](Kavro::KavroClient &through) {
        return [&through] {
            through.GetUserList();
            return through.GetError() == Kavro::NoError;
        };
    };
    const bool measured =
        compareBlocking("GetUserList", "raw client", label, calls, userListThrough(*client),
                        [&] {
                            return raw.call(userList);
                        })
        && compareBlocking(
            "QueryMetaData, 10 files", "raw client", label, calls,
            [&] {
                return client->QueryMetaData(guid, QStringLiteral("bench")).getFileList().size() == 10;
            },
            [&] {
                return raw.call(metaData);
            })
        // Before the asynchronous rate: the plain client's blocking calls are slower after those 20,000 calls.
        && compareBlocking("GetUserList over TLS", "plain client", label, calls, userListThrough(*tlsClient),
                           userListThrough(*client))
        && compareConnectionSetUp(label, tls, plain) && compareAsyncRate(label, *client, raw, userList);
    return measured ? 0 : fail("a call failed");
}
