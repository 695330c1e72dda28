// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "errorhandler_p.h"
#include "fakeserver.h"
#include "kavroclient_p.h"
#include "temporarysettings.h"
#include "tracecapture.h"
#include "workerthread.h"

#include <kavro/filequery.h>
#include <kavro/kavroclient.h>

#include <QDir>
#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <malloc.h>

#include <functional>
#include <memory>
#include <vector>

using namespace Kavro;

using Call = std::function<QVariant(KavroClient &)>;
using AsyncCall = std::function<QString(KavroClient &)>;
Q_DECLARE_METATYPE(Call)
Q_DECLARE_METATYPE(AsyncCall)

class tst_KavroClient : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void availability_data();
    void availability();
    void configuration_data();
    void configuration();
    void createGuid();
    void storageDirectoryWarning_data();
    void storageDirectoryWarning();
    void blockingResults_data();
    void blockingResults();
    void blockingFailures_data();
    void blockingFailures();
    void failedRequestsAreNeverSent_data();
    void failedRequestsAreNeverSent();
    void notConnected_data();
    void notConnected();
    void eightThreadsAtOnce();
    void errorRecordsLeaveWithTheirThreads();
    void createFileGroup_data();
    void createFileGroup();
    void addFileSendsTheName_data();
    void addFileSendsTheName();
    void rovecWithoutSubsystem();
    void isValidUrl_data();
    void isValidUrl();
    void asynchronousSignals_data();
    void asynchronousSignals();
    void identityAndTraces();
    void memoryBoundedPerConnection();
    void destroyedInEveryState_data();
    void destroyedInEveryState();

private:
    void configure(const QByteArray &extra = QByteArray());
    std::unique_ptr<KavroClient> connectedClient();
    QByteArray lastRequest(const QString &command) const;

    std::unique_ptr<QTemporaryDir> m_storage;
    std::unique_ptr<FakeServer> m_server;
    std::unique_ptr<TemporarySettings> m_settings;
};

void tst_KavroClient::init()
{
    ErrorHandler::instance().setTraceMask(ErrorHandler::TraceInfo | ErrorHandler::TraceWarning);
    m_storage = std::make_unique<QTemporaryDir>();
    m_server = std::make_unique<FakeServer>();
    QVERIFY(m_server->listen());
    m_server->answerRequests(m_storage->path());
    configure();
}

void tst_KavroClient::cleanup()
{
    m_server.reset();
    m_settings.reset();
    m_storage.reset();
}

void tst_KavroClient::configure(const QByteArray &extra)
{
    m_settings.reset();
    m_settings = std::make_unique<TemporarySettings>("[KAVRO]\nServerHost=127.0.0.1\nXmlPort="
                                                         + QByteArray::number(m_server->port())
                                                         + "\nReconnectIntervalMs=20\n" + extra,
                                                     true);
    KavroClient::ClientConfig::instance().reload();
}

std::unique_ptr<KavroClient> tst_KavroClient::connectedClient()
{
    auto client = std::make_unique<KavroClient>();
    QSignalSpy connected(client.get(), &KavroClient::connected);
    if (!connected.wait(10000))
        return nullptr;
    return client;
}

QByteArray tst_KavroClient::lastRequest(const QString &command) const
{
    const QList<QByteArray> frames = m_server->frames();
    for (auto frame = frames.crbegin(); frame != frames.crend(); ++frame) {
        if (FakeServer::commandOf(*frame) == command)
            return *frame;
    }
    return QByteArray();
}

void tst_KavroClient::availability_data()
{
    QTest::addColumn<QByteArray>("ini");
    QTest::addColumn<bool>("explicitIdentity");
    QTest::addColumn<bool>("available");

    QTest::newRow("no server configured") << QByteArray("[KAVRO]\nXmlPort=1\n") << false << false;
    QTest::newRow("server configured") << QByteArray("[KAVRO]\nServerHost=127.0.0.1\nXmlPort=1\n") << false << true;
    QTest::newRow("explicit identity without configuration") << QByteArray() << true << true;
}

void tst_KavroClient::availability()
{
    QFETCH(QByteArray, ini);
    QFETCH(bool, explicitIdentity);
    QFETCH(bool, available);

    m_settings.reset(); // restores the variable before the next one sets it
    m_settings = std::make_unique<TemporarySettings>(ini, true);
    KavroClient::ClientConfig::instance().reload();
    const TraceCapture capture;
    const auto client = explicitIdentity
        ? std::make_unique<KavroClient>(QStringLiteral("127.0.0.1"), 1, QString(), QString(), QString())
        : std::make_unique<KavroClient>();
    QCOMPARE(KavroClient::IsKavroAvailable(), available);
    QCOMPARE(client->GetHost().isEmpty(), !available); // no sender without service
    QVERIFY(!client->IsConnected());
    if (!available) {
        QCOMPARE(client->GetUserList(), QStringList());
        QCOMPARE(client->GetError(), NoError);
        QVERIFY(capture.texts().contains(QStringLiteral("KavroClient::GetUserList: no kavro available")));
    }
}

