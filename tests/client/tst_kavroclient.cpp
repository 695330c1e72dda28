// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "fakearchive.h"
#include "kavroclient_p.h"
#include "processmemory.h"
#include "tracecapture.h"

#include <kavro/filequery.h>
#include <kavro/kavroclient.h>

#include <QDir>
#include <QElapsedTimer>
#include <QTest>

#include <malloc.h>

#include <memory>
#include <optional>
#include <vector>

using namespace Kavro;

namespace
{
/*!
 * Runs the operation \a name on \a client with fixed arguments (group "G"); its result, or the request id
 * of an asynchronous one. "AddFileAsync <path>" adds that path, "IsValidURL <url>" checks that URL.
 */
QVariant invoke(KavroClient &client, const QByteArray &name)
{
    const QString G = QStringLiteral("G");
    QString path;
    if (name == "GetUserList")
        return client.GetUserList();
    if (name == "GetUserListAsync")
        return client.GetUserListAsync();
    if (name == "GetApplicationListAsync")
        return client.GetApplicationListAsync();
    if (name.startsWith("IsValidURL "))
        return client.IsValidURL(KavroUrl(QString::fromUtf8(name.mid(11))));
    if (name == "GetFileListAsync")
        return client.GetFileListAsync(G);
    if (name == "AddFile")
        return client.AddFile(QStringLiteral("/a/b"), G);
    if (name.startsWith("AddFileAsync "))
        return client.AddFileAsync(QString::fromUtf8(name.mid(13)), G, 0);
    if (name == "RequestFile")
        return client.RequestFile(1, G, LockRead);
    if (name == "RequestFileAsync")
        return client.RequestFileAsync(KavroUrl(QStringLiteral("kavro:///G/1")), LockWrite);
    if (name == "CreateFileGroup")
        return client.CreateFileGroup(QString(), QDateTime(), QString(), QString(), FileTypeImage, 0,
                                      QStringLiteral("n"), path);
    if (name == "QueryFilesAsync")
        return client.QueryFilesAsync(FileQuery());
    if (name == "DeleteFileGroupAsync")
        return client.DeleteFileGroupAsync(G);
    if (name == "DeleteFileName")
        return client.DeleteFileName(KavroUrl(QStringLiteral("kavro:///G/2")));
    if (name == "MoveToNas")
        return client.MoveToNas(KavroUrl(QStringLiteral("kavro:///G")));
    if (name == "MoveToNasSync") {
        client.MoveToNasSync(G);
        return int(client.GetError());
    }
    // The rest return nothing to compare.
    if (name == "CreateRovecFileGroupAsync")
        client.CreateRovecFileGroupAsync(QStringLiteral("rv"), QStringLiteral("rec"), QString(), QString(), QString(),
                                         FileTypeRovecIqRecording, path);
    else if (name == "CloseFile")
        client.CloseFile(KavroUrl(QStringLiteral("kavro:///G/4")));
    else if (name == "AddReference")
        client.AddReference(G);
    return QVariant();
}
} // namespace

class tst_KavroClient : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { m_env = std::make_unique<FakeArchive>(); }
    void cleanup() { m_env.reset(); }
    void configuration_data();
    void configuration();
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
    void createFileGroupFailures_data();
    void createFileGroupFailures();
    void asynchronousRequests_data();
    void asynchronousRequests();
    void memoryBoundedPerConnection_data();
    void memoryBoundedPerConnection();
    void destroyedInEveryState_data();
    void destroyedInEveryState();
    void releaseRightBeforeDestructionLeaves();
    void stateFollowsTheConnection();
    void peersThatAreNoArchive_data();
    void peersThatAreNoArchive();
    void waitForConnectedWithoutEventLoop();

private:
    std::unique_ptr<FakeArchive> m_env;
};

