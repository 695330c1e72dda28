// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
// Measures kavro-server on a store of many file groups, through a socket as a
// client sees it: request bytes in, reply bytes out.
//
// Queries: a name search and a narrow creation-time range, each matching a
// handful of groups, and a query without criteria that returns them all, each
// beside the store's own query of the same criteria in this process (the SQL
// alone, on the same database file). The store is filled through ArchiveStore.
// Writes: CreateFileGroup and AddFile from eight connections at once, beside the
// same number of requests from one connection. Both alternate in rounds.
//
//   bench_server [groups] [writes-per-connection]
//   defaults: 100000 groups, 200 writes per connection
#include "archivestore.h"
#include "benchsupport.h"
#include "messages_p.h"
#include "rawclient.h"
#include "soapmessage_p.h"
#include "storepaths.h"

#include <kavro/filegroupdata.h>
#include <kavro/filequery.h>

#include <QCoreApplication>
#include <QProcess>
#include <QTemporaryDir>
#include <QUuid>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <future>
#include <memory>
#include <random>
#include <utility>
#include <vector>

namespace
{
using Clock = std::chrono::steady_clock;
using Kavro::FileGroupData;
using Kavro::FileQuery;
using Kavro::KavroError;
using Kavro::NoError;
using Kavro::Server::ArchiveStore;

constexpr int s_writers = 8;
constexpr int s_rounds = 3;
constexpr int s_filesPerWrittenGroup = 3;
constexpr int s_userCount = 40; // the creators of the stored groups

double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// Adds \a calls timed calls to \a samples (ms each); false when a call failed.
bool timeCalls(int calls, const std::function<bool()> &call, std::vector<double> *samples)
{
    for (int i = 0; i < calls; ++i) {
        const auto start = Clock::now();
        if (!call())
            return false;
        samples->push_back(secondsSince(start) * 1000);
    }
    return true;
}

template<typename T, size_t N>
const T &pick(const T (&values)[N], std::mt19937 &random)
{
    return values[random() % N];
}

// Varied, plausible records: sites, activities, users, teams, types and times spread over two years.
class GroupMaker
{
public:
    explicit GroupMaker(const QString &dataDirectory)
        : m_data(dataDirectory)
    {
    }

