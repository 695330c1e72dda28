// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "kavroclient_p.h"
#include "serverprocess.h"
#include "temporarysettings.h"

#include <kavro/filequery.h>
#include <kavro/kavroclient.h>

#include <QDir>
#include <QElapsedTimer>
#include <QSet>
#include <QSignalSpy>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>

#include <memory>

using namespace Kavro;

namespace
{
constexpr int Timeout = 20000;
const QDateTime LifeCycleBase(QDate(2031, 1, 1), QTime(0, 0), Qt::UTC);

QByteArray pattern(qsizetype size, char seed)
{
    QByteArray bytes(size, Qt::Uninitialized);
    for (qsizetype i = 0; i < size; ++i)
        bytes[i] = char(seed + i % 251);
    return bytes;
}

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool isInside(const QString &path, const QString &directory)
{
    return QDir::cleanPath(path).startsWith(QDir::cleanPath(directory) + QLatin1Char('/'));
}

/*!
 * The arguments of the signal answering \a requestId; empty when none came in time. Replies reach this
 * thread as queued signals, so a spy made before the event loop runs again misses none.
 */
template<typename Signal>
QVariantList answer(KavroClient &client, Signal signal, const QString &requestId)
{
    QSignalSpy spy(&client, signal);
    for (int seen = 0; !requestId.isEmpty() && (seen < spy.size() || spy.wait(Timeout)); ++seen) {
        if (spy.at(seen).value(0).toString() == requestId)
            return spy.at(seen);
    }
    return QVariantList();
}

//! The error of a reply whose signal carries it right after the request id; -1 without reply.
template<typename Signal>
int answerError(KavroClient &client, Signal signal, const QString &requestId)
{
    return answer(client, signal, requestId).value(1, -1).toInt();
}

int closeFile(KavroClient &client, unsigned int fileId, const QString &guid)
{
    QSignalSpy spy(&client, &KavroClient::CloseFileSg);
    client.CloseFile(fileId, guid);
    return spy.wait(Timeout) ? spy.first().at(1).toInt() : -1;
}

int locationState(KavroClient &client, const QString &guid)
{
    return answer(client, &KavroClient::queryLocationStateProgressSg, client.QueryLocationStateProgress(guid))
        .value(1, -1)
        .toInt();
}

FileGroupData metaData(KavroClient &client, const QString &guid, int *error = nullptr)
{
    const QVariantList reply =
        answer(client, &KavroClient::QueryMetaDataSg, client.QueryMetaDataAsync(guid, QStringLiteral("viewer")));
    if (error)
        *error = reply.value(2, -1).toInt();
    return reply.value(1).value<FileGroupData>();
}

/*!
 * A query written "key=value;...": search texts by field name, "type" (repeatable), "location", "lock",
 * and ranges "from:to" with open sides left empty: "life" in days after LifeCycleBase, the other times in
 * seconds, the lower bound after \a start and the upper one after \a end.
 */
FileQuery parseQuery(const QByteArray &criteria, const QDateTime &start = {}, const QDateTime &end = {})
{
    using Text = void (FileQuery::*)(const QString &);
    using Time = void (FileQuery::*)(const QDateTime &);
    const QByteArrayList textKeys{"name", "comment", "detail", "team", "version", "lockuser", "app"};
    const Text texts[] = {&FileQuery::SetFileGroupSearchText,   &FileQuery::SetCommentSearchText,
                          &FileQuery::SetDetailSearchText,      &FileQuery::SetTeamMembershipSearchText,
                          &FileQuery::SetVersionSearchText,     &FileQuery::SetLockUser,
                          &FileQuery::SetReferencingApplication};
    const QHash<QByteArray, std::pair<Time, Time>> ranges{
        {"life", {&FileQuery::SetLifeCycleTimeMin, &FileQuery::SetLifeCycleTimeMax}},
        {"created", {&FileQuery::SetCreationTimeMin, &FileQuery::SetCreationTimeMax}},
        {"modified", {&FileQuery::SetModificationTimeMin, &FileQuery::SetModificationTimeMax}},
        {"backup", {&FileQuery::SetBackupTimeMin, &FileQuery::SetBackupTimeMax}}};
    FileQuery query;
    for (const QByteArray &criterion : criteria.split(';')) {
        const QByteArray key = criterion.left(criterion.indexOf('='));
        const QByteArray value = criterion.mid(key.size() + 1);
        if (textKeys.contains(key)) {
            (query.*texts[textKeys.indexOf(key)])(QString::fromUtf8(value));
        } else if (key == "type") {
            query.AddFileType(FileType(value.toInt()));
        } else if (key == "location") {
            query.SetLocationState(LocationState(value.toInt()));
        } else if (key == "lock") {
            query.SetLockState(LockState(value.toInt()));
        } else if (ranges.contains(key)) {
            const QList<QByteArray> bounds = value.split(':');
            const qint64 unit = key == "life" ? 86400 : 1;
            if (!bounds.value(0).isEmpty())
                (query.*ranges.value(key).first)(
                    (unit > 1 ? LifeCycleBase : start).addSecs(bounds.value(0).toLongLong() * unit));
            if (!bounds.value(1).isEmpty())
                (query.*ranges.value(key).second)(
                    (unit > 1 ? LifeCycleBase : end).addSecs(bounds.value(1).toLongLong() * unit));
        }
    }
    return query;
}

QStringList query(KavroClient &client, const QByteArray &criteria)
{
    unsigned int count = 0;
    return client.QueryFiles(parseQuery(criteria), count);
}

//! Creates a group, puts \a content into its directory as \a fileName and adds it; the guid, or empty.
QString createGroupWithFile(KavroClient &client, const QString &name, FileType type, const QByteArray &content,
                            const QString &fileName = QStringLiteral("content.bin"), QString *directory = nullptr)
{
    QString localPath;
    const QString guid = client.CreateFileGroup(QStringLiteral("1.0"), LifeCycleBase, QStringLiteral("detail"),
                                                QStringLiteral("comment"), type, 0, name, localPath);
    const QString path = QDir(localPath).filePath(fileName);
    if (guid.isEmpty() || !writeFile(path, content) || client.AddFile(path, guid) != 1)
        return QString();
    if (directory)
        *directory = localPath;
    return guid;
}

//! Sends one request document on \a socket, framed by its little-endian length; the reply, unpacked.
QByteArray rawExchange(QTcpSocket &socket, const QByteArray &body, bool *packed)
{
    QByteArray request = "<?xml version=\"1.0\" encoding=\"UTF-8\"?><s:Envelope xmlns:s=\"http://www.w3.org/2003/05/"
                         "soap-envelope\"><s:Header><s:Version>1.0</s:Version><s:RequestId>raw</s:RequestId></"
                         "s:Header><s:Body>"
        + body + "</s:Body></s:Envelope>";
    if (request.size() % 256 == 0)
        request += ' '; // a first length byte of 0 would announce big-endian lengths
    QByteArray length(4, Qt::Uninitialized);
    qToLittleEndian(quint32(request.size()), length.data());
    socket.write(length + request);
    const auto waitFor = [&socket](qint64 bytes) {
        while (socket.bytesAvailable() < bytes) {
            if (!socket.waitForReadyRead(Timeout))
                return false;
        }
        return true;
    };
    if (!waitFor(4))
        return QByteArray();
    const qint64 size = qFromLittleEndian<quint32>(socket.peek(4).constData());
    if (!waitFor(4 + size))
        return QByteArray();
    const QByteArray payload = socket.read(4 + size).mid(4);
    *packed = !payload.startsWith('<');
    return *packed ? qUncompress(payload) : payload;
}
} // namespace