void tst_KavroClient::configuration_data()
{
    QTest::addColumn<QByteArray>("ini");
    QTest::addColumn<QString>("host"); // the constructor's arguments
    QTest::addColumn<int>("port");
    QTest::addColumn<bool>("identity"); // the constructor that takes an identity too
    QTest::addColumn<QString>("expectedHost"); // empty: no service, so no sender
    QTest::addColumn<int>("expectedPort");
    QTest::addColumn<int>("compressionRate");

    // Addresses, not names: a name lookup still pending when the client goes is raced inside Qt.
    const QByteArray server = "[KAVRO]\nServerHost=127.0.0.2\n";
    const QString configured = QStringLiteral("127.0.0.2");
    QTest::newRow("no server configured")
        << QByteArray("[KAVRO]\nXmlPort=1\n") << QString() << 0 << false << QString() << 0 << -1;
    QTest::newRow("explicit identity without configuration")
        << QByteArray() << QStringLiteral("127.0.0.1") << 1 << true << QStringLiteral("127.0.0.1") << 1 << -1;
    QTest::newRow("defaults") << server << QString() << 0 << false << configured << 5223 << -1;
    QTest::newRow("zero rate written as -1") << server + "CompressionRate=0\n"
                                             << QString() << 0 << false << configured << 5223 << -1;
    QTest::newRow("rate and port kept") << server + "CompressionRate=6\nXmlPort=7000\n"
                                        << QString() << 0 << false << configured << 7000 << 6;
    QTest::newRow("explicit host and port win")
        << server << QStringLiteral("127.0.0.3") << 7001 << false << QStringLiteral("127.0.0.3") << 7001 << -1;
}

void tst_KavroClient::configuration()
{
    QFETCH(QByteArray, ini);
    QFETCH(QString, host);
    QFETCH(int, port);
    QFETCH(bool, identity);
    QFETCH(QString, expectedHost);
    QFETCH(int, expectedPort);
    QFETCH(int, compressionRate);

    m_env->useSettings(ini);
    const TraceCapture capture;
    const auto client = identity
        ? std::make_unique<KavroClient>(host, static_cast<quint16>(port), QString(), QString(), QString())
        : std::make_unique<KavroClient>(host, static_cast<quint16>(port));
    QCOMPARE(KavroClient::IsKavroAvailable(), !expectedHost.isEmpty());
    QCOMPARE(client->GetHost(), expectedHost);
    QCOMPARE(int(client->GetPort()), expectedPort);
    QCOMPARE(KavroClient::GetCompressionRate(), compressionRate);
    QVERIFY(readFile(m_env->settings->path())
                .contains(QByteArray("CompressionRate=" + QByteArray::number(compressionRate))));
    if (expectedHost.isEmpty()) {
        // Without the service every call is an empty success.
        QCOMPARE(client->GetUserList(), QStringList());
        QCOMPARE(client->GetError(), NoError);
        QVERIFY(capture.texts().contains(QStringLiteral("KavroClient::GetUserList: no kavro available")));
    }
}

void tst_KavroClient::blockingResults_data()
{
    QTest::addColumn<QByteArray>("operation");
    QTest::addColumn<QString>("command");
    QTest::addColumn<QByteArray>("fields");
    QTest::addColumn<QVariant>("expected");

    QTest::newRow("user list keeps empty names")
        << QByteArray("GetUserList") << QStringLiteral("GetUserList")
        << QByteArray("<m:Users><m:User>a</m:User><m:User/><m:User>b</m:User></m:Users><m:Error>0</m:Error>")
        << QVariant(QStringList{QStringLiteral("a"), QString(), QStringLiteral("b")});
    const QString fileList = QStringLiteral("GetFileList");
    const QByteArray files = "<m:Files><m:File><m:FileId>7</m:FileId><m:FileName>3</m:FileName></m:File></m:Files>";
    QTest::newRow("not a kavro URL") << QByteArray("IsValidURL file:///tmp/a") << fileList << files << QVariant(false);
    QTest::newRow("URL of a group") << QByteArray("IsValidURL kavro:///G") << fileList << files << QVariant(true);
    QTest::newRow("URL of a listed file")
        << QByteArray("IsValidURL kavro:///G/7") << fileList << files << QVariant(true);
    QTest::newRow("URL with a file id only as a name")
        << QByteArray("IsValidURL kavro:///G/3") << fileList << files << QVariant(false);
    QTest::newRow("URL of a group the server reports an error for")
        << QByteArray("IsValidURL kavro:///G") << fileList << QByteArray("<m:Error>2</m:Error>") << QVariant(false);
    QTest::newRow("move to NAS waits for the reply's error")
        << QByteArray("MoveToNasSync") << QStringLiteral("MoveToNas") << QByteArray("<m:Error>47</m:Error>")
        << QVariant(47);
}