    //! The record numbered \a serial, one of \a count created evenly over two years up to the start of 2026.
    FileGroupData make(int serial, int count)
    {
        static const char *const places[] = {"Harbour",      "North ridge", "Airfield",    "Coastal station",
                                             "Valley relay", "Depot",       "Border post", "Lakeside",
                                             "Köln",         "Zürich"};
        static const char *const activities[] = {"survey", "intercept",   "scan",       "recording",
                                                 "report", "calibration", "field test", "analysis"};
        static const char *const comments[] = {"",
                                               "checked",
                                               "raw data, not yet reviewed",
                                               "second pass after recalibrating the receiver",
                                               "copy requested by the analysis team",
                                               "incomplete: the recording stopped early"};
        static const char *const teams[] = {"signals", "analysis", "field", "operations", "lab"};
        static const char *const versions[] = {"1.0", "1.1", "2.0", "2.1-draft"};
        static const Kavro::FileType types[] = {Kavro::FileTypeImage,
                                                Kavro::FileTypeAudioRecording,
                                                Kavro::FileTypeScanRecording,
                                                Kavro::FileTypeIfRecording,
                                                Kavro::FileTypeDecodedTextXml,
                                                Kavro::FileTypeReportFragment,
                                                Kavro::FileTypeTechnicalParameters,
                                                Kavro::FileTypeTransmissionSystemBinary};
        // A store at rest: none in the middle of a move, which the server would put back when it starts.
        static const Kavro::LocationState states[] = {Kavro::LocationCentral, Kavro::LocationCentral,
                                                      Kavro::LocationCentral, Kavro::LocationCentral,
                                                      Kavro::LocationRemote,  Kavro::LocationCentralNotConverted};
        static const char *const fileNames[] = {"recording.wav",  "spectrum.png", "notes.txt",
                                                "parameters.xml", "report.pdf",   "raw.bin"};

        const QString guid = QUuid::createUuid().toString(QUuid::WithoutBraces);
        const qint64 twoYears = 2LL * 365 * 24 * 3600 * 1000;
        const QDateTime created = QDateTime(QDate(2024, 1, 1), QTime(0, 0), Qt::UTC)
                                      .addMSecs(twoYears * serial / count + qint64(m_random() % 3600000));
        const QDateTime modified = created.addSecs(qint64(m_random() % (30 * 24 * 3600)));
        FileGroupData record;
        record.setGuid(guid);
        record.setName(QStringLiteral("%1 %2 R-%3")
                           .arg(QString::fromUtf8(pick(places, m_random)), QLatin1String(pick(activities, m_random)))
                           .arg(serial, 6, 10, QLatin1Char('0')));
        record.setFileType(pick(types, m_random));
        record.setLocationState(pick(states, m_random));
        record.setCreationTime(created);
        record.setModificationTime(modified);
        if (m_random() % 10 < 6)
            record.setBackupTime(modified.addDays(1));
        if (m_random() % 2 == 0)
            record.setLifeCycle(created.addYears(5));
        record.setComment(QLatin1String(pick(comments, m_random)));
        record.setCreator(userName(int(m_random() % s_userCount)));
        record.setDetail(QStringLiteral("station %1, channel %2").arg(m_random() % 60).arg(m_random() % 16));
        record.setPath(m_data + QLatin1Char('/') + guid); // not made on disk: queries read only the database
        record.setTeam(QLatin1String(pick(teams, m_random)));
        record.setVersion(QLatin1String(pick(versions, m_random)));
        record.setReservedStorage(qint64(m_random() % 2048));
        FileGroupData::FileList files;
        for (quint32 id = 1, last = 1 + quint32(m_random() % 5); id <= last; ++id)
            files.append({QString::number(id) + QLatin1Char('_') + QLatin1String(pick(fileNames, m_random)), id});
        record.setFileList(files);
        return record;
    }