void tst_KavroClient::configuration_data()
{
    QTest::addColumn<QByteArray>("ini");
    QTest::addColumn<QString>("host"); // for the two-argument constructor
    QTest::addColumn<int>("port");
    QTest::addColumn<QString>("expectedHost");
    QTest::addColumn<int>("expectedPort");
    QTest::addColumn<int>("compressionRate");

    // Addresses, not names: a name lookup still pending when the client goes is raced inside Qt.
    const QByteArray server = "[KAVRO]\nServerHost=127.0.0.2\n";
    QTest::newRow("defaults") << server << QString() << 0 << QStringLiteral("127.0.0.2") << 5223 << -1;
    QTest::newRow("zero rate written as -1") << server + "CompressionRate=0\n"
                                             << QString() << 0 << QStringLiteral("127.0.0.2") << 5223 << -1;
    QTest::newRow("rate kept") << server + "CompressionRate=6\nXmlPort=7000\n"
                               << QString() << 0 << QStringLiteral("127.0.0.2") << 7000 << 6;
    QTest::newRow("explicit host and port win")
        << server << QStringLiteral("127.0.0.3") << 7001 << QStringLiteral("127.0.0.3") << 7001 << -1;
}

void tst_KavroClient::configuration()
{
    QFETCH(QByteArray, ini);
    QFETCH(QString, host);
    QFETCH(int, port);
    QFETCH(QString, expectedHost);
    QFETCH(int, expectedPort);
    QFETCH(int, compressionRate);

    m_settings.reset(); // restores the variable before the next one sets it
    m_settings = std::make_unique<TemporarySettings>(ini, true);
    KavroClient::ClientConfig::instance().reload();
    const KavroClient client(host, static_cast<quint16>(port));
    QCOMPARE(client.GetHost(), expectedHost);
    QCOMPARE(int(client.GetPort()), expectedPort);
    QCOMPARE(KavroClient::GetCompressionRate(), compressionRate);
    QFile file(m_settings->path());
    QVERIFY(file.open(QIODevice::ReadOnly));
    QVERIFY(file.readAll().contains(QByteArray("CompressionRate=" + QByteArray::number(compressionRate))));
}

void tst_KavroClient::createGuid()
{
    const QString first = KavroClient::CreateGuid();
    QCOMPARE(first.size(), 36);
    QVERIFY(!first.contains(QLatin1Char('{')) && !first.contains(QLatin1Char('}')));
    QVERIFY(first != KavroClient::CreateGuid());
}

void tst_KavroClient::storageDirectoryWarning_data()
{
    QTest::addColumn<QString>("directory");
    QTest::addColumn<bool>("warned");

    QTest::newRow("existing") << QString() << false; // the temporary storage
    QTest::newRow("empty") << QStringLiteral("") << true;
    QTest::newRow("missing") << QStringLiteral("/nonexistent/kavro/store") << true;
}

void tst_KavroClient::storageDirectoryWarning()
{
    QFETCH(QString, directory);
    QFETCH(bool, warned);

    if (!directory.isNull())
        m_server->answerRequests(directory);
    const TraceCapture capture;
    const auto client = connectedClient();
    QVERIFY(client);
    const QString warning = QStringLiteral("Directory does not exist: ") + directory;
    QCOMPARE(capture.texts().contains(warning), warned);
    QVERIFY(client->IsConnected());

    // Without a storage directory a group has nowhere to go: not even the current directory.
    const QString guid = KavroClient::CreateGuid();
    const int error = inWorkerThread([&] {
        QString path;
        client->CreateFileGroup(QStringLiteral("1"), QDateTime::currentDateTimeUtc(), QString(), QString(),
                                FileTypeImage, 0, QStringLiteral("n"), path, guid);
        return int(client->GetError());
    });
    QCOMPARE(error, warned ? int(ErrorCreatePath) : int(NoError));
    const QString year = QString::number(QDate::currentDate().year());
    QVERIFY(!QDir::current().entryList(QDir::Dirs | QDir::NoDotAndDotDot).contains(year));
    QCOMPARE(lastRequest(QStringLiteral("CreateFileGroup")).isEmpty(), warned);
}

