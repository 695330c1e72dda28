// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
// Times blocking KDSoapClientInterface::call of GetUserList against
// kdsoap_userlist_server on loopback: the SOAP-over-HTTP round trip a Qt
// application would otherwise make, beside Kavro's own in bench_roundtrip.
// Two modes, each against its own server process, alternate in rounds:
// "as shipped", with TCP_NODELAY nowhere (Nagle's algorithm meets the peer's
// delayed ACK), and "TCP_NODELAY", set on the server's accepted sockets and on
// the client's connection.
//
//   kdsoap_roundtrip [label] [calls-per-round]
//   defaults: "unpinned", 1000 calls per round with TCP_NODELAY; 50 as shipped,
//   where a call takes tens of milliseconds
#include "userlist.h"

#include <KDSoapClient/KDSoapClientInterface.h>
#include <KDSoapClient/KDSoapMessage.h>

#include <QCoreApplication>
#include <QDir>
#include <QProcess>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace
{
using Clock = std::chrono::steady_clock;
constexpr int Rounds = 3;
constexpr int AsShippedCalls = 50;

// One server process and a client interface of its own talking to it.
class Peer
{
public:
    explicit Peer(const QStringList &serverArguments)
    {
        m_server.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_server.start(QStringLiteral(KDSOAP_USERLIST_SERVER), serverArguments);
        if (!m_server.waitForReadyRead(10000))
            return;
        m_port = quint16(m_server.readLine().trimmed().toUInt());
        m_client = std::make_unique<KDSoapClientInterface>(QStringLiteral("http://127.0.0.1:%1/").arg(m_port),
                                                           UserList::messageNamespace());
    }

    ~Peer()
    {
        m_client.reset(); // before the server goes, so the client does not see it go
        m_server.terminate();
        m_server.waitForFinished(10000);
    }

    bool isRunning() const { return m_client != nullptr; }
    quint16 port() const { return m_port; }

    // One blocking GetUserList; true when the reply names every user.
    bool call()
    {
        const KDSoapMessage reply = m_client->call(UserList::operation(), KDSoapMessage());
        return !reply.isFault() && reply.childValues().size() == m_userCount;
    }

private:
    QProcess m_server;
    quint16 m_port = 0;
    std::unique_ptr<KDSoapClientInterface> m_client;
    const int m_userCount = UserList::users().size();
};

struct Connections {
    int count = 0;
    int withNoDelay = 0; // as found, before any change
};

// The process's connections to 127.0.0.1:port. QNetworkAccessManager gives no
// access to its sockets, so they are found among the open descriptors; with
// setNoDelay, TCP_NODELAY is switched on for each.
Connections connectionsTo(quint16 port, bool setNoDelay)
{
    Connections found;
    const QStringList descriptors =
        QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot);
    for (const QString &name : descriptors) {
        const int fd = name.toInt();
        sockaddr_in peer{};
        socklen_t length = sizeof peer;
        if (getpeername(fd, reinterpret_cast<sockaddr *>(&peer), &length) != 0 || peer.sin_family != AF_INET
            || ntohs(peer.sin_port) != port)
            continue;
        int noDelay = 0;
        socklen_t size = sizeof noDelay;
        getsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &noDelay, &size);
        ++found.count;
        found.withNoDelay += noDelay != 0;
        const int on = 1;
        if (setNoDelay && !noDelay)
            setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    }
    return found;
}

double microsecondsSince(Clock::time_point start)
{
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

// Adds one round of \a calls timed calls to \a samples (µs each); false when a call failed.
bool round(Peer &peer, int calls, std::vector<double> *samples)
{
    for (int i = 0; i < calls; ++i) {
        const auto start = Clock::now();
        if (!peer.call())
            return false;
        samples->push_back(microsecondsSince(start));
    }
    return true;
}

void report(const QString &mode, std::vector<double> samples)
{
    std::sort(samples.begin(), samples.end());
    const double median = samples[samples.size() / 2];
    const double p99 = samples[samples.size() * 99 / 100];
    std::printf("KDSoap blocking GetUserList (%s): median %.1f us, p99 %.1f us over %zu calls\n", qPrintable(mode),
                median, p99, samples.size());
    std::printf("{\"figure\": \"KDSoap GetUserList\", \"mode\": \"%s\", \"calls\": %zu, \"median_us\": %.1f, "
                "\"p99_us\": %.1f}\n",
                qPrintable(mode), samples.size(), median, p99);
}

int fail(const char *what)
{
    std::fprintf(stderr, "kdsoap_roundtrip: %s\n", what);
    return 1;
}
} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QString label = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QStringLiteral("unpinned");
    const int calls = argc > 2 ? std::max(100, std::atoi(argv[2])) : 1000;

    Peer asShipped({});
    Peer noDelay({QStringLiteral("--nodelay")});
    if (!asShipped.isRunning() || !noDelay.isRunning())
        return fail("kdsoap_userlist_server did not start");
    // The first call opens each client's connection; then TCP_NODELAY goes on the one that wants it.
    if (!asShipped.call() || !noDelay.call())
        return fail("a call failed");
    const Connections shipped = connectionsTo(asShipped.port(), false);
    const Connections tuned = connectionsTo(noDelay.port(), true);
    if (shipped.count == 0 || tuned.count == 0)
        return fail("found no client connection");
    std::printf("KDSoap client: QNetworkAccessManager left TCP_NODELAY off on %d of its %d connection(s)\n",
                shipped.count + tuned.count - shipped.withNoDelay - tuned.withNoDelay, shipped.count + tuned.count);

    std::vector<double> shippedSamples;
    std::vector<double> noDelaySamples;
    if (!round(asShipped, AsShippedCalls / 10, &shippedSamples) || !round(noDelay, calls / 10, &noDelaySamples))
        return fail("a call failed");
    shippedSamples.clear();
    noDelaySamples.clear();
    for (int i = 0; i < Rounds; ++i) {
        if (!round(asShipped, AsShippedCalls, &shippedSamples) || !round(noDelay, calls, &noDelaySamples))
            return fail("a call failed");
    }
    // A connection opened since would not have the option.
    const Connections after = connectionsTo(noDelay.port(), false);
    if (after.count != tuned.count || after.withNoDelay != after.count)
        return fail("the client opened another connection during the measurement");

    report(label + QStringLiteral(", as shipped"), shippedSamples);
    report(label + QStringLiteral(", TCP_NODELAY"), noDelaySamples);
    return 0;
}
