// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
// Times blocking calls through KavroClient against kavro-server on loopback,
// and the same request bytes sent by a minimal blocking POSIX client to the
// same server process. The two alternate in rounds, so machine noise hits both.
//
//   bench_roundtrip [label] [calls-per-round]
//   defaults: "unpinned", 2000 calls; run under "taskset -c 0" for the pinned figures
#include "messages_p.h"

#include <kavro/kavroclient.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>
#include <QtEndian>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{
using Clock = std::chrono::steady_clock;

// A blocking client of its own: one frame out, one frame in.
class RawClient
{
public:
    explicit RawClient(quint16 port)
        : m_fd(::socket(AF_INET, SOCK_STREAM, 0))
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const int on = 1;
        ::setsockopt(m_fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        m_connected = ::connect(m_fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
    }
    ~RawClient() { ::close(m_fd); }
    RawClient(const RawClient &) = delete;
    RawClient &operator=(const RawClient &) = delete;

    bool isConnected() const { return m_connected; }

    bool call(const QByteArray &frame)
    {
        if (::send(m_fd, frame.constData(), size_t(frame.size()), 0) != frame.size())
            return false;
        char prefix[4];
        if (!receive(prefix, 4))
            return false;
        m_reply.resize(qFromLittleEndian<quint32>(prefix));
        return receive(m_reply.data(), m_reply.size());
    }

private:
    bool receive(char *data, qsizetype size)
    {
        for (qsizetype done = 0; done < size;) {
            const ssize_t got = ::recv(m_fd, data + done, size_t(size - done), 0);
            if (got <= 0)
                return false;
            done += got;
        }
        return true;
    }

    const int m_fd;
    bool m_connected = false;
    QByteArray m_reply;
};

struct Figures {
    double median = 0;
    double p99 = 0;
};

Figures figuresOf(std::vector<double> samples)
{
    std::sort(samples.begin(), samples.end());
    return {samples[samples.size() / 2], samples[samples.size() * 99 / 100]};
}

// Adds one round of \a calls timed calls to \a samples (µs each); false when a call failed.
bool round(int calls, const std::function<bool()> &call, std::vector<double> *samples)
{
    for (int i = 0; i < calls; ++i) {
        const auto start = Clock::now();
        if (!call())
            return false;
        samples->push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
    return true;
}

quint16 startServer(QProcess &server, const QString &store)
{
    server.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    server.start(QStringLiteral(KAVRO_SERVER_BINARY),
                 {QStringLiteral("--store"), store, QStringLiteral("--listen"), QStringLiteral("127.0.0.1:0")});
    if (!server.waitForReadyRead(10000))
        return 0;
    return quint16(server.readLine().trimmed().toUInt());
}

// Waits for a client constructed just now: its connection comes up in the event loop at the earliest.
bool waitForConnection(Kavro::KavroClient &client)
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
} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QString label = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QStringLiteral("unpinned");
    const int calls = argc > 2 ? std::max(100, atoi(argv[2])) : 2000;

    QTemporaryDir store;
    QProcess server;
    const quint16 port = startServer(server, store.path());
    if (port == 0) {
        std::fprintf(stderr, "bench_roundtrip: kavro-server did not start\n");
        return 1;
    }
    auto owned = std::make_unique<Kavro::KavroClient>(QStringLiteral("127.0.0.1"), port, QStringLiteral("bench"),
                                                      QStringLiteral("bench"), QString());
    Kavro::KavroClient &client = *owned;
    RawClient raw(port);
    if (!waitForConnection(client) || !raw.isConnected()) {
        std::fprintf(stderr, "bench_roundtrip: no connection to kavro-server\n");
        return 1;
    }

    QByteArray frame = Kavro::GetUserListMessage().writeRequest();
    const quint32 length = quint32(frame.size());
    frame.prepend(reinterpret_cast<const char *>(&length), 4); // little-endian on every machine we build for
    const auto viaClient = [&client] {
        client.GetUserList();
        return client.GetError() == Kavro::NoError;
    };
    const auto viaRaw = [&raw, &frame] {
        return raw.call(frame);
    };

    // Warm both paths up, then alternate three rounds.
    std::vector<double> kavro;
    std::vector<double> baseline;
    if (!round(calls / 10, viaClient, &kavro) || !round(calls / 10, viaRaw, &baseline))
        return 1;
    kavro.clear();
    baseline.clear();
    for (int i = 0; i < 3; ++i) {
        if (!round(calls, viaClient, &kavro) || !round(calls, viaRaw, &baseline)) {
            std::fprintf(stderr, "bench_roundtrip: a call failed\n");
            return 1;
        }
    }
    const Figures ours = figuresOf(kavro);
    const Figures raws = figuresOf(baseline);
    std::printf("blocking GetUserList (%s): median %.1f us, p99 %.1f us; raw client %.1f us, %.1f us; "
                "ratio %.2fx median, %.2fx p99\n",
                qPrintable(label), ours.median, ours.p99, raws.median, raws.p99, ours.median / raws.median,
                ours.p99 / raws.p99);
    std::printf("{\"figure\": \"blocking GetUserList\", \"mode\": \"%s\", \"median_us\": %.1f, \"p99_us\": %.1f, "
                "\"baseline_median_us\": %.1f, \"baseline_p99_us\": %.1f}\n",
                qPrintable(label), ours.median, ours.p99, raws.median, raws.p99);
    owned.reset(); // before the server goes, so the client does not see it go
    server.terminate();
    server.waitForFinished(10000);
    return 0;
}