void tst_KavroClient::blockingResults_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QByteArray>("fields");
    QTest::addColumn<Call>("call");
    QTest::addColumn<QVariant>("expected");

    const QByteArray ok = "<m:Error>0</m:Error>";
    QTest::newRow("user list with an empty name")
        << QStringLiteral("GetUserList") << "<m:Users><m:User>a</m:User><m:User/><m:User>b</m:User></m:Users>" + ok
        << Call([](KavroClient &c) {
               return c.GetUserList();
           })
        << QVariant(QStringList{QStringLiteral("a"), QString(), QStringLiteral("b")});
    QTest::newRow("empty application list")
        << QStringLiteral("GetApplicationList") << "<m:Applications/>" + ok << Call([](KavroClient &c) {
               return c.GetApplicationList();
           })
        << QVariant(QStringList());
    QTest::newRow("file list") << QStringLiteral("GetFileList")
                               << "<m:Files><m:File><m:FileId>7</m:FileId><m:FileName>a</m:FileName></m:File></m:Files>"
            + ok << Call([](KavroClient &c) {
                                      return c.GetFileList(KavroUrl(QStringLiteral("kavro:///G")));
                                  })
                               << QVariant(QStringList{QStringLiteral("7"), QStringLiteral("a")});
    QTest::newRow("request file") << QStringLiteral("RequestFile") << "<m:Path>/store/f.txt</m:Path>" + ok
                                  << Call([](KavroClient &c) {
                                         return c.RequestFile(3, QStringLiteral("G"), LockRead);
                                     })
                                  << QVariant(QStringLiteral("/store/f.txt"));
    QTest::newRow("add file") << QStringLiteral("AddFile") << "<m:FileId>12</m:FileId>" + ok
                              << Call([](KavroClient &c) {
                                     return c.AddFile(QStringLiteral("/tmp/x.bin"), QStringLiteral("G"));
                                 })
                              << QVariant(12u);
    QTest::newRow("query")
        << QStringLiteral("QueryFileGroups")
        << "<m:FileGroup><m:Guid>g1</m:Guid></m:FileGroup><m:FileGroup><m:Guid>g2</m:Guid></m:FileGroup>" + ok
        << Call([](KavroClient &c) {
               unsigned int count = 99;
               const QStringList guids = c.QueryFiles(FileQuery(), count);
               return QVariant(guids + QStringList{QString::number(count)});
           })
        << QVariant(QStringList{QStringLiteral("g1"), QStringLiteral("g2"), QStringLiteral("2")});
    QTest::newRow("move to NAS and wait") << QStringLiteral("MoveToNas") << ok << Call([](KavroClient &c) {
        c.MoveToNasSync(QStringLiteral("G"));
        return QVariant(int(c.GetError()));
    }) << QVariant(0);
}

void tst_KavroClient::blockingResults()
{
    QFETCH(QString, command);
    QFETCH(QByteArray, fields);
    QFETCH(Call, call);
    QFETCH(QVariant, expected);

    m_server->setReplyFields(command, fields);
    const auto client = connectedClient();
    QVERIFY(client);
    const QVariant result = inWorkerThread([&] {
        return call(*client);
    });
    QCOMPARE(result, expected);
}

void tst_KavroClient::blockingFailures_data()
{
    QTest::addColumn<QByteArray>("extraSettings");
    QTest::addColumn<std::function<void(FakeServer &)>>("script");
    QTest::addColumn<int>("error");
    QTest::addColumn<int>("calls"); // in a row, each once the client is connected again

    using Script = std::function<void(FakeServer &)>;
    QTest::newRow("error reply") << QByteArray() << Script([](FakeServer &s) {
        s.setReplyFields(QStringLiteral("GetUserList"), "<m:Error>47</m:Error>");
    }) << 47 << 1;
    QTest::newRow("unknown reply releases the caller") << QByteArray() << Script([](FakeServer &s) {
        s.setReplyName(QStringLiteral("GetUserList"), "FutureReply");
    }) << 41 << 1;
    QTest::newRow("reply of another command") << QByteArray() << Script([](FakeServer &s) {
        s.setReplyName(QStringLiteral("GetUserList"), "GetApplicationListReply");
    }) << 42 << 1;
    // The waiter and the connection's watchdog share the timeout; the caller hears 44 whichever is first.
    QTest::newRow("overdue, always 44") << QByteArray("ReplyTimeoutMs=150\n") << Script([](FakeServer &s) {
        s.setSilent(QStringLiteral("GetUserList"));
    }) << 44 << 6;
    QTest::newRow("connection dropped while waiting") << QByteArray() << Script([](FakeServer &s) {
        s.setSilent(QStringLiteral("GetUserList"));
        QObject::connect(&s, &FakeServer::frameReceived, &s, [&s](const QByteArray &frame) {
            if (FakeServer::commandOf(frame) == QLatin1String("GetUserList"))
                s.dropClient();
        });
    }) << 43 << 1;
}