class tst_KavroServer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();
    void cleanupTestCase();
    void fullSession_data();
    void fullSession();
    void lockMatrix_data();
    void lockMatrix();
    void references();
    void queries_data();
    void queries();
    void exportAndImport();
    void converter();
    void listsDuringLargeExport();
    void moveToNas();

private:
    bool startServer(const QStringList &extraArguments = QStringList());
    std::unique_ptr<KavroClient> connectClient(quint16 port, const QString &user,
                                               const QString &application = QStringLiteral("viewer"));
    bool createQueryGroups();

    std::unique_ptr<TemporarySettings> m_settings;
    std::unique_ptr<QTemporaryDir> m_store;
    std::unique_ptr<ServerProcess> m_server;
    // The groups of the query test, made once for all its rows.
    std::unique_ptr<QTemporaryDir> m_queryStore;
    std::unique_ptr<ServerProcess> m_queryServer;
    std::unique_ptr<KavroClient> m_queryClient;
    QDateTime m_queryStart;
    QDateTime m_queryEnd;
};

void tst_KavroServer::initTestCase()
{
    m_settings = std::make_unique<TemporarySettings>(QByteArray(), true);
}

void tst_KavroServer::cleanup()
{
    if (m_server && QTest::currentTestFailed())
        qWarning().noquote() << "server stderr:\n" << QString::fromLocal8Bit(m_server->errorOutput());
    if (m_server && m_server->isRunning())
        QVERIFY(m_server->stop());
    m_server.reset();
    m_store.reset();
}