    static QString userName(int index) { return QStringLiteral("user%1").arg(index, 2, 10, QLatin1Char('0')); }

private:
    const QString m_data;
    std::mt19937 m_random{2026};
};

// Stores \a count records in one transaction, through the store's own statements.
KavroError fillStore(ArchiveStore &store, const QString &dataDirectory, int count)
{
    GroupMaker maker(dataDirectory);
    return store.inTransaction([&] {
        for (int serial = 0; serial < count; ++serial) {
            const KavroError error = store.createFileGroup(maker.make(serial, count));
            if (error != NoError)
                return error;
        }
        for (int user = 0; user < s_userCount; ++user)
            store.noteUser(GroupMaker::userName(user));
        return NoError;
    });
}

//! The groups of a reply document, or -1 when it is not an error-free reply.
qsizetype groupsIn(const QByteArray &reply)
{
    const Kavro::SoapMessage message = Kavro::readSoapMessage(reply, Kavro::SoapSender::Server);
    return message.readError.isEmpty() && message.error == NoError ? message.groups.size() : -1;
}

// Alternates rounds of \a calls queries through \a client with as many of the store's own query in this
// process, checks that both found the same groups, and prints the figures; false when a query failed.
bool benchQuery(RawClient &client, ArchiveStore &store, const char *criteria, const FileQuery &query, int calls,
                int storeGroups)
{
    const QByteArray frame =
        framed(Kavro::QueryFileGroupsMessage(query, QStringLiteral("bench"), QStringLiteral("bench")).writeRequest());
    qsizetype found = 0;
    const auto viaSocket = [&] {
        return client.call(frame);
    };
    const auto viaStore = [&] {
        found = store.query(query).size();
        return true;
    };
    std::vector<double> socket;
    std::vector<double> local;
    bool ok = timeCalls(1, viaSocket, &socket) && timeCalls(1, viaStore, &local); // warm-up
    socket.clear();
    local.clear();
    for (int i = 0; ok && i < s_rounds; ++i)
        ok = timeCalls(calls, viaSocket, &socket) && timeCalls(calls, viaStore, &local);
    if (!ok || groupsIn(client.reply()) != found) {
        std::fprintf(stderr, "bench_server: QueryFileGroups (%s) failed\n", criteria);
        return false;
    }
    const Figures ours = figuresOf(socket);
    const Figures sql = figuresOf(local);
    const qint64 replyBytes = client.reply().size();
    std::printf("QueryFileGroups, %s, of %d groups: %lld found, %lld reply bytes; median %.2f ms, p99 %.2f ms "
                "(%d calls); the store's query in process %.2f ms, %.2f ms\n",
                criteria, storeGroups, qint64(found), replyBytes, ours.median, ours.p99, calls * s_rounds, sql.median,
                sql.p99);
    std::printf(
        "{\"figure\": \"QueryFileGroups\", \"criteria\": \"%s\", \"store_groups\": %d, \"matches\": %lld, "
        "\"reply_bytes\": %lld, \"median_ms\": %.3f, \"p99_ms\": %.3f, \"baseline\": \"store query in process\", "
        "\"baseline_median_ms\": %.3f, \"baseline_p99_ms\": %.3f}\n",
        criteria, storeGroups, qint64(found), replyBytes, ours.median, ours.p99, sql.median, sql.p99);
    return true;
}

// One connection's share of the writes: file groups, each created and given three files, one request at a time.
class Writer
{
public:
    //! Groups are made in \a data/<guid>, where each file is put just before it is added.
    Writer(quint16 port, int requests, const QString &data)
        : m_client(port)
    {
        QString guid;
        for (int i = 0; i < requests; ++i) {
            if (i % (1 + s_filesPerWrittenGroup) == 0) {
                guid = QUuid::createUuid().toString(QUuid::WithoutBraces);
                m_steps.push_back(
                    {framed(Kavro::CreateFileGroupMessage(
                                QStringLiteral("written by the benchmark"), guid, QStringLiteral("load"),
                                QStringLiteral("Load test ") + guid.left(8), Kavro::FileTypeImage, QDateTime(), 0,
                                QStringLiteral("lab"), QStringLiteral("writer"), QStringLiteral("1.0"), QString())
                                .writeRequest()),
                     QString(), QString()});
            } else {
                const QString name = QStringLiteral("frame_%1.png").arg(i);
                m_steps.push_back({framed(Kavro::AddFileMessage(guid, name, 0).writeRequest()),
                                   data + QLatin1Char('/') + guid, name});
            }
        }
    }

    bool isConnected() const { return m_client.isConnected(); }