void tst_KavroClient::blockingFailures()
{
    QFETCH(QByteArray, extraSettings);
    QFETCH(std::function<void(FakeServer &)>, script);
    QFETCH(int, error);
    QFETCH(int, calls);

    configure(extraSettings);
    script(*m_server);
    const auto client = connectedClient();
    QVERIFY(client);
    const TraceCapture capture;
    for (int call = 0; call < calls; ++call) {
        QTRY_VERIFY(client->IsConnected());
        const auto [users, callError] = inWorkerThread([&] {
            const QStringList result = client->GetUserList();
            return std::make_pair(result, int(client->GetError()));
        });
        QCOMPARE(users, QStringList());
        QCOMPARE(callError, error);
    }
    QCOMPARE(client->GetError(), NoError); // the error belongs to the calling thread
    if (error == ErrorNotConnected || error == ErrorReplyTimeout)
        QVERIFY(capture.texts().contains(QStringLiteral("KavroClient::GetUserList: AsyncHandler failed")));
}

void tst_KavroClient::failedRequestsAreNeverSent_data()
{
    QTest::addColumn<QByteArray>("extraSettings");
    QTest::addColumn<bool>("dropConnection");
    QTest::addColumn<int>("stalledError");

    QTest::newRow("connection lost") << QByteArray() << true << int(ErrorNotConnected);
    QTest::newRow("stalled call overdue") << QByteArray("ReplyTimeoutMs=300\n") << false << int(ErrorReplyTimeout);
}

void tst_KavroClient::failedRequestsAreNeverSent()
{
    QFETCH(QByteArray, extraSettings);
    QFETCH(bool, dropConnection);
    QFETCH(int, stalledError);

    configure(extraSettings);
    m_server->setSilent(QStringLiteral("GetUserList"));
    const auto client = connectedClient();
    QVERIFY(client);

    // A blocking call stalls the line; a creation queues behind it.
    const TraceCapture capture;
    int stalled = -1;
    int created = -1;
    std::unique_ptr<QThread> staller(QThread::create([&] {
        client->GetUserList();
        stalled = client->GetError();
    }));
    staller->start();
    QTRY_VERIFY(!lastRequest(QStringLiteral("GetUserList")).isEmpty());
    std::unique_ptr<QThread> creator(QThread::create([&] {
        QString path;
        client->CreateFileGroup(QStringLiteral("1"), QDateTime::currentDateTimeUtc(), QString(), QString(),
                                FileTypeImage, 0, QStringLiteral("late"), path);
        created = client->GetError();
    }));
    creator->start();
    QTRY_VERIFY(capture.texts().join(QLatin1Char('\n')).contains(QStringLiteral("KavroClient::CreateFG:")));
    if (dropConnection)
        m_server->dropClient();
    QTRY_VERIFY_WITH_TIMEOUT(staller->isFinished() && creator->isFinished(), 30000);
    QCOMPARE(stalled, stalledError);
    QCOMPARE(created, int(ErrorNotConnected));

    // On the new connection the line flows again, and the failed creation is not among what goes out.
    m_server->answerRequests(m_storage->path());
    QTRY_VERIFY(client->IsConnected());
    for (int probe = 0; probe < 2; ++probe)
        QVERIFY(!inWorkerThread([&] {
                     return client->GetApplicationList();
                 }).isEmpty()
                || client->GetError() == NoError);
    QVERIFY(lastRequest(QStringLiteral("CreateFileGroup")).isEmpty());
}

void tst_KavroClient::notConnected_data()
{
    QTest::addColumn<Call>("call");
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QVariant>("empty");

    const QString G = QStringLiteral("G");
    const auto row = [](const char *tag, const Call &call, const char *operation, const QVariant &empty) {
        QTest::newRow(tag) << call << QString::fromLatin1(operation) << empty;
    };
    row(
        "user list",
        [](KavroClient &c) {
            return c.GetUserList();
        },
        "GetUserList", QStringList());
    row(
        "add file",
        [G](KavroClient &c) {
            return c.AddFile(QStringLiteral("/a/b"), G);
        },
        "AddFileHelper", 0u);
    row(
        "request file",
        [G](KavroClient &c) {
            return c.RequestFile(1, G, LockRead);
        },
        "RequestFile", QString());
    row(
        "create group",
        [](KavroClient &c) {
            QString path;
            return c.CreateFileGroup(QString(), QDateTime(), QString(), QString(), FileTypeImage, 0,
                                     QStringLiteral("n"), path);
        },
        "CreateFileGroupHelper", QString());
    row(
        "asynchronous",
        [G](KavroClient &c) {
            return c.DeleteFileGroupAsync(G);
        },
        "DeleteFileGroup", QString());
}