void tst_KavroServer::cleanupTestCase()
{
    m_queryClient.reset();
    if (m_queryServer)
        QVERIFY(m_queryServer->stop());
}

bool tst_KavroServer::startServer(const QStringList &extraArguments)
{
    m_store = std::make_unique<QTemporaryDir>();
    m_server = std::make_unique<ServerProcess>();
    return m_store->isValid() && m_server->start(m_store->path(), extraArguments);
}

std::unique_ptr<KavroClient> tst_KavroServer::connectClient(quint16 port, const QString &user,
                                                            const QString &application)
{
    // The connection settings are read when a client is made: each client takes its server's port.
    m_settings->write("[KAVRO]\nServerHost=127.0.0.1\nXmlPort=" + QByteArray::number(port)
                      + "\nReconnectIntervalMs=100\nReplyTimeoutMs=30000\n");
    KavroClient::ClientConfig::instance().reload();
    auto client = std::make_unique<KavroClient>();
    client->SetUser(user);
    client->SetApplication(application);
    QSignalSpy connected(client.get(), &KavroClient::connected);
    if (!client->IsConnected() && !connected.wait(Timeout))
        return nullptr;
    return client;
}

void tst_KavroServer::fullSession_data()
{
    QTest::addColumn<bool>("compressed");

    QTest::newRow("plain replies") << false;
    QTest::newRow("compressed replies") << true;
}

