// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
// Requests per second and latency of kavro-server under 1, 10 and 50 clients
// at once, each sending a fixed mix of requests one after the other for a
// fixed time, in three set-ups: one server on SQLite, one server on
// PostgreSQL, and two servers sharing one PostgreSQL database and one store
// (the clients split evenly between them). Every run starts from an empty
// store and database.
//
// The clients are raw blocking sockets (rawclient.h) on threads of their own,
// sending prepared request bytes, so that little of the machine goes to the
// load itself. A request's latency is request bytes out to reply bytes in.
//
// PostgreSQL: the cluster whose state file KAVRO_TEST_POSTGRESQL names
// (scripts/test-postgresql.sh; scripts/bench.sh starts one), else one started
// here through that script and stopped again at the end.
//
//   bench_scale [seconds-per-run]
//   default: 4 seconds per set-up and number of clients
#include "benchsupport.h"
#include "messages_p.h"
#include "rawclient.h"
#include "testdatabase.h"

#include <kavro/filequery.h>

#include <QCoreApplication>
#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>
#include <QUuid>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <future>
#include <memory>
#include <vector>

namespace
{
using Clock = std::chrono::steady_clock;

constexpr int s_clientCounts[] = {1, 10, 50};
constexpr quint32 s_fileId = 1; // the first file added to a new group
// Stands for each cycle's group in the prepared requests; a guid has the same length, so the frames stay valid.
constexpr char s_guidPlaceholder[] = "ffffffff-ffff-ffff-ffff-ffffffffffff";

struct Setup {
    const char *name;
    bool postgresql;
    int servers;
};

constexpr Setup s_setups[] = {
    {"SQLite, one server", false, 1},
    {"PostgreSQL, one server", true, 1},
    {"PostgreSQL, two servers", true, 2},
};

//! Whether \a reply reports success: every reply carries its error code (\c <m:Error>0</m:Error>).
bool succeeded(const QByteArray &reply)
{
    return reply.contains("Error>0</");
}

/*!
 * One client's stream: a new group, a file put into its directory and added, the file requested for writing, a
 * query for the groups this client holds locked (an indexed criterion that finds the one group), the file closed,
 * the group's metadata and its file list. Seven requests a cycle, four of them changes.
 */
class ScaleClient
{
public:
    ScaleClient(quint16 port, int index, const QString &dataDirectory)
        : m_client(port)
        , m_data(dataDirectory)
    {
        const QString guid = QLatin1String(s_guidPlaceholder);
        const QString user = QStringLiteral("scale%1").arg(index);
        const QString application = QStringLiteral("bench_scale");
        Kavro::FileQuery lockedByMe;
        lockedByMe.SetLockUser(user);
        const QByteArray requests[] = {
            Kavro::CreateFileGroupMessage(QStringLiteral("made by the scale benchmark"), guid, QStringLiteral("load"),
                                          QStringLiteral("Scale ") + guid, Kavro::FileTypeImage, QDateTime(), 0,
                                          QStringLiteral("lab"), user, QStringLiteral("1.0"), QString())
                .writeRequest(),
            Kavro::AddFileMessage(guid, QLatin1String(s_fileName), 0).writeRequest(),
            Kavro::RequestFileMessage(guid, s_fileId, true, user).writeRequest(),
            Kavro::QueryFileGroupsMessage(lockedByMe, application, user).writeRequest(),
            Kavro::CloseFileMessage(guid, s_fileId, user).writeRequest(),
            Kavro::QueryMetaDataMessage(guid, application).writeRequest(),
            Kavro::GetFileListMessage(guid).writeRequest(),
        };
        for (const QByteArray &request : requests)
            m_frames.push_back(framed(request));
    }

    bool isConnected() const { return m_client.isConnected(); }