void tst_KavroClient::notConnected()
{
    QFETCH(Call, call);
    QFETCH(QString, operation);
    QFETCH(QVariant, empty);

    m_server->setSilent(QStringLiteral("GetBasePath")); // the TCP connection stands, the client is not connected
    KavroClient client;
    QVERIFY(m_server->waitForFrames(1));
    const TraceCapture capture;
    const QVariant result = call(client);
    QCOMPARE(result, empty);
    QCOMPARE(client.GetError(), ErrorNotConnected);
    QVERIFY(capture.texts().contains(QStringLiteral("KavroClient::%1: no commandsender available").arg(operation)));
    QCOMPARE(m_server->frames().size(), 1);
}

void tst_KavroClient::eightThreadsAtOnce()
{
    // Each group's file list names the group.
    m_server->setResponder([](const QByteArray &request) {
        const QString id = FakeServer::requestIdOf(request);
        if (FakeServer::commandOf(request) == QLatin1String("GetBasePath"))
            return QList<QByteArray>{FakeServer::soapReply(id, "GetBasePathReply", "<m:Path>/</m:Path>")};
        const QByteArray guid = request.mid(request.indexOf("<m:Guid>") + 8, 2);
        return QList<QByteArray>{FakeServer::soapReply(id, "GetFileListReply",
                                                       "<m:Files><m:File><m:FileId>1</m:FileId><m:FileName>" + guid
                                                           + "</m:FileName></m:File></m:Files>")};
    });
    const auto client = connectedClient();
    QVERIFY(client);

    constexpr int count = 8;
    std::vector<QStringList> results(count);
    std::vector<std::unique_ptr<QThread>> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back(QThread::create([&, i] {
            for (int round = 0; round < 5 && results[i].isEmpty() == (round == 0); ++round)
                results[i] = client->GetFileList(QStringLiteral("g%1").arg(i));
        }));
        threads.back()->start();
    }
    QVERIFY(QTest::qWaitFor(
        [&] {
            return std::all_of(threads.begin(), threads.end(), [](const auto &t) {
                return t->isFinished();
            });
        },
        60000));
    for (int i = 0; i < count; ++i)
        QCOMPARE(results[i], QStringList({QStringLiteral("1"), QStringLiteral("g%1").arg(i)}));
}

void tst_KavroClient::errorRecordsLeaveWithTheirThreads()
{
    m_server->setSilent(QStringLiteral("GetBasePath"));
    const qsizetype before = KavroClientPrivate::errorRecordEntries();
    {
        KavroClient client;
        QVERIFY(m_server->waitForFrames(1));
        // The threads run at once, so each is a thread of its own.
        constexpr int count = 32;
        std::atomic<int> failures{0};
        std::vector<std::unique_ptr<QThread>> threads;
        for (int i = 0; i < count; ++i) {
            threads.emplace_back(QThread::create([&] {
                client.GetUserList();
                failures += client.GetError() == ErrorNotConnected;
            }));
            threads.back()->start();
        }
        for (const auto &thread : threads)
            QVERIFY(thread->wait(10000));
        QCOMPARE(failures.load(), count);
        QCOMPARE(client.GetError(), NoError); // the workers' failures are theirs alone
        // A thread's record goes in its exit, which may end after wait() returns.
        QTRY_COMPARE(KavroClientPrivate::errorRecordEntries(), before);

        client.GetUserList();
        QCOMPARE(KavroClientPrivate::errorRecordEntries(), before + 1);
    }
    QCOMPARE(KavroClientPrivate::errorRecordEntries(), before);
}

void tst_KavroClient::createFileGroup_data()
{
    QTest::addColumn<QString>("guid");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<int>("error");

    const QByteArray ok = "<m:Error>0</m:Error>";
    QTest::newRow("fresh guid") << QString() << QStringLiteral("survey") << ok << 0;
    QTest::newRow("given guid") << QStringLiteral("6f1c2a4e-0000-4000-8000-00000000abcd") << QStringLiteral("survey")
                                << ok << 0;
    QTest::newRow("name escaping the storage")
        << QString() << QStringLiteral("../../../../../../../../../../tmp/out") << ok << int(ErrorCreatePath);
    QTest::newRow("refused by the server")
        << QString() << QStringLiteral("survey") << QByteArray("<m:Error>4</m:Error>") << int(ErrorNotEnoughStorage);
}