void tst_KavroServer::fullSession()
{
    QFETCH(bool, compressed);

    const QStringList arguments = compressed ? QStringList{QStringLiteral("--compress")} : QStringList();
    QVERIFY(startServer(arguments));
    // On a raw connection errors leave the line usable, and replies are packed exactly when asked for.
    QTcpSocket socket;
    socket.connectToHost(QStringLiteral("127.0.0.1"), m_server->port());
    QVERIFY(socket.waitForConnected(Timeout));
    bool packed = !compressed;
    const QByteArray ns = " xmlns:m=\"http://kavro/8SP/KAVRO\"";
    QVERIFY(rawExchange(socket, "<m:FutureCommand" + ns + "/>", &packed).contains("<m:Error>41</m:Error>"));
    QVERIFY(rawExchange(socket, "<m:GetFileList" + ns + "><m:Colour/></m:GetFileList>", &packed)
                .contains("<m:Error>57</m:Error>"));
    const QByteArray users = rawExchange(socket, "<m:GetUserList" + ns + "/>", &packed);
    QVERIFY2(users.contains("GetUserListReply") && users.contains("<m:Error>0</m:Error>"), users.constData());
    QCOMPARE(packed, compressed);

    const auto client = connectClient(m_server->port(), QStringLiteral("alice"));
    QVERIFY(client);
    const QDateTime before = QDateTime::currentDateTimeUtc().addSecs(-2);
    QString localPath;
    const QString guid = client->CreateFileGroup(QStringLiteral("1.0"), LifeCycleBase, QStringLiteral("a detail"),
                                                 QStringLiteral("a comment"), FileTypeReportFragment, 0,
                                                 QStringLiteral("report"), localPath);
    QVERIFY2(!guid.isEmpty(), qPrintable(client->GetErrorString()));
    QVERIFY2(isInside(localPath, m_store->filePath(QStringLiteral("data"))), qPrintable(localPath));
    const QByteArray notes = "first line\nsecond line\n";
    const QString notesPath = QDir(localPath).filePath(QStringLiteral("notes.txt"));
    const QString imagePath = QDir(localPath).filePath(QStringLiteral("image.bin"));
    QVERIFY(writeFile(notesPath, notes) && writeFile(imagePath, pattern(300000, 'x')));
    QCOMPARE(client->AddFile(notesPath, guid), 1u);
    QCOMPARE(client->AddFile(imagePath, guid), 2u);
    QCOMPARE(client->GetFileList(guid),
             (QStringList{QStringLiteral("1"), QStringLiteral("notes.txt"), QStringLiteral("2"),
                          QStringLiteral("image.bin")}));
    const QString fetched = client->RequestFile(1, guid, LockRead);
    QCOMPARE(QDir::cleanPath(fetched), QDir::cleanPath(notesPath));
    QCOMPARE(readFile(fetched), notes);
    QCOMPARE(closeFile(*client, 1, guid), int(NoError));

    int error = -1;
    const FileGroupData record = metaData(*client, guid, &error);
    QCOMPARE(error, int(NoError));
    QCOMPARE(record.getGuid() + record.getName(), guid + QStringLiteral("report"));
    QCOMPARE(record.getFileType(), FileTypeReportFragment);
    QCOMPARE(record.getCreator(), QStringLiteral("alice"));
    QCOMPARE(record.getLocationState(), LocationCentral);
    QCOMPARE(record.getComment() + record.getDetail(), QStringLiteral("a commenta detail"));
    QCOMPARE(record.getLifeCycle(), LifeCycleBase);
    QVERIFY2(record.getCreationTime() >= before && record.getCreationTime() <= QDateTime::currentDateTimeUtc(),
             qPrintable(record.getCreationTime().toString(Qt::ISODate)));
    QCOMPARE(record.getFileList(),
             (FileGroupData::FileList{{QStringLiteral("notes.txt"), 1}, {QStringLiteral("image.bin"), 2}}));
    const QVariantList exists =
        answer(*client, &KavroClient::checkFileGroupExistsSg, client->CheckFileGroupExists(guid));
    QCOMPARE(exists.mid(1, 2), (QVariantList{true, int(NoError)}));
    QVERIFY(client->GetUserList().contains(QStringLiteral("alice")));
    QVERIFY(client->GetApplicationList().contains(QStringLiteral("viewer")));
    QCOMPARE(client->CreateFileGroup(QStringLiteral("1.0"), LifeCycleBase, QString(), QString(), FileTypeImage, 0,
                                     QStringLiteral("report"), localPath, guid),
             QString());
    QCOMPARE(client->GetError(), ErrorAddFileGroup);

    // The server comes back on the same port and store: the client reconnects by itself and finds its data.
    QSignalSpy disconnected(client.get(), &KavroClient::disconnected);
    QSignalSpy connected(client.get(), &KavroClient::connected);
    const quint16 port = m_server->port();
    QVERIFY(m_server->stop());
    QVERIFY(!disconnected.isEmpty() || disconnected.wait(Timeout));
    QVERIFY(m_server->start(m_store->path(), arguments, port));
    QVERIFY(connected.wait(Timeout));
    QCOMPARE(metaData(*client, guid), record);
    QCOMPARE(readFile(client->RequestFile(2, guid, LockRead)), pattern(300000, 'x'));
    QCOMPARE(closeFile(*client, 2, guid), int(NoError));

    QCOMPARE(answerError(*client, &KavroClient::DeleteFileNameSg, client->DeleteFileName(2, guid)), int(NoError));
    QCOMPARE(client->GetFileList(guid), (QStringList{QStringLiteral("1"), QStringLiteral("notes.txt")}));
    QVERIFY(!QFile::exists(imagePath));
    QCOMPARE(answerError(*client, &KavroClient::deleteFileGroupSg, client->DeleteFileGroupAsync(guid)), int(NoError));
    QVERIFY(!QFile::exists(notesPath));
    const QVariantList gone = answer(*client, &KavroClient::checkFileGroupExistsSg, client->CheckFileGroupExists(guid));
    QCOMPARE(gone.value(1, true).toBool(), false);
    QCOMPARE(client->GetFileList(guid), QStringList());
    QCOMPARE(client->GetError(), ErrorGuidNotFound);
}

void tst_KavroServer::lockMatrix_data()
{
    QTest::addColumn<int>("first"); // alice's lock
    QTest::addColumn<int>("second"); // then bob's
    QTest::addColumn<int>("error"); // bob's result

    QTest::newRow("read, then read") << int(LockRead) << int(LockRead) << int(NoError);
    QTest::newRow("read, then write") << int(LockRead) << int(LockWrite) << int(ErrorFileGroupLocked);
    QTest::newRow("write, then read") << int(LockWrite) << int(LockRead) << int(ErrorFileGroupWriteLocked);
    QTest::newRow("write, then write") << int(LockWrite) << int(LockWrite) << int(ErrorFileGroupLocked);
}