    /*!
     * Runs one cycle on a new group, adding each request's latency (µs) to \a samples; false when a request
     * failed or the query did not find the group. The file is put into place before the AddFile is timed.
     */
    bool cycle(std::vector<double> *samples)
    {
        const QByteArray guid = QUuid::createUuid().toByteArray(QUuid::WithoutBraces);
        for (size_t step = 0; step < m_frames.size(); ++step) {
            if (step == s_addFileStep
                && !placeFile(m_data + QLatin1Char('/') + QLatin1String(guid), QLatin1String(s_fileName)))
                return false;
            const QByteArray frame = QByteArray(m_frames[step]).replace(s_guidPlaceholder, guid);
            const auto start = Clock::now();
            if (!m_client.call(frame) || !succeeded(m_client.reply())
                || (step == s_queryStep && !m_client.reply().contains(guid))) {
                std::fprintf(stderr, "bench_scale: request %zu of a cycle failed: %s\n", step + 1,
                             m_client.reply().left(1000).constData());
                return false;
            }
            samples->push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
        }
        return true;
    }

private:
    static constexpr char s_fileName[] = "frame.png";
    static constexpr size_t s_addFileStep = 1; // the places of AddFile and QueryFileGroups in m_frames
    static constexpr size_t s_queryStep = 3;
    RawClient m_client;
    const QString m_data;
    std::vector<QByteArray> m_frames;
};

struct RunResult {
    bool ok = false;
    double seconds = 0;
    std::vector<double> samples; // µs, one per request
};

// Starts the clients' threads together and lets each run whole cycles until \a seconds have passed.
RunResult drive(std::vector<std::unique_ptr<ScaleClient>> &clients, double seconds)
{
    std::promise<void> go;
    const std::shared_future<void> started = go.get_future().share();
    Clock::time_point deadline;
    std::vector<std::future<std::pair<bool, std::vector<double>>>> results;
    for (const auto &client : clients) {
        results.push_back(std::async(std::launch::async, [&client, &deadline, started] {
            started.wait();
            std::vector<double> samples;
            bool ok = true;
            while (ok && Clock::now() < deadline)
                ok = client->cycle(&samples);
            return std::make_pair(ok, std::move(samples));
        }));
    }
    const auto start = Clock::now();
    deadline = start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    go.set_value();
    RunResult result;
    result.ok = true;
    for (auto &future : results) {
        auto [ok, samples] = future.get();
        result.ok = result.ok && ok;
        result.samples.insert(result.samples.end(), samples.begin(), samples.end());
    }
    result.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    return result;
}

//! The servers of one run, on a new store, and a new database for PostgreSQL; stopped when it goes.
class ServerGroup
{
public:
    explicit ServerGroup(const Setup &setup)
    {
        QStringList arguments;
        if (setup.postgresql) {
            const QString database = testDatabase(m_store.path());
            if (database.isEmpty() || !migrate(database))
                return;
            arguments = QStringList{QStringLiteral("--database"), database};
        }
        for (int i = 0; i < setup.servers; ++i) {
            m_servers.push_back(std::make_unique<QProcess>());
            // The audit trail, a line for every change, goes to a file: on the terminal it would cost more than
            // the server's own work.
            m_ports.push_back(startServer(*m_servers.back(), m_store.path(), arguments, logFile(i)));
        }
    }
    ~ServerGroup()
    {
        for (const auto &server : m_servers) {
            server->terminate();
            server->waitForFinished(10000);
        }
    }
    Q_DISABLE_COPY_MOVE(ServerGroup)

    //! The port of each server; empty, or holding 0, when one did not start.
    const std::vector<quint16> &ports() const { return m_ports; }
    QString dataDirectory() const { return m_store.filePath(QStringLiteral("data")); }

    //! Prints the lines the servers logged that are not audit lines: why one did not start or refused a request.
    void printProblems() const
    {
        for (size_t i = 0; i < m_servers.size(); ++i) {
            QFile log(logFile(int(i)));
            if (!log.open(QIODevice::ReadOnly))
                continue;
            while (!log.atEnd()) {
                const QByteArray line = log.readLine();
                if (!line.contains(" audit "))
                    std::fprintf(stderr, "%s", line.constData());
            }
        }
    }

private:
    QString logFile(int server) const { return m_store.filePath(QStringLiteral("server%1.log").arg(server)); }

    // Brings the new database's schema up first, so that two servers starting at once find it made.
    bool migrate(const QString &database)
    {
        QProcess process;
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process.start(QStringLiteral(KAVRO_SERVER_BINARY),
                      {QStringLiteral("--store"), m_store.path(), QStringLiteral("--database"), database,
                       QStringLiteral("--migrate")});
        return process.waitForFinished(60000) && process.exitCode() == 0;
    }