void tst_KavroClient::blockingResults()
{
    QFETCH(QByteArray, operation);
    QFETCH(QString, command);
    QFETCH(QByteArray, fields);
    QFETCH(QVariant, expected);

    m_env->server.setReplyFields(command, fields);
    const auto client = FakeArchive::connectedClient();
    QVERIFY(client);
    QCOMPARE(inWorkerThread([&] {
                 return invoke(*client, operation);
             }),
             expected);
}

void tst_KavroClient::blockingFailures_data()
{
    QTest::addColumn<QByteArray>("extraSettings");
    QTest::addColumn<QByteArray>("replyName"); // empty: the request's own
    QTest::addColumn<QByteArray>("replyFields"); // empty: none at all
    QTest::addColumn<bool>("dropWhileWaiting");
    QTest::addColumn<int>("error");
    QTest::addColumn<int>("calls"); // in a row, each once the client is connected again

    const QByteArray ok = "<m:Error>0</m:Error>";
    QTest::newRow("unknown reply releases the caller")
        << QByteArray() << QByteArray("FutureReply") << ok << false << int(ErrorUnknownReplyCommand) << 1;
    QTest::newRow("reply of another command")
        << QByteArray() << QByteArray("GetApplicationListReply") << ok << false << int(ErrorReplyCommandMismatch) << 1;
    // The waiter and the connection's watchdog share the timeout; the caller hears 44 whichever is first.
    QTest::newRow("overdue, always 44") << QByteArray("ReplyTimeoutMs=150\n") << QByteArray() << QByteArray() << false
                                        << int(ErrorReplyTimeout) << 6;
    QTest::newRow("connection dropped while waiting")
        << QByteArray() << QByteArray() << QByteArray() << true << int(ErrorNotConnected) << 1;
}

void tst_KavroClient::blockingFailures()
{
    QFETCH(QByteArray, extraSettings);
    QFETCH(QByteArray, replyName);
    QFETCH(QByteArray, replyFields);
    QFETCH(bool, dropWhileWaiting);
    QFETCH(int, error);
    QFETCH(int, calls);

    m_env->configure(extraSettings);
    const QString command = QStringLiteral("GetUserList");
    if (!replyName.isEmpty())
        m_env->server.setReplyName(command, replyName);
    if (replyFields.isEmpty())
        m_env->server.setSilent(command);
    else
        m_env->server.setReplyFields(command, replyFields);
    if (dropWhileWaiting) {
        connect(&m_env->server, &FakeServer::frameReceived, &m_env->server, [this, command](const QByteArray &frame) {
            if (FakeServer::commandOf(frame) == command)
                m_env->server.dropClient();
        });
    }
    const auto client = FakeArchive::connectedClient();
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

    m_env->configure(extraSettings);
    m_env->server.setSilent(QStringLiteral("GetUserList"));
    const auto client = FakeArchive::connectedClient();
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
    QTRY_VERIFY(!m_env->server.lastRequest(QStringLiteral("GetUserList")).isEmpty());
    std::unique_ptr<QThread> creator(QThread::create([&] {
        QString path;
        client->CreateFileGroup(QStringLiteral("1"), QDateTime::currentDateTimeUtc(), QString(), QString(),
                                FileTypeImage, 0, QStringLiteral("late"), path);
        created = client->GetError();
    }));
    creator->start();
    QTRY_VERIFY(capture.texts().join(QLatin1Char('\n')).contains(QStringLiteral("KavroClient::CreateFG:")));
    if (dropConnection)
        m_env->server.dropClient();
    QTRY_VERIFY_WITH_TIMEOUT(staller->isFinished() && creator->isFinished(), 30000);
    QCOMPARE(stalled, stalledError);
    QCOMPARE(created, int(ErrorNotConnected));

    // On the new connection the line flows again, and the failed creation is not among what goes out.
    m_env->server.answerRequests(m_env->storage.path());
    QTRY_VERIFY(client->IsConnected());
    for (int probe = 0; probe < 2; ++probe)
        QCOMPARE(inWorkerThread([&] {
                     client->GetApplicationList();
                     return client->GetError();
                 }),
                 NoError);
    QVERIFY(m_env->server.lastRequest(QStringLiteral("CreateFileGroup")).isEmpty());
}