void tst_KavroServer::lockMatrix()
{
    QFETCH(int, first);
    QFETCH(int, second);
    QFETCH(int, error);

    QVERIFY(startServer());
    const auto alice = connectClient(m_server->port(), QStringLiteral("alice"));
    const auto bob = connectClient(m_server->port(), QStringLiteral("bob"));
    QVERIFY(alice && bob);
    const QString guid = createGroupWithFile(*alice, QStringLiteral("shared"), FileTypeImage, "shared bytes");
    QVERIFY(!guid.isEmpty());

    QVERIFY(!alice->RequestFile(1, guid, LockState(first)).isEmpty());
    QCOMPARE(bob->RequestFile(1, guid, LockState(second)).isEmpty(), error != NoError);
    QCOMPARE(int(bob->GetError()), error);
    const QByteArray lockedByAlice = "lockuser=alice;lock=" + QByteArray::number(first);
    QCOMPARE(query(*alice, lockedByAlice), QStringList{guid});
    // Neither the locked file nor its group can be deleted.
    QCOMPARE(answerError(*bob, &KavroClient::DeleteFileNameSg, bob->DeleteFileName(1, guid)),
             int(ErrorFileGroupLocked));
    QCOMPARE(answerError(*alice, &KavroClient::deleteFileGroupSg, alice->DeleteFileGroupAsync(guid)),
             int(ErrorFileGroupLocked));

    // CloseFile releases: then bob gets the lock he asked for.
    QCOMPARE(closeFile(*alice, 1, guid), int(NoError));
    if (error == NoError)
        QCOMPARE(closeFile(*bob, 1, guid), int(NoError));
    QCOMPARE(query(*alice, lockedByAlice), QStringList());
    QVERIFY(!bob->RequestFile(1, guid, LockState(second)).isEmpty());
    QCOMPARE(closeFile(*bob, 1, guid), int(NoError));
    QCOMPARE(answerError(*alice, &KavroClient::deleteFileGroupSg, alice->DeleteFileGroupAsync(guid)), int(NoError));
}

void tst_KavroServer::references()
{
    QVERIFY(startServer());
    const auto client = connectClient(m_server->port(), QStringLiteral("alice"));
    QVERIFY(client);
    const QString guid = createGroupWithFile(*client, QStringLiteral("referenced"), FileTypeImage, "bytes");
    QVERIFY(!guid.isEmpty());
    QSignalSpy added(client.get(), &KavroClient::AddReferenceSg);
    QSignalSpy removed(client.get(), &KavroClient::RemoveReferenceSg);
    QSignalSpy removedAll(client.get(), &KavroClient::RemoveAllReferenceSg);

    client->AddReference(guid);
    client->AddReference(guid);
    client->RemoveReference(guid);
    QTRY_COMPARE_WITH_TIMEOUT(added.count() + removed.count(), 3, Timeout);
    QCOMPARE(metaData(*client, guid).getReferenceCount(), 1);
    QCOMPARE(query(*client, "app=viewer"), QStringList{guid});
    QCOMPARE(query(*client, "app=editor"), QStringList());

    // Removing all of one application's references leaves the other's.
    client->SetApplication(QStringLiteral("editor"));
    client->AddReference(guid);
    client->SetApplication(QStringLiteral("viewer"));
    client->RemoveAllReferences(guid);
    QTRY_COMPARE_WITH_TIMEOUT(removedAll.count(), 1, Timeout);
    QCOMPARE(query(*client, "app=viewer"), QStringList());
    QCOMPARE(query(*client, "app=editor"), QStringList{guid});

    client->SetApplication(QStringLiteral("editor"));
    client->RemoveReference(guid);
    QTRY_COMPARE_WITH_TIMEOUT(removed.count(), 2, Timeout);
    QCOMPARE(query(*client, "app=editor"), QStringList());
    QCOMPARE(metaData(*client, guid).getReferenceCount(), 0);
    QCOMPARE(added.last().at(1).toInt() + removed.last().at(1).toInt() + removedAll.last().at(1).toInt(), 0);
    const QStringList applications = client->GetApplicationList();
    QVERIFY2(applications.contains(QStringLiteral("viewer")) && applications.contains(QStringLiteral("editor")),
             qPrintable(applications.join(QLatin1Char(','))));
}