    //! Sends every request in turn; true when each was answered without error.
    bool run()
    {
        for (const Step &step : m_steps) {
            if ((!step.file.isEmpty() && !placeFile(step.directory, step.file)) || !m_client.call(step.frame)
                || groupsIn(m_client.reply()) < 0)
                return false;
        }
        return true;
    }

private:
    struct Step {
        QByteArray frame;
        QString directory; // where the file to add is put first, for AddFile
        QString file;
    };
    RawClient m_client;
    std::vector<Step> m_steps;
};

// Requests per second of \a requests in all, spread over \a connections at once; 0 when one failed.
double writeRate(quint16 port, int connections, int requests, const QString &data)
{
    std::vector<std::unique_ptr<Writer>> writers;
    for (int i = 0; i < connections; ++i) {
        writers.push_back(std::make_unique<Writer>(port, requests / connections, data));
        if (!writers.back()->isConnected())
            return 0;
    }
    std::promise<void> go;
    const std::shared_future<void> started = go.get_future().share();
    std::vector<std::future<bool>> results;
    for (const auto &writer : writers) {
        results.push_back(std::async(std::launch::async, [&writer, started] {
            started.wait();
            return writer->run();
        }));
    }
    const auto start = Clock::now();
    go.set_value();
    bool ok = true;
    for (auto &result : results)
        ok = result.get() && ok;
    return ok ? requests / secondsSince(start) : 0;
}
} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    std::setvbuf(stdout, nullptr, _IOLBF, 0); // each figure as soon as it is taken: the whole run takes a while
    const int groups = argc > 1 ? std::max(1000, atoi(argv[1])) : 100000;
    const int writesEach = argc > 2 ? std::max(8, atoi(argv[2])) : 200;

    QTemporaryDir directory;
    Kavro::Server::StorePaths paths;
    ArchiveStore store;
    QString error;
    if (!paths.create(directory.path(), QString(), QString(), &error) || !store.open(paths.database, &error)) {
        std::fprintf(stderr, "bench_server: %s\n", qPrintable(error));
        return 1;
    }
    const auto fillStart = Clock::now();
    if (fillStore(store, paths.data, groups) != NoError) {
        std::fprintf(stderr, "bench_server: filling the store failed\n");
        return 1;
    }
    const double fillSeconds = secondsSince(fillStart);
    std::printf("store filled through ArchiveStore in one transaction: %d groups in %.2f s (%.0f groups/s)\n", groups,
                fillSeconds, groups / fillSeconds);
    std::printf("{\"figure\": \"store fill\", \"groups\": %d, \"seconds\": %.2f}\n", groups, fillSeconds);

    QProcess server;
    const quint16 port = startServer(server, directory.path());
    RawClient client(port);
    if (port == 0 || !client.isConnected()) {
        std::fprintf(stderr, "bench_server: kavro-server did not start\n");
        return 1;
    }

    // What a user types into a search box: part of a record number, found in 10 names (a scan of every name).
    FileQuery nameSearch;
    nameSearch.SetFileGroupSearchText(QStringLiteral("r-00471"));
    // A narrow range on an indexed column: the groups created in one hour, about five.
    FileQuery createdInOneHour;
    createdInOneHour.SetCreationTimeMin(QDateTime(QDate(2025, 3, 1), QTime(12, 0), Qt::UTC));
    createdInOneHour.SetCreationTimeMax(QDateTime(QDate(2025, 3, 1), QTime(13, 0), Qt::UTC));
    if (!benchQuery(client, store, "name search", nameSearch, 20, groups)
        || !benchQuery(client, store, "creation time, one hour", createdInOneHour, 20, groups)
        || !benchQuery(client, store, "none", FileQuery(), 2, groups))
        return 1;

    // One connection, then eight, alternated; the same number of requests each time.
    const int requests = writesEach * s_writers;
    std::vector<double> alone;
    std::vector<double> together;
    for (int i = 0; i < s_rounds; ++i) {
        alone.push_back(writeRate(port, 1, requests, paths.data));
        together.push_back(writeRate(port, s_writers, requests, paths.data));
    }
    if (std::count(alone.begin(), alone.end(), 0.0) + std::count(together.begin(), together.end(), 0.0) > 0) {
        std::fprintf(stderr, "bench_server: a write failed\n");
        return 1;
    }
    const double aloneRate = figuresOf(alone).median;
    const double togetherRate = figuresOf(together).median;
    std::printf("writes (CreateFileGroup + %d AddFile), %d requests: %d connections %.0f requests/s, one connection "
                "%.0f requests/s; ratio %.2fx\n",
                s_filesPerWrittenGroup, requests, s_writers, togetherRate, aloneRate, togetherRate / aloneRate);
    std::printf("{\"figure\": \"writes\", \"connections\": %d, \"requests\": %d, \"requests_per_s\": %.0f, "
                "\"baseline\": \"one connection\", \"baseline_requests_per_s\": %.0f}\n",
                s_writers, requests, togetherRate, aloneRate);

    server.terminate();
    server.waitForFinished(10000);
    return 0;
}