    QTemporaryDir m_store;
    std::vector<std::unique_ptr<QProcess>> m_servers;
    std::vector<quint16> m_ports;
};

struct Measurement {
    double requestsPerSecond = 0;
    Figures latency; // ms
};

// One set-up under \a clientCount clients for \a seconds, each client having run one cycle first; false on failure.
bool measure(const Setup &setup, int clientCount, double seconds, Measurement *measurement)
{
    const ServerGroup servers(setup);
    const std::vector<quint16> &ports = servers.ports();
    if (ports.empty() || std::count(ports.begin(), ports.end(), quint16(0)) > 0) {
        std::fprintf(stderr, "bench_scale: %s: kavro-server did not start\n", setup.name);
        servers.printProblems();
        return false;
    }
    std::vector<std::unique_ptr<ScaleClient>> clients;
    std::vector<double> warmUp;
    for (int i = 0; i < clientCount; ++i) {
        clients.push_back(std::make_unique<ScaleClient>(ports[size_t(i) % ports.size()], i, servers.dataDirectory()));
        if (!clients.back()->isConnected() || !clients.back()->cycle(&warmUp)) {
            std::fprintf(stderr, "bench_scale: %s: a client's first cycle failed\n", setup.name);
            servers.printProblems();
            return false;
        }
    }
    RunResult run = drive(clients, seconds);
    if (!run.ok || run.samples.empty()) {
        std::fprintf(stderr, "bench_scale: %s, %d clients: a request failed\n", setup.name, clientCount);
        servers.printProblems();
        return false;
    }
    const Figures micro = figuresOf(run.samples);
    *measurement = {double(run.samples.size()) / run.seconds, {micro.median / 1000, micro.p99 / 1000}};
    std::printf("%s, %d client(s): %.0f requests/s, p50 %.2f ms, p99 %.2f ms (%zu requests in %.1f s)\n", setup.name,
                clientCount, measurement->requestsPerSecond, measurement->latency.median, measurement->latency.p99,
                run.samples.size(), run.seconds);
    std::printf("{\"figure\": \"mixed requests\", \"setup\": \"%s\", \"clients\": %d, \"cores\": %d, "
                "\"requests\": %zu, \"seconds\": %.2f, \"requests_per_s\": %.0f, \"p50_ms\": %.3f, \"p99_ms\": %.3f}\n",
                setup.name, clientCount, QThread::idealThreadCount(), run.samples.size(), run.seconds,
                measurement->requestsPerSecond, measurement->latency.median, measurement->latency.p99);
    return true;
}

//! The cluster the PostgreSQL set-ups use: the one named in the environment, or one of its own until it goes.
class PostgreSqlCluster
{
public:
    PostgreSqlCluster()
    {
        if (qEnvironmentVariableIsSet("KAVRO_TEST_POSTGRESQL"))
            return;
        m_state = m_directory.filePath(QStringLiteral("postgresql.state"));
        if (script(QStringLiteral("start")))
            qputenv("KAVRO_TEST_POSTGRESQL", QFile::encodeName(m_state));
    }
    ~PostgreSqlCluster()
    {
        if (!m_state.isEmpty())
            script(QStringLiteral("stop"));
    }
    Q_DISABLE_COPY_MOVE(PostgreSqlCluster)

    bool isRunning() const { return qEnvironmentVariableIsSet("KAVRO_TEST_POSTGRESQL"); }

private:
    bool script(const QString &action) const
    {
        QProcess process;
        process.setProcessChannelMode(QProcess::ForwardedChannels);
        process.start(QStringLiteral("bash"), {QStringLiteral(KAVRO_POSTGRESQL_SCRIPT), action, m_state});
        return process.waitForFinished(120000) && process.exitStatus() == QProcess::NormalExit
            && process.exitCode() == 0;
    }

    QTemporaryDir m_directory;
    QString m_state;
};

void printTable(const std::vector<const Setup *> &setups, const std::vector<std::vector<Measurement>> &figures)
{
    std::printf("\n%-8s", "clients");
    for (const Setup *setup : setups)
        std::printf(" | %-34s", setup->name);
    std::printf("\n");
    for (size_t row = 0; row < std::size(s_clientCounts); ++row) {
        std::printf("%-8d", s_clientCounts[row]);
        for (size_t column = 0; column < setups.size(); ++column) {
            const Measurement &figure = figures[column][row];
            std::printf(" | %6.0f req/s, %6.2f / %6.2f ms", figure.requestsPerSecond, figure.latency.median,
                        figure.latency.p99);
        }
        std::printf("\n");
    }
    std::printf("(requests/s, p50 / p99 latency)\n");
}
} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    std::setvbuf(stdout, nullptr, _IOLBF, 0); // each figure as soon as it is taken
    const double seconds = argc > 1 ? std::max(0.5, atof(argv[1])) : 4.0;
    std::printf("cores: %d (QThread::idealThreadCount()); clients and servers share them\n",
                QThread::idealThreadCount());

    const PostgreSqlCluster cluster;
    std::vector<const Setup *> setups;
    for (const Setup &setup : s_setups) {
        if (!setup.postgresql || cluster.isRunning())
            setups.push_back(&setup);
        else
            std::printf("skipped: %s (no PostgreSQL cluster; scripts/install-deps.sh installs PostgreSQL)\n",
                        setup.name);
    }
    std::vector<std::vector<Measurement>> figures(setups.size(), std::vector<Measurement>(std::size(s_clientCounts)));
    for (size_t column = 0; column < setups.size(); ++column) {
        for (size_t row = 0; row < std::size(s_clientCounts); ++row) {
            if (!measure(*setups[column], s_clientCounts[row], seconds, &figures[column][row]))
                return 1;
        }
    }
    printTable(setups, figures);
    return 0;
}