bool tst_KavroServer::createQueryGroups()
{
    m_queryStore = std::make_unique<QTemporaryDir>();
    m_queryServer = std::make_unique<ServerProcess>();
    if (!m_queryServer->start(m_queryStore->path()))
        return false;
    m_queryClient = connectClient(m_queryServer->port(), QStringLiteral("alice"));
    const auto bob = connectClient(m_queryServer->port(), QStringLiteral("Bob"));
    if (!m_queryClient || !bob)
        return false;
    m_queryClient->SetTeamMembership(QStringLiteral("Blue team"));
    bob->SetTeamMembership(QStringLiteral("Red team"));

    // Even groups are alice's, odd ones bob's; names, types, texts and life cycles vary with the number.
    const FileType types[] = {FileTypeImage, FileTypeAudioRecording, FileTypeScanRecording, FileTypeReportFragment,
                              FileTypeTechnicalParameters};
    QSignalSpy aliceCreated(m_queryClient.get(), &KavroClient::CreateFileGroupSg);
    QSignalSpy bobCreated(bob.get(), &KavroClient::CreateFileGroupSg);
    m_queryStart = QDateTime::currentDateTimeUtc();
    for (int i = 0; i < 2000; ++i) {
        QString localPath;
        (i % 2 == 0 ? *m_queryClient : *bob)
            .CreateFileGroupAsync(
                i < 500 ? QStringLiteral("1.0") : QStringLiteral("2.0"), LifeCycleBase.addDays(i % 10),
                QStringLiteral("detail %1").arg(i),
                i % 10 == 3 ? QStringLiteral("needs URGENT review") : QStringLiteral("routine"), types[i % 5], 0,
                (i % 4 == 0 ? QStringLiteral("Harbour-%1") : QStringLiteral("survey-%1")).arg(i), localPath);
    }
    const bool done = QTest::qWaitFor(
        [&] {
            return aliceCreated.count() + bobCreated.count() == 2000;
        },
        120000);
    m_queryEnd = QDateTime::currentDateTimeUtc();
    return done;
}

void tst_KavroServer::queries_data()
{
    QTest::addColumn<QByteArray>("criteria");
    QTest::addColumn<int>("expected");

    QTest::newRow("no criteria") << QByteArray() << 2000;
    QTest::newRow("name, other case") << QByteArray("name=HARB") << 500;
    QTest::newRow("comment") << QByteArray("comment=urgent") << 200;
    QTest::newRow("detail, prefix of longer numbers") << QByteArray("detail=detail 19") << 111;
    QTest::newRow("version") << QByteArray("version=2.") << 1500;
    QTest::newRow("team, other case") << QByteArray("team=BLUE") << 1000;
    QTest::newRow("one file type") << QByteArray("type=11") << 400;
    QTest::newRow("two file types") << QByteArray("type=11;type=10") << 800;
    QTest::newRow("type and name") << QByteArray("type=11;name=harbour") << 100;
    QTest::newRow("team and comment exclude each other") << QByteArray("team=blue;comment=urgent") << 0;
    QTest::newRow("location central") << QByteArray("location=2") << 2000;
    QTest::newRow("location remote") << QByteArray("location=5") << 0;
    QTest::newRow("read locked") << QByteArray("lock=2") << 0;
    QTest::newRow("lock user") << QByteArray("lockuser=alice") << 0;
    QTest::newRow("referencing application") << QByteArray("app=viewer") << 0;
    QTest::newRow("life cycle, closed range") << QByteArray("life=2:4") << 600;
    QTest::newRow("life cycle, open above") << QByteArray("life=8:") << 400;
    QTest::newRow("life cycle, open below") << QByteArray("life=:0") << 200;
    QTest::newRow("creation time around the run") << QByteArray("created=-2:2") << 2000;
    QTest::newRow("creation time before the run") << QByteArray("created=:-86400") << 0;
    QTest::newRow("modification time after the run") << QByteArray("modified=86400:") << 0;
    QTest::newRow("backup time bounded, never backed up") << QByteArray("backup=-86400:") << 0;
    QTest::newRow("all kinds at once") << QByteArray("type=8;team=Blue;version=2.0;location=2;life=2:2") << 150;
}

void tst_KavroServer::queries()
{
    QFETCH(QByteArray, criteria);
    QFETCH(int, expected);

    if (!m_queryClient)
        QVERIFY(createQueryGroups());
    const FileQuery fileQuery = parseQuery(criteria, m_queryStart, m_queryEnd);
    unsigned int count = 0;
    const QStringList guids = m_queryClient->QueryFiles(fileQuery, count);
    QCOMPARE(m_queryClient->GetError(), NoError);
    QCOMPARE(guids.size(), expected);
    QCOMPARE(int(count), expected);
    QCOMPARE(QSet<QString>(guids.cbegin(), guids.cend()).size(), expected);

    // The table form: sixteen headers, then one row per group.
    const QVariantList table =
        answer(*m_queryClient, &KavroClient::queryFileGroupsSg, m_queryClient->QueryFilesAsync(fileQuery));
    QCOMPARE(table.value(4, -1).toInt(), int(NoError));
    QCOMPARE(table.value(1).toStringList().size(), 16 * (expected + 1));
}