void tst_KavroClient::notConnected_data()
{
    QTest::addColumn<QByteArray>("operation");
    QTest::addColumn<QString>("traced"); // the name in the trace
    QTest::addColumn<QVariant>("empty");

    QTest::newRow("user list") << QByteArray("GetUserList") << QStringLiteral("GetUserList") << QVariant(QStringList());
    QTest::newRow("add file") << QByteArray("AddFile") << QStringLiteral("AddFileHelper") << QVariant(0u);
    QTest::newRow("request file") << QByteArray("RequestFile") << QStringLiteral("RequestFile") << QVariant(QString());
    QTest::newRow("create group") << QByteArray("CreateFileGroup") << QStringLiteral("CreateFileGroupHelper")
                                  << QVariant(QString());
    QTest::newRow("asynchronous") << QByteArray("DeleteFileGroupAsync") << QStringLiteral("DeleteFileGroup")
                                  << QVariant(QString());
}

void tst_KavroClient::notConnected()
{
    QFETCH(QByteArray, operation);
    QFETCH(QString, traced);
    QFETCH(QVariant, empty);

    m_env->server.setSilent(QStringLiteral("GetBasePath")); // the TCP connection stands, the client is not connected
    KavroClient client;
    QVERIFY(m_env->server.waitForFrames(1));
    const TraceCapture capture;
    QCOMPARE(invoke(client, operation), empty);
    QCOMPARE(client.GetError(), ErrorNotConnected);
    QVERIFY(capture.texts().contains(QStringLiteral("KavroClient::%1: no commandsender available").arg(traced)));
    QVERIFY(
        capture.texts().contains(QStringLiteral("CommandSender::CheckIsConnected: Client is not connected to server")));
    QCOMPARE(m_env->server.frames().size(), 1);
}