void tst_KavroClient::createFileGroup()
{
    QFETCH(QString, guid);
    QFETCH(QString, name);
    QFETCH(QByteArray, reply);
    QFETCH(int, error);

    m_server->setReplyFields(QStringLiteral("CreateFileGroup"), reply);
    const auto client = connectedClient();
    QVERIFY(client);
    const auto [result, localPath, outcome] = inWorkerThread([&] {
        QString path;
        const QString returned = client->CreateFileGroup(QStringLiteral("1"), QDateTime::currentDateTimeUtc(),
                                                         QString(), QString(), FileTypeImage, 0, name, path, guid);
        return std::make_tuple(returned, path, int(client->GetError()));
    });
    QCOMPARE(outcome, error);
    if (error != NoError) {
        // Nothing is left behind: no request when refused here, no directory when refused there.
        QCOMPARE(result, QString());
        QCOMPARE(lastRequest(QStringLiteral("CreateFileGroup")).isEmpty(), error == ErrorCreatePath);
        QVERIFY(QDir(m_storage->path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot).isEmpty());
        return;
    }
    QCOMPARE(result.size(), 36);
    if (!guid.isEmpty())
        QCOMPARE(result, guid);
    QVERIFY(localPath.startsWith(QDir::toNativeSeparators(m_storage->path() + QLatin1Char('/'))));
    QVERIFY(localPath.endsWith(
        QDir::toNativeSeparators(QLatin1Char('/') + result + QLatin1Char('/') + name + QLatin1Char('/'))));
    QVERIFY(QDir(localPath).exists());
    QVERIFY(lastRequest(QStringLiteral("CreateFileGroup"))
                .contains(QByteArray("<m:Path>" + localPath.toUtf8() + "</m:Path>")));
}

void tst_KavroClient::addFileSendsTheName_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("sent");

    QTest::newRow("directory and name") << QStringLiteral("/data/in/x.bin") << QStringLiteral("x.bin");
    QTest::newRow("name only") << QStringLiteral("x.bin") << QStringLiteral("x.bin");
    QTest::newRow("ends in a separator") << QStringLiteral("/data/in/") << QString();
}

void tst_KavroClient::addFileSendsTheName()
{
    QFETCH(QString, path);
    QFETCH(QString, sent);

    const auto client = connectedClient();
    QVERIFY(client);
    QSignalSpy added(client.get(), &KavroClient::AddFileSg);
    QVERIFY(!client->AddFileAsync(path, QStringLiteral("G"), 0).isEmpty());
    QVERIFY(added.wait());
    QVERIFY(
        lastRequest(QStringLiteral("AddFile")).contains(QByteArray("<m:FileName>" + sent.toUtf8() + "</m:FileName>")));
}

void tst_KavroClient::rovecWithoutSubsystem()
{
    const auto client = connectedClient();
    QVERIFY(client);
    QSignalSpy created(client.get(), &KavroClient::CreateRovecFileGroupSg);
    QString path;
    const QString guid = client->CreateRovecFileGroupAsync(QStringLiteral("rv"), QStringLiteral("rec"), QString(),
                                                           QString(), QString(), FileTypeRovecIqRecording, path);
    QCOMPARE(guid.size(), 36);
    QVERIFY(created.wait());
    QVERIFY(
        lastRequest(QStringLiteral("CreateRovecFileGroup")).contains("<m:SubSystemName>IpAddress</m:SubSystemName>"));
    QVERIFY(QDir(path).exists());
}

void tst_KavroClient::isValidUrl_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QByteArray>("fields");
    QTest::addColumn<bool>("valid");

    const QByteArray files = "<m:Files><m:File><m:FileId>7</m:FileId><m:FileName>3</m:FileName></m:File></m:Files>";
    QTest::newRow("not a kavro URL") << QStringLiteral("file:///tmp/a") << files << false;
    QTest::newRow("group") << QStringLiteral("kavro:///G") << files << true;
    QTest::newRow("listed file") << QStringLiteral("kavro:///G/7") << files << true;
    QTest::newRow("file id only as a name") << QStringLiteral("kavro:///G/3") << files << false;
    QTest::newRow("server error") << QStringLiteral("kavro:///G") << QByteArray("<m:Error>2</m:Error>") << false;
}

void tst_KavroClient::isValidUrl()
{
    QFETCH(QString, url);
    QFETCH(QByteArray, fields);
    QFETCH(bool, valid);

    m_server->setReplyFields(QStringLiteral("GetFileList"), fields);
    const auto client = connectedClient();
    QVERIFY(client);
    QCOMPARE(inWorkerThread([&] {
                 return client->IsValidURL(KavroUrl(url));
             }),
             valid);
}