void tst_KavroServer::exportAndImport()
{
    QVERIFY(startServer());
    const auto client = connectClient(m_server->port(), QStringLiteral("alice"));
    QVERIFY(client);
    const QByteArray notes = "exported notes";
    const QByteArray table = pattern(70000, 'a');
    QString localPath;
    const QString guid = createGroupWithFile(*client, QStringLiteral("survey"), FileTypeImage, notes,
                                             QStringLiteral("notes.txt"), &localPath);
    QVERIFY(!guid.isEmpty());
    QVERIFY(writeFile(QDir(localPath).filePath(QStringLiteral("table.csv")), table));
    QCOMPARE(client->AddFile(QDir(localPath).filePath(QStringLiteral("table.csv")), guid), 2u);

    const QString archives = m_store->filePath(QStringLiteral("archives"));
    const QString target = archives + QStringLiteral("/batch");
    QVERIFY(QDir().mkpath(target));
    for (const QString &outside :
         QStringList{m_store->filePath(QStringLiteral("elsewhere")), archives + QStringLiteral("/../up")})
        QCOMPARE(answerError(*client, &KavroClient::exportArchiveSg, client->ExportArchiveAsync({guid}, outside)),
                 int(ErrorExportArchive));
    QCOMPARE(answerError(*client, &KavroClient::exportArchiveSg, client->ExportArchiveAsync({guid}, target)),
             int(NoError));
    const QString exported = target + QStringLiteral("/survey_") + guid;
    FileGroupData description;
    QVERIFY(description.fromXmlforImport(exported + QStringLiteral(".fgdesc")));
    QCOMPARE(description.getGuid(), guid);
    QCOMPARE(readFile(exported + QStringLiteral("/table.csv")), table);

    // A second server, whose archive root is the first one's, takes the export in.
    QTemporaryDir secondStore;
    ServerProcess second;
    QVERIFY(second.start(secondStore.path(), {QStringLiteral("--archive-root"), archives}));
    const auto reader = connectClient(second.port(), QStringLiteral("bob"));
    QVERIFY(reader);
    QCOMPARE(answerError(*reader, &KavroClient::importArchiveSg,
                         reader->ImportArchiveAsync({m_store->filePath(QStringLiteral("data"))})),
             int(ErrorImportArchive));
    QCOMPARE(answerError(*reader, &KavroClient::importArchiveSg, reader->ImportArchiveAsync({exported})), int(NoError));
    const FileGroupData record = metaData(*reader, guid);
    QCOMPARE(record.getName(), QStringLiteral("survey"));
    QCOMPARE(record.getFileType(), FileTypeImage);
    QCOMPARE(record.getCreator(), QStringLiteral("alice"));
    QCOMPARE(record.getFileList(),
             (FileGroupData::FileList{{QStringLiteral("notes.txt"), 1}, {QStringLiteral("table.csv"), 2}}));
    for (const auto &[fileId, bytes] : {std::make_pair(1u, notes), std::make_pair(2u, table)}) {
        const QString path = reader->RequestFile(fileId, guid, LockRead);
        QVERIFY2(isInside(path, secondStore.filePath(QStringLiteral("data"))), qPrintable(path));
        QCOMPARE(readFile(path), bytes);
    }
    QVERIFY(second.stop());
}

void tst_KavroServer::converter()
{
    QVERIFY(startServer());
    auto converter = connectClient(m_server->port(), QStringLiteral("conv"), QStringLiteral("converter"));
    const auto producer = connectClient(m_server->port(), QStringLiteral("alice"));
    QVERIFY(converter && producer);
    QCOMPARE(answerError(*converter, &KavroClient::RegisterConverterSg,
                         converter->RegisterConverterAsync(QStringLiteral("image-converter"), {FileTypeImage})),
             int(NoError));
    QSignalSpy requested(converter.get(), &KavroClient::ConvertFileGroupRequestedSg);

    // Only groups of the registered type are the converter's business.
    const QString audio = createGroupWithFile(*producer, QStringLiteral("audio"), FileTypeAudioRecording, "sound");
    QString localPath;
    const QString image = createGroupWithFile(*producer, QStringLiteral("image"), FileTypeImage, "pixels",
                                              QStringLiteral("photo.png"), &localPath);
    QVERIFY(!audio.isEmpty() && !image.isEmpty());
    QVERIFY(requested.wait(Timeout));
    QCOMPARE(requested.count(), 1);
    QCOMPARE(requested.first().at(0).toString(), image);
    QCOMPARE(requested.first().at(1).value<FileType>(), FileTypeImage);
    QVERIFY2(QDir::cleanPath(requested.first().at(2).toString()).startsWith(QDir::cleanPath(localPath)),
             qPrintable(requested.first().at(2).toString()));
    QCOMPARE(locationState(*producer, audio), int(LocationCentral));
    QCOMPARE(locationState(*producer, image), int(LocationCentralNotConverted));
    QCOMPARE(query(*producer, "location=9"), QStringList{image});

    converter->AnswerConvertFileGroup(image, NoError, QString());
    QTRY_COMPARE_WITH_TIMEOUT(locationState(*producer, image), int(LocationCentral), Timeout);
    QCOMPARE(requested.count(), 1);

    // The registration ends with the connection: new groups of its type stay central.
    converter.reset();
    QTRY_COMPARE_WITH_TIMEOUT(
        locationState(*producer, createGroupWithFile(*producer, QStringLiteral("later"), FileTypeImage, "x")),
        int(LocationCentral), Timeout);
}