void tst_KavroClient::eightThreadsAtOnce()
{
    // Each group's file list names the group.
    m_env->server.setResponder([](const QByteArray &request) {
        const QString id = FakeServer::requestIdOf(request);
        if (FakeServer::commandOf(request) == QLatin1String("GetBasePath"))
            return QList<QByteArray>{FakeServer::soapReply(id, "GetBasePathReply", "<m:Path>/</m:Path>")};
        const QByteArray guid = request.mid(request.indexOf("<m:Guid>") + 8, 2);
        return QList<QByteArray>{FakeServer::soapReply(id, "GetFileListReply",
                                                       "<m:Files><m:File><m:FileId>1</m:FileId><m:FileName>" + guid
                                                           + "</m:FileName></m:File></m:Files>")};
    });
    const auto client = FakeArchive::connectedClient();
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
    m_env->server.setSilent(QStringLiteral("GetBasePath"));
    const qsizetype before = KavroClientPrivate::errorRecordEntries();
    {
        KavroClient client;
        QVERIFY(m_env->server.waitForFrames(1));
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

void tst_KavroClient::createFileGroupFailures_data()
{
    QTest::addColumn<QString>("storage"); // null: the temporary one
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<int>("error");

    const QString name = QStringLiteral("survey");
    const QByteArray ok = "<m:Error>0</m:Error>";
    QTest::newRow("name escaping the storage")
        << QString() << QStringLiteral("../../../../../../../../../../tmp/out") << ok << int(ErrorCreatePath);
    QTest::newRow("refused by the server")
        << QString() << name << QByteArray("<m:Error>4</m:Error>") << int(ErrorNotEnoughStorage);
    QTest::newRow("empty storage directory") << QStringLiteral("") << name << ok << int(ErrorCreatePath);
    QTest::newRow("missing storage directory")
        << QStringLiteral("/nonexistent/kavro/store") << name << ok << int(ErrorCreatePath);
}

void tst_KavroClient::createFileGroupFailures()
{
    QFETCH(QString, storage);
    QFETCH(QString, name);
    QFETCH(QByteArray, reply);
    QFETCH(int, error);

    if (!storage.isNull())
        m_env->server.answerRequests(storage);
    m_env->server.setReplyFields(QStringLiteral("CreateFileGroup"), reply);
    const TraceCapture capture;
    const auto client = FakeArchive::connectedClient();
    QVERIFY(client);
    // A storage directory that is not there is warned of on connecting.
    QCOMPARE(capture.texts().contains(QStringLiteral("Directory does not exist: ") + storage), !storage.isNull());
    const auto [result, outcome] = inWorkerThread([&] {
        QString path;
        const QString returned = client->CreateFileGroup(QStringLiteral("1"), QDateTime::currentDateTimeUtc(),
                                                         QString(), QString(), FileTypeImage, 0, name, path);
        return std::make_pair(returned, int(client->GetError()));
    });
    QCOMPARE(outcome, error);
    // Nothing is left behind: no request when refused here, no directory when refused there, and never a directory
    // in the current one.
    QCOMPARE(result, QString());
    QCOMPARE(m_env->server.lastRequest(QStringLiteral("CreateFileGroup")).isEmpty(), error == ErrorCreatePath);
    QVERIFY(QDir(m_env->storage.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot).isEmpty());
    const QString year = QString::number(QDate::currentDate().year());
    QVERIFY(!QDir::current().entryList(QDir::Dirs | QDir::NoDotAndDotDot).contains(year));
}

void tst_KavroClient::asynchronousRequests_data()
{
    QTest::addColumn<QByteArray>("operation");
    QTest::addColumn<QByteArray>("signal");
    QTest::addColumn<QByteArray>("sent"); // part of the request
    QTest::addColumn<QStringList>("traces");

    const auto row = [](const char *tag, const char *operation, const char *signal, const char *sent,
                        const QStringList &traces = QStringList()) {
        QTest::newRow(tag) << QByteArray(operation) << QByteArray(signal) << QByteArray(sent) << traces;
    };
    row("user list", "GetUserListAsync", "GetUserListSg(QString,QStringList,int,QString)", "<m:GetUserList ");
    row("application list", "GetApplicationListAsync", "GetApplicationListSg(QString,QStringList,int,QString)",
        "<m:GetApplicationList ");
    row("file list", "GetFileListAsync", "GetFileListSg(QString,QStringList,int,QString)", "<m:Guid>G</m:Guid>");
    row("query", "QueryFilesAsync", "queryFileGroupsSg(QString,QStringList,int,int,QString)", "<m:User>carol</m:User>");
    row("request by URL, to write", "RequestFileAsync", "RequestFileSg(QString,QString,int,QString)",
        "<m:Guid>G</m:Guid><m:FileId>1</m:FileId><m:WriteLock>true</m:WriteLock><m:UserName>carol</m:UserName>");
    row("delete a file by URL", "DeleteFileName", "DeleteFileNameSg(QString,int,QString)",
        "<m:Guid>G</m:Guid><m:FileId>2</m:FileId>");
    row("move by URL, as the set user", "MoveToNas", "MoveToNasSg(QString,int,QString)",
        "<m:Guid>G</m:Guid><m:UserName>carol</m:UserName>");
    row("add a file name", "AddFileAsync x.bin", "AddFileSg(QString,uint)", "<m:FileName>x.bin</m:FileName>");
    row("add a path ending in a separator", "AddFileAsync /data/in/", "AddFileSg(QString,uint)",
        "<m:FileName></m:FileName>");
    row("rovec group without a subsystem", "CreateRovecFileGroupAsync",
        "CreateRovecFileGroupSg(QString,QString,int,QString)", "<m:SubSystemName>IpAddress</m:SubSystemName>");
    row("close by URL, as the set user", "CloseFile", "CloseFileSg(QString,int,QString)",
        "<m:UserName>carol</m:UserName>",
        {QStringLiteral("KavroClient::CloseFile: Start (G, 4)"), QStringLiteral("KavroClient::CloseFile: End (0)")});
    row("reference for the set application", "AddReference", "AddReferenceSg(QString,int,QString)",
        "<m:Application>viewer</m:Application>", {QStringLiteral("KavroClient::AddReference: Start (G)")});
}

void tst_KavroClient::asynchronousRequests()
{
    QFETCH(QByteArray, operation);
    QFETCH(QByteArray, signal);
    QFETCH(QByteArray, sent);
    QFETCH(QStringList, traces);

    const auto client = FakeArchive::connectedClient();
    QVERIFY(client);
    client->SetUser(QStringLiteral("carol"));
    client->SetApplication(QStringLiteral("viewer"));
    QSignalSpy replied(client.get(), QByteArray("2" + signal).constData());
    QVERIFY(replied.isValid());
    const TraceCapture capture;
    const QVariant requestId = invoke(*client, operation);
    QVERIFY(replied.wait());
    if (requestId.isValid())
        QCOMPARE(replied.at(0).at(0), requestId);
    const QByteArray frames = m_env->server.frames().join('\n');
    QVERIFY2(frames.contains(sent), frames.constData());
    for (const QString &line : traces)
        QVERIFY2(capture.texts().contains(line), qPrintable(line));
}

void tst_KavroClient::memoryBoundedPerConnection_data()
{
    QTest::addColumn<bool>("listened"); // something is connected to the reply signal

    QTest::newRow("nothing listens") << false;
    QTest::newRow("a listener") << true;
}

void tst_KavroClient::memoryBoundedPerConnection()
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    QSKIP("the sanitizer's allocator keeps freed memory; measured in the plain build");
#endif
    QFETCH(bool, listened);
    // Large blocks go back to the system when freed, so the figure is what is held, not what the allocator keeps.
    mallopt(M_MMAP_THRESHOLD, 1 << 20);
    constexpr qint64 maxMessageSize = 9 << 20;
    constexpr int staleReplies = 40;
    m_env->configure("MaxMessageSize=" + QByteArray::number(maxMessageSize) + "\nReplyTimeoutMs=120000\n");
    // Replies nobody waits for, each of 8 MiB of user names, stream in as fast as the client reads them while
    // its own thread waits in a blocking call; the call's reply comes after them.
    QByteArray users;
    for (int user = 0; users.size() < (8 << 20); ++user)
        users += "<m:User>" + QByteArray::number(user).rightJustified(64, 'u') + "</m:User>";
    const QByteArray stale =
        FakeServer::soapReply(QStringLiteral("stale"), "GetUserListReply", "<m:Users>" + users + "</m:Users>");
    users.clear();
    m_env->server.setSilent(QStringLiteral("GetUserList"));
    connect(&m_env->server, &FakeServer::frameReceived, this, [this, &stale](const QByteArray &request) {
        if (FakeServer::commandOf(request) == QLatin1String("GetUserList"))
            m_env->server.sendRepeatedly(stale, staleReplies,
                                         FakeServer::soapReply(FakeServer::requestIdOf(request), "GetUserListReply",
                                                               "<m:Users><m:User>carol</m:User></m:Users>"));
    });
    if (!resetPeakMemory())
        QSKIP("the peak of the resident set cannot be reset here");
    const qint64 before = memoryKiB("VmRSS");
    const TraceCapture capture;

    QStringList result;
    QStringList announced; // the request ids the listener was told of
    // The client belongs to a thread of its own, which is blocked in the call; the fake server runs here.
    const bool connected = inWorkerThread([&] {
        KavroClient client;
        if (!client.waitForConnected(10000))
            return false;
        std::optional<QSignalSpy> replies;
        if (listened)
            replies.emplace(&client, &KavroClient::GetUserListSg);
        result = client.GetUserList();
        QCoreApplication::sendPostedEvents(); // what came for the client's thread while it waited
        for (qsizetype reply = 0; replies && reply < replies->size(); ++reply)
            announced << replies->at(reply).at(0).toString();
        return true;
    });
    QVERIFY(connected);
    const qint64 grownKiB = memoryKiB("VmHWM") - before;
    qInfo("peak growth over %d replies of 8 MiB: %lld KiB", staleReplies, grownKiB);
    // The awaited reply is never lost; each of the others is either announced to the listener or traced.
    QCOMPARE(result, QStringList{QStringLiteral("carol")});
    const qsizetype untold = capture.texts().filter(QStringLiteral("did not announce GetUserListReply")).size();
    QCOMPARE(announced.size() + untold, listened ? staleReplies + 1 : 0);
    QVERIFY2(!listened || announced.contains(QStringLiteral("stale")), qPrintable(announced.join(u' ')));
    // Whatever the number of replies: the server's frame and its write buffer, the client's frame being
    // assembled, the one being read (its bytes and its decoded names), and those queued for the listener up to
    // the bound.
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
        m_env->server.close();
    m_env->server.setSilent(QStringLiteral("GetUserList"));
    const TraceCapture capture;
    for (int round = 0; round < rounds; ++round) {
        auto client =
            state == QLatin1String("connecting") ? std::make_unique<KavroClient>() : FakeArchive::connectedClient();
        QVERIFY(client);
        const int framesBefore = m_env->server.frames().size();
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
            QVERIFY(m_env->server.waitForFrames(framesBefore + 1));

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

void tst_KavroClient::releaseRightBeforeDestructionLeaves()
{
    auto client = FakeArchive::connectedClient();
    QVERIFY(client);
    client->CloseFile(4, QStringLiteral("G"));
    client.reset();
    QVERIFY(m_env->server.waitForFrames(2));
    QVERIFY(m_env->server.lastRequest(QStringLiteral("CloseFile")).contains("<m:FileId>4</m:FileId>"));
}

void tst_KavroClient::stateFollowsTheConnection()
{
    const quint16 port = m_env->server.port();
    m_env->server.close();
    KavroClient client;
    QSignalSpy states(&client, &KavroClient::stateChanged);
    QSignalSpy errors(&client, &KavroClient::errorOccurred);
    QSignalSpy connects(&client, &KavroClient::connected);
    QSignalSpy disconnects(&client, &KavroClient::disconnected);
    QTRY_COMPARE(errors.size(), 1);
    QCOMPARE(errors.at(0).at(0).value<KavroError>(), ErrorNotConnected);
    QCOMPARE(errors.at(0).at(1).toString(),
             QStringLiteral("no archive server answers at 127.0.0.1:%1; is kavro-server running?").arg(port));

    // Refused again and again while the server is away, told once; then connected, lost, connected.
    QVERIFY(m_env->server.listen(port));
    QTRY_COMPARE_WITH_TIMEOUT(connects.size(), 1, 10000);
    QCOMPARE(errors.size(), 1);
    QCOMPARE(disconnects.size(), 0);
    m_env->server.dropClient();
    QTRY_COMPARE_WITH_TIMEOUT(connects.size(), 2, 10000);
    QCOMPARE(disconnects.size(), 1);
    QCOMPARE(errors.size(), 2);
    QVERIFY(errors.at(1).at(1).toString().contains(QStringLiteral("was lost")));

    QList<KavroClient::State> seen;
    for (const QList<QVariant> &change : std::as_const(states)) {
        const auto state = change.at(0).value<KavroClient::State>();
        if (seen.isEmpty() || seen.last() != state)
            seen.append(state);
    }
    // Retries while refused alternate the first two; what follows is one connection, its loss and the next.
    while (seen.size() > 6 && seen.at(0) == KavroClient::Connecting && seen.at(1) == KavroClient::Unconnected)
        seen.remove(0, 2);
    const QList<KavroClient::State> expected = {KavroClient::Connecting, KavroClient::Connected,
                                                KavroClient::Unconnected, KavroClient::Connecting,
                                                KavroClient::Connected};
    QCOMPARE(seen.mid(seen.size() - expected.size()), expected);
}

void tst_KavroClient::peersThatAreNoArchive_data()
{
    QTest::addColumn<QString>("peer");
    QTest::addColumn<int>("error");
    QTest::addColumn<QString>("text");

    QTest::newRow("another protocol") << QStringLiteral("http") << int(ErrorCommunication)
                                      << QStringLiteral("does not speak the archive protocol");
    QTest::newRow("another document") << QStringLiteral("html") << int(ErrorCommunication)
                                      << QStringLiteral("does not speak the archive protocol");
    QTest::newRow("no answer") << QStringLiteral("silent") << int(ErrorReplyTimeout)
                               << QStringLiteral("did not answer within 200 ms; is it an archive server?");
}

void tst_KavroClient::peersThatAreNoArchive()
{
    QFETCH(QString, peer);
    QFETCH(int, error);
    QFETCH(QString, text);

    m_env->configure("ReplyTimeoutMs=200\n");
    FakeServer &server = m_env->server;
    if (peer == QLatin1String("http")) {
        server.setResponder({});
        connect(&server, &FakeServer::frameReceived, &server, [&server] {
            server.sendRaw("HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\n\r\n");
        });
    } else if (peer == QLatin1String("html")) {
        server.setResponder([](const QByteArray &) {
            return QList<QByteArray>{"<html><body>Welcome</body></html>"};
        });
    } else {
        server.setSilent(QStringLiteral("GetBasePath"));
    }
    KavroClient client;
    QSignalSpy errors(&client, &KavroClient::errorOccurred);
    QSignalSpy connects(&client, &KavroClient::connected);
    QSignalSpy disconnects(&client, &KavroClient::disconnected);
    QTRY_COMPARE_WITH_TIMEOUT(errors.size(), 1, 10000);
    QCOMPARE(errors.at(0).at(0).toInt(), error);
    QVERIFY2(errors.at(0).at(1).toString().contains(text), qPrintable(errors.at(0).at(1).toString()));
    // The client keeps trying, and the same failure is not told again.
    QVERIFY(server.waitForFrames(server.frames().size() + 1));
    QCOMPARE(errors.size(), 1);
    QCOMPARE(connects.size() + disconnects.size(), 0);
    QVERIFY(client.state() != KavroClient::Connected);
}

void tst_KavroClient::waitForConnectedWithoutEventLoop()
{
    m_env->server.setReplyFields(QStringLiteral("GetUserList"),
                                 "<m:Users><m:User>alice</m:User></m:Users><m:Error>0</m:Error>");
    bool connectedInTime = false;
    QStringList users;
    // Made, used and destroyed on a thread that never runs an event loop.
    std::unique_ptr<QThread> worker(QThread::create([&] {
        KavroClient client;
        connectedInTime = client.waitForConnected(10000) && client.IsConnected();
        users = client.GetUserList();
    }));
    worker->start();
    QTRY_VERIFY_WITH_TIMEOUT(worker->isFinished(), 20000);
    QVERIFY(connectedInTime);
    QCOMPARE(users, QStringList{QStringLiteral("alice")});
}

QTEST_GUILESS_MAIN(tst_KavroClient)
#include "tst_kavroclient.moc"