void tst_KavroClient::asynchronousSignals_data()
{
    QTest::addColumn<AsyncCall>("call");
    QTest::addColumn<QByteArray>("signal");

    const QString G = QStringLiteral("G");
    QTest::newRow("check exists") << AsyncCall([G](KavroClient &c) {
        return c.CheckFileGroupExists(G);
    }) << QByteArray("checkFileGroupExistsSg(QString,bool,int,QString)");
    QTest::newRow("delete group") << AsyncCall([G](KavroClient &c) {
        return c.DeleteFileGroupAsync(G);
    }) << QByteArray("deleteFileGroupSg(QString,int,QString)");
    QTest::newRow("delete file") << AsyncCall([](KavroClient &c) {
        return c.DeleteFileName(KavroUrl(QStringLiteral("kavro:///G/2")));
    }) << QByteArray("DeleteFileNameSg(QString,int,QString)");
    QTest::newRow("export") << AsyncCall([G](KavroClient &c) {
        return c.ExportArchiveAsync({G}, QStringLiteral("/out"));
    }) << QByteArray("exportArchiveSg(QString,int,QString)");
    QTest::newRow("import") << AsyncCall([](KavroClient &c) {
        return c.ImportArchiveAsync({QStringLiteral("/a")});
    }) << QByteArray("importArchiveSg(QString,int,QString)");
    QTest::newRow("users") << AsyncCall([](KavroClient &c) {
        return c.GetUserListAsync();
    }) << QByteArray("GetUserListSg(QString,QStringList,int,QString)");
    QTest::newRow("applications") << AsyncCall([](KavroClient &c) {
        return c.GetApplicationListAsync();
    }) << QByteArray("GetApplicationListSg(QString,QStringList,int,QString)");
    QTest::newRow("files") << AsyncCall([G](KavroClient &c) {
        return c.GetFileListAsync(G);
    }) << QByteArray("GetFileListSg(QString,QStringList,int,QString)");
    QTest::newRow("query") << AsyncCall([](KavroClient &c) {
        return c.QueryFilesAsync(FileQuery());
    }) << QByteArray("queryFileGroupsSg(QString,QStringList,int,int,QString)");
    QTest::newRow("metadata") << AsyncCall([G](KavroClient &c) {
        return c.QueryMetaDataAsync(G, QStringLiteral("a"));
    }) << QByteArray("QueryMetaDataSg(QString,Kavro::FileGroupData,int,QString)");
    QTest::newRow("progress") << AsyncCall([G](KavroClient &c) {
        return c.QueryLocationStateProgress(G);
    }) << QByteArray("queryLocationStateProgressSg(QString,int,double,int,QString)");
    QTest::newRow("move") << AsyncCall([](KavroClient &c) {
        return c.MoveToNas(KavroUrl(QStringLiteral("kavro:///G")));
    }) << QByteArray("MoveToNasSg(QString,int,QString)");
    QTest::newRow("request") << AsyncCall([](KavroClient &c) {
        return c.RequestFileAsync(KavroUrl(QStringLiteral("kavro:///G/1")), LockWrite);
    }) << QByteArray("RequestFileSg(QString,QString,int,QString)");
    QTest::newRow("converter") << AsyncCall([](KavroClient &c) {
        return c.RegisterConverterAsync(QStringLiteral("c"), {FileTypeImage});
    }) << QByteArray("RegisterConverterSg(QString,int,QString)");
}

void tst_KavroClient::asynchronousSignals()
{
    QFETCH(AsyncCall, call);
    QFETCH(QByteArray, signal);

    const auto client = connectedClient();
    QVERIFY(client);
    QSignalSpy replied(client.get(), QByteArray("2" + signal).constData());
    QVERIFY(replied.isValid());
    const QString requestId = call(*client);
    QCOMPARE(requestId.size(), 36);
    QVERIFY(replied.wait());
    QCOMPARE(replied.at(0).at(0).toString(), requestId);
}

void tst_KavroClient::identityAndTraces()
{
    const auto client = connectedClient();
    QVERIFY(client);
    client->SetUser(QStringLiteral("carol"));
    client->SetApplication(QStringLiteral("viewer"));
    client->Reconnect();
    QVERIFY(client->IsConnected());

    const TraceCapture capture;
    QSignalSpy closed(client.get(), &KavroClient::CloseFileSg);
    client->CloseFile(KavroUrl(QStringLiteral("kavro:///G/4")));
    client->AddReference(QStringLiteral("G"));
    QVERIFY(closed.wait());
    QTRY_VERIFY(!lastRequest(QStringLiteral("AddReference")).isEmpty());
    QVERIFY(lastRequest(QStringLiteral("CloseFile")).contains("<m:UserName>carol</m:UserName>"));
    QVERIFY(lastRequest(QStringLiteral("AddReference")).contains("<m:Application>viewer</m:Application>"));
    const QStringList lines = capture.texts();
    QVERIFY(lines.contains(QStringLiteral("KavroClient::CloseFile: Start (G, 4)")));
    QVERIFY(lines.contains(QStringLiteral("KavroClient::CloseFile: End (0)")));
    QVERIFY(lines.contains(QStringLiteral("KavroClient::AddReference: Start (G)")));
}