void tst_KavroServer::listsDuringLargeExport()
{
    QVERIFY(startServer());
    const auto exporter = connectClient(m_server->port(), QStringLiteral("alice"));
    const auto lister = connectClient(m_server->port(), QStringLiteral("bob"));
    QVERIFY(exporter && lister);
    QString localPath;
    const QString guid = exporter->CreateFileGroup(QStringLiteral("1"), LifeCycleBase, QString(), QString(),
                                                   FileTypeIfRecording, 0, QStringLiteral("large"), localPath);
    QVERIFY(!guid.isEmpty());
    const QByteArray block = pattern(1 << 20, 'L');
    for (unsigned int n = 1; n <= 4; ++n) {
        QFile file(QDir(localPath).filePath(QStringLiteral("part%1.bin").arg(n)));
        QVERIFY(file.open(QIODevice::WriteOnly));
        for (int megabyte = 0; megabyte < 50; ++megabyte)
            QCOMPARE(file.write(block), block.size());
        file.close();
        QCOMPARE(exporter->AddFile(file.fileName(), guid), n);
    }

    // The user list keeps coming back quickly for as long as the export runs.
    QSignalSpy exported(exporter.get(), &KavroClient::exportArchiveSg);
    const QString target = m_store->filePath(QStringLiteral("archives/large"));
    QVERIFY(QDir().mkpath(target));
    QVERIFY(!exporter->ExportArchiveAsync({guid}, target).isEmpty());
    for (int calls = 0; exported.isEmpty() && calls < 1000; ++calls) {
        QElapsedTimer timer;
        timer.start();
        const QStringList users = lister->GetUserList();
        const qint64 elapsed = timer.elapsed();
        QVERIFY2(users.contains(QStringLiteral("alice")), qPrintable(lister->GetErrorString()));
        QVERIFY2(elapsed < 1000, qPrintable(QStringLiteral("GetUserList took %1 ms").arg(elapsed)));
        QCoreApplication::processEvents(); // lets the export's answer in
    }
    QVERIFY(!exported.isEmpty() || exported.wait(60000));
    QCOMPARE(exported.first().at(1).toInt(), int(NoError));
    QCOMPARE(QFileInfo(target + QStringLiteral("/large_") + guid + QStringLiteral("/part4.bin")).size(), 50 << 20);
}

void tst_KavroServer::moveToNas()
{
    QVERIFY(startServer());
    const auto client = connectClient(m_server->port(), QStringLiteral("alice"));
    QVERIFY(client);
    const QByteArray content = pattern(3 << 20, 'n');
    const QString guid = createGroupWithFile(*client, QStringLiteral("moving"), FileTypeImage, content);
    QVERIFY(!guid.isEmpty());

    QSignalSpy progress(client.get(), &KavroClient::copyForeignFileGroupProgess);
    const QString requestId = client->MoveToNas(guid);
    QCOMPARE(answerError(*client, &KavroClient::MoveToNasSg, requestId), int(NoError));
    QTRY_COMPARE_WITH_TIMEOUT(locationState(*client, guid), int(LocationRemote), Timeout);
    QTRY_VERIFY_WITH_TIMEOUT(!progress.isEmpty(), Timeout);
    for (const QVariantList &notification : std::as_const(progress)) {
        QCOMPARE(notification.at(0).toString(), requestId);
        QVERIFY(notification.at(1).toFloat() >= 0 && notification.at(1).toFloat() <= 100);
    }
    const QString path = client->RequestFile(1, guid, LockRead);
    QVERIFY2(isInside(path, m_store->filePath(QStringLiteral("nas"))), qPrintable(path));
    QCOMPARE(readFile(path), content);
}

QTEST_GUILESS_MAIN(tst_KavroServer)
#include "tst_kavroserver.moc"