namespace
{
// A figure of /proc/self/status in KiB ("VmRSS", "VmHWM"); -1 where there is none.
qint64 memoryKiB(const QByteArray &name)
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith(QByteArray(name + ':')))
            return line.mid(name.size() + 1).trimmed().split(' ').value(0).toLongLong();
    }
    return -1;
}
} // namespace

void tst_KavroClient::memoryBoundedPerConnection()
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    QSKIP("the sanitizer's allocator keeps freed memory; measured in the plain build");
#endif
    // Large blocks go back to the system when freed, so the figure is what is held, not what the allocator keeps.
    mallopt(M_MMAP_THRESHOLD, 1 << 20);
    constexpr qint64 maxMessageSize = 9 << 20;
    configure("MaxMessageSize=" + QByteArray::number(maxMessageSize) + "\n");
    const auto client = connectedClient();
    QVERIFY(client);
    // Replies nobody waits for, 8 MiB each, sent faster than the client can read them.
    const QByteArray stale =
        FakeServer::soapReply(QStringLiteral("stale"), "GetUserListReply",
                              "<!--" + QByteArray(8 << 20, 'x') + "--><m:Users/><m:Error>0</m:Error>");
    QSignalSpy replies(client.get(), &KavroClient::GetUserListSg);
    QFile peakReset(QStringLiteral("/proc/self/clear_refs"));
    if (!peakReset.open(QIODevice::WriteOnly) || peakReset.write("5") != 1)
        QSKIP("the peak of the resident set cannot be reset here");
    peakReset.close();
    const qint64 before = memoryKiB("VmRSS");

    m_server->sendRepeatedly(stale, 40);
    QTRY_COMPARE_WITH_TIMEOUT(replies.size(), 40, 120000);
    const qint64 grownKiB = memoryKiB("VmHWM") - before;
    qInfo("peak growth over 40 replies of 8 MiB: %lld KiB", grownKiB);
    // Whatever the number of replies: the server's frame and its write buffer, the client's frame being
    // assembled, and the one being read (its bytes, and the reader's text of it in UTF-16, which doubles).
    QVERIFY2(grownKiB * 1024 < 8 * maxMessageSize, qPrintable(QString::number(grownKiB)));
}

void tst_KavroClient::destroyedInEveryState_data()
{
    QTest::addColumn<QString>("state");
    QTest::addColumn<int>("rounds");

    QTest::newRow("never connected") << QStringLiteral("connecting") << 3;
    QTest::newRow("reply outstanding") << QStringLiteral("outstanding") << 3;
    QTest::newRow("another thread in a blocking call") << QStringLiteral("blocking") << 200;
}

void tst_KavroClient::destroyedInEveryState()
{
    QFETCH(QString, state);
    QFETCH(int, rounds);

    if (state == QLatin1String("connecting"))
        m_server->close();
    m_server->setSilent(QStringLiteral("GetUserList"));
    const TraceCapture capture;
    for (int round = 0; round < rounds; ++round) {
        auto client = state == QLatin1String("connecting") ? std::make_unique<KavroClient>() : connectedClient();
        QVERIFY(client);
        const int framesBefore = m_server->frames().size();
        std::unique_ptr<QThread> caller;
        if (state == QLatin1String("outstanding")) {
            QVERIFY(!client->GetUserListAsync().isEmpty());
        } else if (state == QLatin1String("blocking")) {
            caller.reset(QThread::create([&client] {
                client->GetUserList();
            }));
            caller->start();
        }
        if (state != QLatin1String("connecting"))
            QVERIFY(m_server->waitForFrames(framesBefore + 1));

        QElapsedTimer clock;
        clock.start();
        client.reset();
        QVERIFY2(clock.elapsed() < 1000, qPrintable(QString::number(clock.elapsed())));
        if (caller) {
            // The waiting call was released by the destruction, with 43.
            QVERIFY(caller->wait(1000));
            QCOMPARE(capture.texts().count(QStringLiteral("KavroClient::GetUserList: End (43)")), round + 1);
        }
    }
}

QTEST_GUILESS_MAIN(tst_KavroClient)
#include "tst_kavroclient.moc"
