// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "kavroclient_p.h"
#include "serverprocess.h"
#include "tcpforwarder.h"
#include "temporarysettings.h"
#include "testcertificates.h"
#include "xmlseparator_p.h"

#include <kavro/filequery.h>
#include <kavro/kavroclient.h>

#include <QDir>
#include <QElapsedTimer>
#include <QRegularExpression>
#include <QSet>
#include <QSignalSpy>
#include <QSslConfiguration>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>

#include <functional>
#include <memory>

using namespace Kavro;

Q_DECLARE_METATYPE(Kavro::FileQuery)

namespace
{
constexpr int Timeout = 20000;
const QDateTime LifeCycleBase(QDate(2031, 1, 1), QTime(0, 0), Qt::UTC);
// Group i of the query test has the type QueryTypes[i % 5] and the name queryGroupName(i).
const FileType QueryTypes[] = {FileTypeImage, FileTypeAudioRecording, FileTypeScanRecording, FileTypeReportFragment,
                               FileTypeTechnicalParameters};

QString queryGroupName(int i)
{
    return (i % 4 == 0 ? QStringLiteral("Harbour-%1") : QStringLiteral("survey-%1")).arg(i);
}

QByteArray pattern(qsizetype size, char seed)
{
    QByteArray bytes(size, Qt::Uninitialized);
    for (qsizetype i = 0; i < size; ++i)
        bytes[i] = char(seed + i % 251);
    return bytes;
}

bool isInside(const QString &path, const QString &directory)
{
    return QDir::cleanPath(path).startsWith(QDir::cleanPath(directory) + QLatin1Char('/'));
}

//! The arguments of the signal answering the request that \a send makes; empty when none came in time. The spy
//! listens before the request goes out: a reply that nothing listens for is not announced.
template<typename Signal>
QVariantList answer(KavroClient &client, Signal signal, const std::function<QString()> &send)
{
    QSignalSpy spy(&client, signal);
    const QString requestId = send();
    for (int seen = 0; !requestId.isEmpty() && (seen < spy.size() || spy.wait(Timeout)); ++seen) {
        if (spy.at(seen).value(0).toString() == requestId)
            return spy.at(seen);
    }
    return QVariantList();
}

//! The number a reply's signal carries right after the request id (mostly the error); -1 without reply.
template<typename Signal>
int answerError(KavroClient &client, Signal signal, const std::function<QString()> &send)
{
    return answer(client, signal, send).value(1, -1).toInt();
}

int closeFile(KavroClient &client, unsigned int fileId, const QString &guid)
{
    QSignalSpy spy(&client, &KavroClient::CloseFileSg);
    client.CloseFile(fileId, guid);
    return spy.wait(Timeout) ? spy.first().at(1).toInt() : -1;
}

int locationState(KavroClient &client, const QString &guid)
{
    return answerError(client, &KavroClient::queryLocationStateProgressSg, [&] {
        return client.QueryLocationStateProgress(guid);
    });
}

FileGroupData metaData(KavroClient &client, const QString &guid)
{
    return answer(client, &KavroClient::QueryMetaDataSg,
                  [&] {
                      return client.QueryMetaDataAsync(guid, QStringLiteral("viewer"));
                  })
        .value(1)
        .value<FileGroupData>();
}

//! A query with each setter applied to the value after it.
template<typename Setter, typename Value, typename... More>
FileQuery with(Setter setter, const Value &value, const More &...more)
{
    FileQuery query;
    if constexpr (sizeof...(more) > 0)
        query = with(more...);
    (query.*setter)(value);
    return query;
}

QStringList query(KavroClient &client, const FileQuery &criteria)
{
    unsigned int count = 0;
    return client.QueryFiles(criteria, count);
}

//! Creates a group, puts \a content into its directory as \a fileName and adds it; the guid, or empty.
QString createGroupWithFile(KavroClient &client, const QString &name, FileType type, const QByteArray &content,
                            const QString &fileName = QStringLiteral("content.bin"), QString *directory = nullptr)
{
    QString localPath;
    QString &groupPath = directory ? *directory : localPath;
    const QString guid = client.CreateFileGroup(QStringLiteral("1.0"), LifeCycleBase, QStringLiteral("detail"),
                                                QStringLiteral("comment"), type, 0, name, groupPath);
    const QString path = QDir(groupPath).filePath(fileName);
    return !guid.isEmpty() && writeFile(path, content) && client.AddFile(path, guid) == 1 ? guid : QString();
}

//! The reply once it has finished, owned by the caller; null when it did not finish in time.
std::unique_ptr<KavroReply> finished(KavroReply *reply)
{
    std::unique_ptr<KavroReply> owned(reply);
    QSignalSpy done(reply, &KavroReply::finished);
    return reply->isFinished() || (done.wait(Timeout) && done.size() == 1) ? std::move(owned) : nullptr;
}

} // namespace

class tst_KavroServer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();
    void fullSession_data();
    void fullSession();
    void lockMatrix_data();
    void lockMatrix();
    void queries_data();
    void queries();
    void exportAndImport();
    void converter_data();
    void converter();
    void listsDuringLargeExport();
    void moveToNas();
    void replyObjects();
    void tlsChannel_data();
    void tlsChannel();
    void provedUsers_data();
    void provedUsers();
    void twoServersOneArchive();
    void serverKilledMidStream();

private:
    bool startServer(const QStringList &extraArguments = QStringList());
    std::unique_ptr<KavroClient> connectClient(quint16 port, const QString &user,
                                               const QString &application = QStringLiteral("viewer"));
    //! A client of \a user that proves itself with the certificate of that name.
    std::unique_ptr<KavroClient> connectProvedClient(quint16 port, const QString &user);
    void writeSettings(quint16 port, const QByteArray &moreLines = QByteArray());

    std::unique_ptr<TemporarySettings> m_settings;
    std::unique_ptr<QTemporaryDir> m_store;
    std::unique_ptr<ServerProcess> m_server;
    // The groups of the query test, made once for all its rows, and when that began and ended.
    QTemporaryDir m_queryStore;
    ServerProcess m_queryServer;
    std::unique_ptr<KavroClient> m_queryClient;
    QDateTime m_queryStart;
    QDateTime m_queryEnd;
    TestCertificates m_certificates;
};

void tst_KavroServer::initTestCase()
{
    m_settings = std::make_unique<TemporarySettings>(QByteArray(), true);
    QVERIFY(m_certificates.make());
    QVERIFY(m_queryServer.start(m_queryStore.path()));
    m_queryClient = connectClient(m_queryServer.port(), QStringLiteral("alice"));
    QVERIFY(m_queryClient);
    // Even groups are alice's of the blue team, odd ones Bob's of the red team; the rest varies with the number.
    QSignalSpy created(m_queryClient.get(), &KavroClient::CreateFileGroupSg);
    m_queryStart = QDateTime::currentDateTimeUtc();
    for (int i = 0; i < 2000; ++i) {
        QString localPath;
        m_queryClient->SetUser(i % 2 == 0 ? QStringLiteral("alice") : QStringLiteral("Bob"));
        m_queryClient->SetTeamMembership(i % 2 == 0 ? QStringLiteral("Blue team") : QStringLiteral("Red team"));
        m_queryClient->CreateFileGroupAsync(i < 500 ? QStringLiteral("1.0") : QStringLiteral("2.0"),
                                            LifeCycleBase.addDays(i % 10), QStringLiteral("detail %1").arg(i),
                                            i % 10 == 3 ? QStringLiteral("needs URGENT review")
                                                        : QStringLiteral("routine"),
                                            QueryTypes[i % 5], 0, queryGroupName(i), localPath);
    }
    QTRY_COMPARE_WITH_TIMEOUT(created.count(), 2000, 120000);
    m_queryEnd = QDateTime::currentDateTimeUtc();
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

bool tst_KavroServer::startServer(const QStringList &extraArguments)
{
    m_store = std::make_unique<QTemporaryDir>();
    m_server = std::make_unique<ServerProcess>();
    return m_store->isValid() && m_server->start(m_store->path(), extraArguments);
}

std::unique_ptr<KavroClient> tst_KavroServer::connectClient(quint16 port, const QString &user,
                                                            const QString &application)
{
    writeSettings(port);
    auto client = std::make_unique<KavroClient>();
    client->SetUser(user);
    client->SetApplication(application);
    QSignalSpy connected(client.get(), &KavroClient::connected);
    if (!client->IsConnected() && !connected.wait(Timeout))
        return nullptr;
    return client;
}

// The connection settings are read when a client is made: each client takes its server's port.
void tst_KavroServer::writeSettings(quint16 port, const QByteArray &moreLines)
{
    m_settings->write("[KAVRO]\nServerHost=127.0.0.1\nXmlPort=" + QByteArray::number(port)
                      + "\nReconnectIntervalMs=100\nReplyTimeoutMs=30000\n" + moreLines);
    KavroClient::ClientConfig::instance().reload();
}

std::unique_ptr<KavroClient> tst_KavroServer::connectProvedClient(quint16 port, const QString &user)
{
    writeSettings(port);
    auto client = std::make_unique<KavroClient>();
    QString error;
    client->setSslConfiguration(KavroClient::sslConfigurationFromFiles(m_certificates.certificate(QStringLiteral("ca")),
                                                                       m_certificates.certificate(user),
                                                                       m_certificates.key(user), &error));
    client->SetUser(user);
    return error.isEmpty() && client->waitForConnected(Timeout) ? std::move(client) : nullptr;
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
    // On a raw connection errors leave the line usable, and replies are packed exactly when asked for: the
    // separator keeps unpacking only as long as every reply comes packed.
    QTcpSocket socket;
    XmlSeparator separator(&socket, XmlSeparator::LengthPrefixLittleEndian, nullptr);
    QSignalSpy replies(&separator, &XmlSeparator::xmlReceived);
    socket.connectToHost(QStringLiteral("127.0.0.1"), m_server->port());
    QVERIFY(socket.waitForConnected(Timeout));
    for (const char *body : {"<m:FutureCommand/>", "<m:GetFileList><m:Colour/></m:GetFileList>", "<m:GetUserList/>"}) {
        const QByteArray request = "<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\" xmlns:m=\"http://"
                                   "kavro/8SP/KAVRO\"><s:Header/><s:Body>"
            + QByteArray(body) + "</s:Body></s:Envelope>";
        // padded where a first length byte of 0 would announce big-endian lengths
        QVERIFY(separator.sendXml(request + QByteArray(request.size() % 256 == 0, ' ')));
    }
    QTRY_COMPARE_WITH_TIMEOUT(replies.count(), 3, Timeout);
    QVERIFY(replies.at(0).at(0).toByteArray().contains("<m:Error>41</m:Error>"));
    QVERIFY(replies.at(1).at(0).toByteArray().contains("<m:Error>57</m:Error>"));
    const QByteArray users = replies.at(2).at(0).toByteArray();
    QVERIFY2(users.contains("GetUserListReply") && users.contains("<m:Error>0</m:Error>"), users.constData());
    QCOMPARE(separator.isUncompressingIncoming(), compressed);

    const auto client = connectClient(m_server->port(), QStringLiteral("alice"));
    QVERIFY(client);
    QString localPath;
    const QString guid = client->CreateFileGroup(QStringLiteral("1.0"), LifeCycleBase, QStringLiteral("a detail"),
                                                 QStringLiteral("a comment"), FileTypeReportFragment, 0,
                                                 QStringLiteral("report"), localPath);
    QVERIFY2(isInside(localPath, m_store->filePath(QStringLiteral("data"))), qPrintable(localPath));
    const QString notesPath = QDir(localPath).filePath(QStringLiteral("notes.txt"));
    const QString imagePath = QDir(localPath).filePath(QStringLiteral("image.bin"));
    QVERIFY(writeFile(notesPath, "notes") && writeFile(imagePath, pattern(300000, 'x')));
    QCOMPARE(client->AddFile(notesPath, guid), 1u);
    QCOMPARE(client->AddFile(imagePath, guid), 2u);

    // References are counted per application; removing all of one application's leaves the other's.
    QSignalSpy added(client.get(), &KavroClient::AddReferenceSg);
    QSignalSpy removed(client.get(), &KavroClient::RemoveReferenceSg);
    QSignalSpy removedAll(client.get(), &KavroClient::RemoveAllReferenceSg);
    client->AddReference(guid);
    client->AddReference(guid);
    client->RemoveReference(guid);
    QTRY_COMPARE_WITH_TIMEOUT(added.count() + removed.count(), 3, Timeout);
    QCOMPARE(metaData(*client, guid).getReferenceCount(), 1);
    client->SetApplication(QStringLiteral("editor"));
    client->AddReference(guid);
    client->AddReference(guid);
    client->SetApplication(QStringLiteral("viewer"));
    client->RemoveAllReferences(guid);
    QTRY_COMPARE_WITH_TIMEOUT(removedAll.count(), 1, Timeout);
    QCOMPARE(query(*client, with(&FileQuery::SetReferencingApplication, QStringLiteral("viewer"))), QStringList());
    QCOMPARE(query(*client, with(&FileQuery::SetReferencingApplication, QStringLiteral("editor"))), QStringList{guid});
    QCOMPARE(added.last().at(1).toInt() + removed.last().at(1).toInt() + removedAll.last().at(1).toInt(), 0);
    QVERIFY(client->GetApplicationList().contains(QStringLiteral("editor")));

    const FileGroupData record = metaData(*client, guid);
    QCOMPARE(record.getGuid() + record.getName() + record.getCreator(), guid + QStringLiteral("reportalice"));
    QCOMPARE(record.getComment() + record.getDetail(), QStringLiteral("a commenta detail"));
    QCOMPARE(record.getFileType(), FileTypeReportFragment);
    QCOMPARE(record.getLocationState(), LocationCentral);
    QCOMPARE(record.getLifeCycle(), LifeCycleBase);
    QCOMPARE(record.getReferenceCount(), 2);
    QCOMPARE(record.getFileList(),
             (FileGroupData::FileList{{QStringLiteral("notes.txt"), 1}, {QStringLiteral("image.bin"), 2}}));
    QCOMPARE(answer(*client, &KavroClient::checkFileGroupExistsSg,
                    [&] {
                        return client->CheckFileGroupExists(guid);
                    })
                 .mid(1, 2),
             (QVariantList{true, int(NoError)}));
    QVERIFY(client->CreateFileGroup({}, {}, {}, {}, FileTypeImage, 0, {}, localPath, guid).isEmpty()); // guid taken
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
    QCOMPARE(client->QueryMetaData(guid, QStringLiteral("viewer")), record); // blocking, the same
    QCOMPARE(client->QueryMetaData(QStringLiteral("no-such-group")), FileGroupData());
    QCOMPARE(client->GetError(), ErrorGuidNotFound);
    QCOMPARE(readFile(client->RequestFile(2, guid, LockRead)), pattern(300000, 'x'));
    QCOMPARE(closeFile(*client, 2, guid), int(NoError));

    // Deleting a file or the group takes its files off the disk.
    QCOMPARE(answerError(*client, &KavroClient::DeleteFileNameSg,
                         [&] {
                             return client->DeleteFileName(2, guid);
                         }),
             int(NoError));
    QCOMPARE(client->GetFileList(guid), (QStringList{QStringLiteral("1"), QStringLiteral("notes.txt")}));
    QVERIFY(!QFile::exists(imagePath));
    QCOMPARE(answerError(*client, &KavroClient::deleteFileGroupSg,
                         [&] {
                             return client->DeleteFileGroupAsync(guid);
                         }),
             int(NoError));
    QVERIFY(!QFile::exists(notesPath));
    QCOMPARE(answer(*client, &KavroClient::checkFileGroupExistsSg,
                    [&] {
                        return client->CheckFileGroupExists(guid);
                    })
                 .value(1),
             QVariant(false));
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

    QVERIFY(!alice->RequestFile(1, guid, LockState(first)).isEmpty());
    QCOMPARE(bob->RequestFile(1, guid, LockState(second)).isEmpty(), error != NoError);
    QCOMPARE(int(bob->GetError()), error);
    const FileQuery lockedByAlice =
        with(&FileQuery::SetLockUser, QStringLiteral("alice"), &FileQuery::SetLockState, LockState(first));
    QCOMPARE(query(*alice, lockedByAlice), QStringList{guid});
    // Neither the locked file nor its group can be deleted.
    QCOMPARE(answerError(*bob, &KavroClient::DeleteFileNameSg,
                         [&] {
                             return bob->DeleteFileName(1, guid);
                         }),
             int(ErrorFileGroupLocked));
    QCOMPARE(answerError(*alice, &KavroClient::deleteFileGroupSg,
                         [&] {
                             return alice->DeleteFileGroupAsync(guid);
                         }),
             int(ErrorFileGroupLocked));

    // CloseFile releases: then bob gets the lock he asked for.
    QCOMPARE(closeFile(*alice, 1, guid), int(NoError));
    if (error == NoError)
        QCOMPARE(closeFile(*bob, 1, guid), int(NoError));
    QCOMPARE(query(*alice, lockedByAlice), QStringList());
    QVERIFY(!bob->RequestFile(1, guid, LockState(second)).isEmpty());
    QCOMPARE(closeFile(*bob, 1, guid), int(NoError));
    QCOMPARE(answerError(*alice, &KavroClient::deleteFileGroupSg,
                         [&] {
                             return alice->DeleteFileGroupAsync(guid);
                         }),
             int(NoError));
}

void tst_KavroServer::queries_data()
{
    // Locks, references and location states are queried in lockMatrix, fullSession and converter.
    using Q = FileQuery;
    QTest::addColumn<FileQuery>("criteria");
    QTest::addColumn<int>("expected");
    QTest::newRow("no criteria") << FileQuery() << 2000;
    QTest::newRow("name, other case") << with(&Q::SetFileGroupSearchText, QStringLiteral("HARB")) << 500;
    QTest::newRow("comment") << with(&Q::SetCommentSearchText, QStringLiteral("urgent")) << 200;
    QTest::newRow("detail, prefix of longer numbers")
        << with(&Q::SetDetailSearchText, QStringLiteral("detail 19")) << 111;
    QTest::newRow("version") << with(&Q::SetVersionSearchText, QStringLiteral("2.")) << 1500;
    QTest::newRow("team, other case") << with(&Q::SetTeamMembershipSearchText, QStringLiteral("BLUE")) << 1000;
    QTest::newRow("two file types") << with(&Q::AddFileType, FileTypeImage, &Q::AddFileType, FileTypeAudioRecording)
                                    << 800;
    QTest::newRow("type and name") << with(&Q::AddFileType, FileTypeImage, &Q::SetFileGroupSearchText,
                                           QStringLiteral("harbour"))
                                   << 100;
    QTest::newRow("life cycle, closed range")
        << with(&Q::SetLifeCycleTimeMin, LifeCycleBase.addDays(2), &Q::SetLifeCycleTimeMax, LifeCycleBase.addDays(4))
        << 600;
    QTest::newRow("life cycle, open above") << with(&Q::SetLifeCycleTimeMin, LifeCycleBase.addDays(8)) << 400;
    QTest::newRow("life cycle, open below") << with(&Q::SetLifeCycleTimeMax, LifeCycleBase.addDays(0)) << 200;
    QTest::newRow("creation time around the run")
        << with(&Q::SetCreationTimeMin, m_queryStart.addSecs(-2), &Q::SetCreationTimeMax, m_queryEnd.addSecs(2))
        << 2000;
    QTest::newRow("creation time before the run") << with(&Q::SetCreationTimeMax, m_queryStart.addDays(-1)) << 0;
    QTest::newRow("modification time after the run") << with(&Q::SetModificationTimeMin, m_queryEnd.addDays(1)) << 0;
    QTest::newRow("backup time bounded, never backed up") << with(&Q::SetBackupTimeMin, m_queryStart.addDays(-1)) << 0;
    const FileQuery all =
        with(&Q::AddFileType, FileTypeScanRecording, &Q::SetTeamMembershipSearchText, QStringLiteral("Blue"),
             &Q::SetVersionSearchText, QStringLiteral("2.0"), &Q::SetLocationState, LocationCentral,
             &Q::SetLifeCycleTimeMin, LifeCycleBase.addDays(2), &Q::SetLifeCycleTimeMax, LifeCycleBase.addDays(2));
    QTest::newRow("all kinds at once") << all << 150;
}

void tst_KavroServer::queries()
{
    QFETCH(FileQuery, criteria);
    QFETCH(int, expected);
    unsigned int count = 0;
    const QStringList guids = m_queryClient->QueryFiles(criteria, count);
    QCOMPARE(m_queryClient->GetError(), NoError);
    QCOMPARE(guids.size(), expected);
    QCOMPARE(int(count), expected);
    QCOMPARE(QSet<QString>(guids.cbegin(), guids.cend()).size(), expected);

    // As records: the same groups in the same order, each as created, with its times in UTC.
    const QList<FileGroupData> records = m_queryClient->QueryFileGroups(criteria);
    QStringList recordGuids;
    for (const FileGroupData &record : records)
        recordGuids.append(record.getGuid());
    QCOMPARE(recordGuids, guids);
    if (const FileGroupData record = records.value(expected / 2); expected > 0) {
        const int i = record.getName().section(QLatin1Char('-'), 1).toInt();
        QCOMPARE(record.getName(), queryGroupName(i));
        QCOMPARE(record.getFileType(), QueryTypes[i % 5]);
        QCOMPARE(record.getCreator(), i % 2 == 0 ? QStringLiteral("alice") : QStringLiteral("Bob"));
        QCOMPARE(record.getCreationTime().timeSpec(), Qt::UTC);
    }

    // Asynchronously: the table of display texts, header row first, then the records.
    // (The blocking calls above emit these signals too; they are told apart by request id.)
    QSignalSpy table(m_queryClient.get(), &KavroClient::queryFileGroupsSg);
    QSignalSpy asRecords(m_queryClient.get(), &KavroClient::QueryFileGroupRecordsSg);
    const QString requestId = m_queryClient->QueryFilesAsync(criteria);
    QTRY_VERIFY(!asRecords.isEmpty() && asRecords.last().at(0).toString() == requestId);
    QCOMPARE(table.last().at(0).toString(), requestId);
    QStringList cells;
    FileGroupData::GetHeaders(cells);
    for (const FileGroupData &record : records)
        record.ToStringList(cells);
    QCOMPARE(table.last().at(1).toStringList(), cells);
    QCOMPARE(asRecords.last().at(1).value<QList<FileGroupData>>(), records);
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
    QVERIFY(writeFile(QDir(localPath).filePath(QStringLiteral("table.csv")), table));
    QCOMPARE(client->AddFile(QDir(localPath).filePath(QStringLiteral("table.csv")), guid), 2u);
    const QString archives = m_store->filePath(QStringLiteral("archives"));
    const QString target = archives + QStringLiteral("/batch");
    QVERIFY(QDir().mkpath(archives + QStringLiteral("/empty"))); // the export makes its target itself
    QCOMPARE(answerError(*client, &KavroClient::exportArchiveSg,
                         [&] {
                             return client->ExportArchiveAsync({guid}, target);
                         }),
             int(NoError));
    // Imported again where the group lives, it is refused before anything is copied: the live file stays.
    QVERIFY(writeFile(QDir(localPath).filePath(QStringLiteral("notes.txt")), "edited since"));
    QCOMPARE(answerError(*client, &KavroClient::importArchiveSg,
                         [&] {
                             return client->ImportArchiveAsync({target});
                         }),
             int(ErrorAddFileGroup));
    QCOMPARE(readFile(QDir(localPath).filePath(QStringLiteral("notes.txt"))), QByteArray("edited since"));
    QVERIFY(!QFileInfo::exists(m_store->filePath(QStringLiteral("data/imported"))));

    // A second server, whose archive root is the first one's, takes the export in: from the export's
    // directory, and once that copy is deleted again from the group's files directory beside its description.
    QTemporaryDir secondStore;
    ServerProcess second;
    QVERIFY(second.start(secondStore.path(), {QStringLiteral("--archive-root"), archives}));
    const auto reader = connectClient(second.port(), QStringLiteral("bob"));
    QVERIFY(reader);
    const auto importFrom = [&reader](const QString &path) {
        return answerError(*reader, &KavroClient::importArchiveSg, [&] {
            return reader->ImportArchiveAsync({path});
        });
    };
    QCOMPARE(importFrom(archives + QStringLiteral("/empty")), int(ErrorImportArchiveIncomplete));
    for (const QString &path : QStringList{target, target + QStringLiteral("/survey_") + guid}) {
        QCOMPARE(importFrom(path), int(NoError));
        const FileGroupData record = metaData(*reader, guid);
        QCOMPARE(record.getName() + record.getCreator(), QStringLiteral("surveyalice"));
        QCOMPARE(record.getFileList(),
                 (FileGroupData::FileList{{QStringLiteral("notes.txt"), 1}, {QStringLiteral("table.csv"), 2}}));
        for (const auto &[fileId, bytes] : {std::make_pair(1u, notes), std::make_pair(2u, table)}) {
            const QString copy = reader->RequestFile(fileId, guid, LockRead);
            QVERIFY2(isInside(copy, secondStore.filePath(QStringLiteral("data"))), qPrintable(copy));
            QCOMPARE(readFile(copy), bytes);
            QCOMPARE(closeFile(*reader, fileId, guid), int(NoError));
        }
        QCOMPARE(answerError(*reader, &KavroClient::deleteFileGroupSg,
                             [&] {
                                 return reader->DeleteFileGroupAsync(guid);
                             }),
                 int(NoError));
    }
    QVERIFY(second.stop());
}

void tst_KavroServer::converter_data()
{
    QTest::addColumn<bool>("otherServer"); // the converter connected to another server of the archive
    QTest::newRow("converter on the same server") << false;
    QTest::newRow("converter on another server") << true;
}

void tst_KavroServer::converter()
{
    QFETCH(bool, otherServer);
    if (otherServer && !qEnvironmentVariableIsSet("KAVRO_TEST_POSTGRESQL"))
        QSKIP("conversion requests reach other servers through PostgreSQL's notifications");
    QVERIFY(startServer());
    ServerProcess second;
    QVERIFY(!otherServer || second.start(m_store->path()));
    auto converter = connectClient(otherServer ? second.port() : m_server->port(), QStringLiteral("conv"),
                                   QStringLiteral("converter"));
    const auto producer = connectClient(m_server->port(), QStringLiteral("alice"));
    QVERIFY(converter && producer);
    QCOMPARE(answerError(*converter, &KavroClient::RegisterConverterSg,
                         [&] {
                             return converter->RegisterConverterAsync(QStringLiteral("image-converter"),
                                                                      {FileTypeImage});
                         }),
             int(NoError));
    QSignalSpy requested(converter.get(), &KavroClient::ConvertFileGroupRequestedSg);

    // Only groups of the registered type are the converter's business; they wait for its answer.
    const QString audio = createGroupWithFile(*producer, QStringLiteral("audio"), FileTypeAudioRecording, "sound");
    QString localPath;
    const QString image = createGroupWithFile(*producer, QStringLiteral("image"), FileTypeImage, "pixels",
                                              QStringLiteral("photo.png"), &localPath);
    QVERIFY(!audio.isEmpty() && requested.wait(Timeout));
    QCOMPARE(requested.first().at(0).toString(), image);
    QCOMPARE(requested.first().at(1).value<FileType>(), FileTypeImage);
    QVERIFY2(QDir::cleanPath(requested.first().at(2).toString()).startsWith(QDir::cleanPath(localPath)),
             qPrintable(requested.first().at(2).toString()));
    QCOMPARE(locationState(*producer, audio), int(LocationCentral));
    QCOMPARE(query(*producer, with(&FileQuery::SetLocationState, LocationCentralNotConverted)), QStringList{image});
    // Only the converter that was asked may answer: anyone else's answer is ignored, and said so.
    producer->AnswerConvertFileGroup(image, NoError, QString());
    QCOMPARE(locationState(*producer, image), int(LocationCentralNotConverted));
    QVERIFY(m_server->waitForLog("ignored an answer to a conversion of " + image.toUtf8()));

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
    const QByteArray part = pattern(50 << 20, 'L');
    for (unsigned int n = 1; n <= 4; ++n) {
        const QString path = QDir(localPath).filePath(QStringLiteral("part%1.bin").arg(n));
        QVERIFY(writeFile(path, part));
        QCOMPARE(exporter->AddFile(path, guid), n);
    }

    // The user list keeps coming back for as long as the export of 200 MB runs: the copy holds no lock
    // of the database that another request would wait for.
    QSignalSpy exported(exporter.get(), &KavroClient::exportArchiveSg);
    const QString target = m_store->filePath(QStringLiteral("archives/large"));
    QVERIFY(!exporter->ExportArchiveAsync({guid}, target).isEmpty());
    int listsDuringExport = 0;
    for (; exported.isEmpty() && listsDuringExport < 1000; ++listsDuringExport) {
        QVERIFY2(lister->GetUserList().contains(QStringLiteral("alice")), qPrintable(lister->GetErrorString()));
        QCoreApplication::processEvents(); // lets the export's answer in
    }
    QVERIFY2(listsDuringExport >= 5, qPrintable(QString::number(listsDuringExport)));
    QVERIFY(!exported.isEmpty() || exported.wait(60000));
    QCOMPARE(exported.first().at(1).toInt(), int(NoError));
    QCOMPARE(readFile(target + QStringLiteral("/large_") + guid + QStringLiteral("/part4.bin")), part);
}

void tst_KavroServer::moveToNas()
{
    QVERIFY(startServer());
    const auto client = connectClient(m_server->port(), QStringLiteral("alice"));
    QVERIFY(client);
    const QByteArray content = pattern(3 << 20, 'n');
    QString oldDirectory;
    const QString guid = createGroupWithFile(*client, QStringLiteral("moving"), FileTypeImage, content,
                                             QStringLiteral("content.bin"), &oldDirectory);

    // Not while a file is locked: its holder would save into the old copy.
    QVERIFY(!client->RequestFile(1, guid, LockWrite).isEmpty());
    QCOMPARE(answerError(*client, &KavroClient::MoveToNasSg,
                         [&] {
                             return client->MoveToNas(guid);
                         }),
             int(ErrorFileGroupLocked));
    QCOMPARE(closeFile(*client, 1, guid), int(NoError));
    QSignalSpy progress(client.get(), &KavroClient::copyForeignFileGroupProgess);
    QString requestId;
    QCOMPARE(answerError(*client, &KavroClient::MoveToNasSg,
                         [&] {
                             return requestId = client->MoveToNas(guid);
                         }),
             int(NoError));
    QTRY_COMPARE_WITH_TIMEOUT(locationState(*client, guid), int(LocationRemote), Timeout);
    // The last notification says 100, once; a later round trip lets any other one in.
    QTRY_VERIFY_WITH_TIMEOUT(!progress.isEmpty() && progress.last().at(1).toFloat() == 100, Timeout);
    QVERIFY(!client->GetUserList().isEmpty());
    QCoreApplication::processEvents();
    int completions = 0;
    for (const QVariantList &notification : std::as_const(progress)) {
        QCOMPARE(notification.at(0).toString(), requestId);
        QVERIFY(notification.at(1).toFloat() >= 0 && notification.at(1).toFloat() <= 100);
        completions += notification.at(1).toFloat() == 100;
    }
    QCOMPARE(completions, 1);
    QVERIFY(!QFileInfo::exists(oldDirectory)); // the old copy goes with the move
    // A second move is refused: its source is its target.
    QCOMPARE(answerError(*client, &KavroClient::MoveToNasSg,
                         [&] {
                             return client->MoveToNas(guid);
                         }),
             int(ErrorMoveFileGroup));
    const QString path = client->RequestFile(1, guid, LockRead);
    QVERIFY2(isInside(path, m_store->filePath(QStringLiteral("nas"))), qPrintable(path));
    QCOMPARE(readFile(path), content);
}

void tst_KavroServer::replyObjects()
{
    QVERIFY(startServer());
    const auto client = connectClient(m_server->port(), QStringLiteral("alice"));
    QVERIFY(client);
    QSignalSpy publicReplies(client.get(), &KavroClient::CreateFileGroupSg);

    const auto created = finished(client->CreateFileGroupRequest(
        QStringLiteral("1.0"), LifeCycleBase, QString(), QString(), FileTypeImage, 5000000000, QStringLiteral("scan")));
    QVERIFY(created && created->error() == NoError);
    const QString path = QDir(created->path()).filePath(QStringLiteral("page.bin"));
    QVERIFY(writeFile(path, "page"));
    const auto added = finished(client->AddFileRequest(path, created->guid()));
    QVERIFY(added && added->error() == NoError);
    QCOMPARE(added->fileId(), 1u);

    // Values come back as they went in: the top file id and then the lowest free one, 64 bits of storage,
    // the record's own creation time as a query's both bounds, the guid in any case.
    QSignalSpy addedAsync(client.get(), &KavroClient::AddFileSg);
    for (const char *name : {"top.bin", "next.bin"})
        QVERIFY(writeFile(QDir(created->path()).filePath(QLatin1String(name)), name));
    client->AddFileAsync(QDir(created->path()).filePath(QStringLiteral("top.bin")), created->guid(), -1);
    QVERIFY(addedAsync.wait(Timeout));
    QCOMPARE(addedAsync.first().at(1).toUInt(), 4294967295u);
    QCOMPARE(
        finished(client->AddFileRequest(QDir(created->path()).filePath(QStringLiteral("next.bin")), created->guid()))
            ->fileId(),
        2u);
    const auto meta = finished(client->QueryMetaDataRequest(created->guid()));
    QVERIFY(meta);
    QCOMPARE(meta->metaData().getFileList(),
             (FileGroupData::FileList{{QStringLiteral("page.bin"), 1},
                                      {QStringLiteral("next.bin"), 2},
                                      {QStringLiteral("top.bin"), 4294967295u}}));
    QCOMPARE(meta->metaData().getReservedStorage(), 5000000000);
    const QDateTime createdAt = meta->metaData().getCreationTime();
    QCOMPARE(query(*client, with(&FileQuery::SetCreationTimeMin, createdAt, &FileQuery::SetCreationTimeMax, createdAt)),
             QStringList{created->guid()});
    QVERIFY(finished(client->CheckFileGroupExistsRequest(created->guid().toUpper()))->exists());
    const auto found =
        finished(client->QueryFilesRequest(with(&FileQuery::SetFileGroupSearchText, QStringLiteral("sc"))));
    QVERIFY(found);
    QCOMPARE(found->groups().size(), 1);
    QCOMPARE(found->groups().at(0).getGuid() + found->groups().at(0).getName(),
             created->guid() + QStringLiteral("scan"));
    const auto users = finished(client->GetUserListRequest());
    QVERIFY(users && users->users().contains(QStringLiteral("alice")));
    const auto fetched = finished(client->RequestFileRequest(1, created->guid(), LockRead));
    QVERIFY(fetched);
    QCOMPARE(readFile(fetched->path()), QByteArray("page"));

    // A refused creation says why in the server's words, and its directory goes again.
    const auto refused = finished(client->CreateFileGroupRequest(
        QString(), QDateTime(), QString(), QString(), FileTypeImage, 0, QStringLiteral("again"), created->guid()));
    QVERIFY(refused);
    QCOMPARE(refused->error(), ErrorAddFileGroup);
    QVERIFY(!refused->errorString().isEmpty());
    QVERIFY(!QFileInfo::exists(QDir(created->path()).filePath(QStringLiteral("../again"))));
    QCOMPARE(publicReplies.size(), 0);
}

void tst_KavroServer::tlsChannel_data()
{
    QTest::addColumn<QStringList>("serverArguments");
    QTest::addColumn<QByteArray>("clientSettings"); // NAME is replaced by the certificates' directory
    QTest::addColumn<QString>("failure"); // what errorOccurred says; empty: the client connects

    const QStringList plain;
    const QStringList encrypted = m_certificates.serverArguments(false);
    const QStringList proving = m_certificates.serverArguments(true);
    const QByteArray ca = "TlsCaCertificates=" + m_certificates.certificate(QStringLiteral("ca")).toUtf8() + '\n';
    const auto user = [this](const char *name) -> QByteArray {
        return "TlsCertificate=" + m_certificates.certificate(QLatin1String(name)).toUtf8()
            + "\nTlsKey=" + m_certificates.key(QLatin1String(name)).toUtf8() + '\n';
    };
    const QByteArray otherCa =
        "TlsCaCertificates=" + m_certificates.certificate(QStringLiteral("other-ca")).toUtf8() + '\n';
    const QString handshakeFailed = QStringLiteral("the TLS handshake with the archive server at 127.0.0.1");

    QTest::newRow("TLS without client certificates") << encrypted << ca << QString();
    QTest::newRow("alice proved, replies compressed")
        << proving + QStringList{QStringLiteral("--compress")} << ca + user("alice") << QString();
    QTest::newRow("unverified server accepted by name") << encrypted << otherCa + "TlsAcceptUnverifiedServer=true\n"
                                                        << QString();
    QTest::newRow("plain client, TLS server") << encrypted << QByteArray() << QStringLiteral("does it require TLS");
    QTest::newRow("TLS client, plain server") << plain << ca << handshakeFailed;
    QTest::newRow("server of another CA") << encrypted << otherCa << handshakeFailed;
    QTest::newRow("no client certificate") << proving << ca << QStringLiteral("refused the TLS connection");
    QTest::newRow("client of another CA")
        << proving << ca + user("mallory") << QStringLiteral("refused the TLS connection");
    QTest::newRow("expired client certificate")
        << proving << ca + user("expired") << QStringLiteral("refused the TLS connection");
    QTest::newRow("unreadable key") << encrypted
                                    << ca + "TlsCertificate="
            + m_certificates.certificate(QStringLiteral("alice")).toUtf8() + "\nTlsKey=/nonexistent\n"
                                    << QStringLiteral(
                                           "the TLS settings in [KAVRO] cannot be used: cannot read /nonexistent");
}

// Each way the channel can fail is told at once in plain words, not as a timeout: the reply timeout is a minute,
// longer than the test waits.
void tst_KavroServer::tlsChannel()
{
    QFETCH(QStringList, serverArguments);
    QFETCH(QByteArray, clientSettings);
    QFETCH(QString, failure);
    QVERIFY(startServer(serverArguments));
    writeSettings(m_server->port(), clientSettings + "ReplyTimeoutMs=60000\n");
    KavroClient client;
    client.SetUser(QStringLiteral("alice"));
    QSignalSpy failed(&client, &KavroClient::errorOccurred);
    if (failure.isEmpty()) {
        QVERIFY(client.waitForConnected(Timeout));
        QCOMPARE(client.sslConfiguration().isNull(), false);
        QCOMPARE(finished(client.CheckFileGroupExistsRequest(QStringLiteral("none")))->error(), NoError);
        // A server that restarts is reached again, over TLS as before.
        const quint16 port = m_server->port();
        QVERIFY(m_server->stop());
        QTRY_VERIFY_WITH_TIMEOUT(!client.IsConnected(), Timeout);
        QVERIFY(m_server->start(m_store->path(), serverArguments, port));
        QVERIFY(client.waitForConnected(Timeout));
        QCOMPARE(finished(client.CheckFileGroupExistsRequest(QStringLiteral("none")))->error(), NoError);
        QVERIFY(!failed.isEmpty()); // the loss, then maybe attempts refused while the server restarted
        QVERIFY2(failed.first().at(1).toString().contains(QStringLiteral("was lost")),
                 qPrintable(failed.first().at(1).toString()));
        return;
    }
    QVERIFY(failed.wait(Timeout));
    QVERIFY2(failed.first().at(1).toString().contains(failure), qPrintable(failed.first().at(1).toString()));
    QCOMPARE(client.state(), KavroClient::Unconnected);
    QVERIFY(!client.IsConnected());
}

enum class Action {
    Create,
    CreateRovec,
    ReadLock,
    WriteLock,
    Release,
    Move,
    DeleteFile,
    DeleteGroup,
    RemoveReferences
};
Q_DECLARE_METATYPE(Action)

void tst_KavroServer::provedUsers_data()
{
    QTest::addColumn<QString>("actor"); // whose certificate
    QTest::addColumn<QString>("named"); // the user the request names
    QTest::addColumn<Action>("action"); // on a group of alice's with one file, write-locked by her for Release
    QTest::addColumn<QString>("command");
    QTest::addColumn<int>("error");
    const QString alice = QStringLiteral("alice");
    const QString bob = QStringLiteral("bob");
    const QString admin = QStringLiteral("admin");

    QTest::newRow("bob creates as alice")
        << bob << alice << Action::Create << "CreateFileGroup" << int(ErrorNoWritePermission);
    QTest::newRow("bob creates a rovec group as alice")
        << bob << alice << Action::CreateRovec << "CreateRovecFileGroup" << int(ErrorNoWritePermission);
    QTest::newRow("bob read-locks as alice")
        << bob << alice << Action::ReadLock << "RequestFile" << int(ErrorNoReadPermission);
    QTest::newRow("bob write-locks as alice")
        << bob << alice << Action::WriteLock << "RequestFile" << int(ErrorNoWritePermission);
    QTest::newRow("bob releases alice's lock")
        << bob << alice << Action::Release << "CloseFile" << int(ErrorNoWritePermission);
    QTest::newRow("bob moves as alice") << bob << alice << Action::Move << "MoveToNas" << int(ErrorNoWritePermission);
    QTest::newRow("bob deletes alice's file")
        << bob << bob << Action::DeleteFile << "DeleteFile" << int(ErrorNoWritePermission);
    QTest::newRow("bob deletes alice's group")
        << bob << bob << Action::DeleteGroup << "DeleteFileGroup" << int(ErrorNoWritePermission);
    QTest::newRow("bob removes the references to alice's group")
        << bob << bob << Action::RemoveReferences << "RemoveAllReferences" << int(ErrorNoWritePermission);
    QTest::newRow("bob reads as himself") << bob << bob << Action::ReadLock << "RequestFile" << int(NoError);
    QTest::newRow("alice releases her lock") << alice << alice << Action::Release << "CloseFile" << int(NoError);
    QTest::newRow("alice deletes her group")
        << alice << alice << Action::DeleteGroup << "DeleteFileGroup" << int(NoError);
    QTest::newRow("the administrator releases alice's lock")
        << admin << alice << Action::Release << "CloseFile" << int(NoError);
    QTest::newRow("the administrator deletes alice's file")
        << admin << admin << Action::DeleteFile << "DeleteFile" << int(NoError);
    QTest::newRow("the administrator creates as alice")
        << admin << alice << Action::Create << "CreateFileGroup" << int(NoError);
}

// With client certificates a request acts for the certificate's user alone, on what that user made; the
// administrator acts for anyone. Each attempt leaves one line in the audit trail.
void tst_KavroServer::provedUsers()
{
    QFETCH(QString, actor);
    QFETCH(QString, named);
    QFETCH(Action, action);
    QFETCH(QString, command);
    QFETCH(int, error);
    QVERIFY(startServer(m_certificates.serverArguments()));
    const auto alice = connectProvedClient(m_server->port(), QStringLiteral("alice"));
    const auto client = connectProvedClient(m_server->port(), actor);
    QVERIFY(alice && client);
    const QString guid = createGroupWithFile(*alice, QStringLiteral("alice's"), FileTypeImage, "hers");
    QVERIFY(!guid.isEmpty());
    if (action == Action::Release)
        QVERIFY(!alice->RequestFile(1, guid, LockWrite).isEmpty());

    client->SetUser(named);
    const auto act = [&]() -> KavroReply * {
        switch (action) {
        case Action::Create:
            return client->CreateFileGroupRequest(QStringLiteral("1"), LifeCycleBase, QString(), QString(),
                                                  FileTypeImage, 0, QStringLiteral("claimed"));
        case Action::CreateRovec:
            return client->CreateRovecFileGroupRequest(QStringLiteral("sub"), QStringLiteral("r1"),
                                                       QStringLiteral("record"), QString(), QString(), named,
                                                       FileTypeImage);
        case Action::ReadLock:
        case Action::WriteLock:
            return client->RequestFileRequest(1, guid, action == Action::ReadLock ? LockRead : LockWrite);
        case Action::Release:
            return client->CloseFileRequest(1, guid);
        case Action::Move:
            return client->MoveToNasRequest(guid);
        case Action::DeleteFile:
            return client->DeleteFileNameRequest(1, guid);
        case Action::DeleteGroup:
            return client->DeleteFileGroupRequest(guid);
        case Action::RemoveReferences:
            return client->RemoveAllReferencesRequest(guid);
        }
        return nullptr;
    };
    const auto reply = finished(act());
    QVERIFY(reply);
    QCOMPARE(int(reply->error()), error);
    const QRegularExpression audited(
        QStringLiteral("audit \\S+ 127\\.0\\.0\\.1:\\d+ %1 %2 .*-> %3 ").arg(actor, command).arg(error));
    QTRY_VERIFY_WITH_TIMEOUT(audited.match(QString::fromUtf8(m_server->errorOutput())).hasMatch(), Timeout);
    if (action == Action::Release && error == NoError)
        QCOMPARE(query(*alice, with(&FileQuery::SetLockUser, QStringLiteral("alice"))), QStringList());
}

// Two servers on one catalogue and one storage directory: a lock taken through one holds for the other, and
// files added through both at once get ids of their own.
void tst_KavroServer::twoServersOneArchive()
{
    QVERIFY(startServer());
    ServerProcess second;
    QVERIFY(second.start(m_store->path()));
    // Four users, two on each server.
    std::vector<std::unique_ptr<KavroClient>> clients;
    for (const char *user : {"alice", "bob", "carol", "dave"}) {
        clients.push_back(connectClient(clients.size() % 2 ? second.port() : m_server->port(), QLatin1String(user)));
        QVERIFY(clients.back());
    }
    KavroClient &alice = *clients.front();
    QString directory;
    const QString guid = createGroupWithFile(alice, QStringLiteral("shared"), FileTypeImage, "x",
                                             QStringLiteral("content.bin"), &directory);
    QVERIFY(!guid.isEmpty());

    // All ask for the write lock at once, again and again: exactly one gets it each time.
    for (int round = 0; round < 30; ++round) {
        QList<KavroReply *> asked;
        for (const auto &client : clients)
            asked.append(client->RequestFileRequest(1, guid, LockWrite));
        KavroClient *holder = nullptr;
        for (qsizetype i = 0; i < asked.size(); ++i) {
            const auto reply = finished(asked.at(i));
            QVERIFY(reply);
            QVERIFY2(reply->error() == NoError ? !std::exchange(holder, clients.at(i).get())
                                               : reply->error() == ErrorFileGroupLocked,
                     qPrintable(reply->errorString()));
        }
        QVERIFY(holder);
        QCOMPARE(finished(holder->CloseFileRequest(1, guid))->error(), NoError);
    }

    // Files added through both servers at once: every one gets an id, no id twice.
    QList<KavroReply *> additions;
    for (int i = 0; i < 40; ++i) {
        const QString path = QDir(directory).filePath(QStringLiteral("f%1.bin").arg(i));
        QVERIFY(writeFile(path, "f"));
        additions.append(clients.at(i % clients.size())->AddFileRequest(path, guid));
    }
    QSet<quint32> ids{1};
    for (KavroReply *addition : std::as_const(additions)) {
        const auto added = finished(addition);
        QVERIFY(added && added->error() == NoError);
        ids.insert(added->fileId());
    }
    QCOMPARE(ids.size(), 41);
    QCOMPARE(metaData(*clients.back(), guid).getFileList().size(), 41);
    QVERIFY(second.stop());
}

// A server killed in the middle of a stream of creations loses none it acknowledged, and its client carries on
// through the other server of the archive once the balancer in front sends it there.
void tst_KavroServer::serverKilledMidStream()
{
    QVERIFY(startServer());
    ServerProcess second;
    QVERIFY(second.start(m_store->path()));
    TcpForwarder balancer;
    QVERIFY(balancer.listen(m_server->port()));
    const auto client = connectClient(balancer.port(), QStringLiteral("alice"));
    QVERIFY(client);

    QStringList acknowledged;
    int afterKill = 0;
    const QDeadlineTimer deadline(60000);
    for (int i = 0; afterKill < 10 && !deadline.hasExpired(); ++i) {
        if (i == 10) {
            m_server->kill();
            balancer.setTarget(second.port());
        }
        // Several at once, so that the kill meets some on the wire.
        QList<KavroReply *> sent;
        for (int j = 0; j < 4; ++j)
            sent.append(client->CreateFileGroupRequest(QStringLiteral("1"), LifeCycleBase, QString(), QString(),
                                                       FileTypeImage, 0, QStringLiteral("stream")));
        for (KavroReply *reply : std::as_const(sent)) {
            const auto done = finished(reply);
            QVERIFY(done);
            if (done->error() == NoError) {
                acknowledged.append(done->guid());
                afterKill += i > 10;
            }
        }
        // The balancer runs on this thread: wait with its events running.
        QTRY_VERIFY_WITH_TIMEOUT(client->IsConnected(), Timeout);
    }
    QVERIFY(afterKill >= 10);
    const auto checker = connectClient(second.port(), QStringLiteral("bob"));
    QVERIFY(checker);
    for (const QString &guid : std::as_const(acknowledged))
        QVERIFY2(finished(checker->CheckFileGroupExistsRequest(guid))->exists(), qPrintable(guid));
    QVERIFY(second.stop());
}

QTEST_GUILESS_MAIN(tst_KavroServer)
#include "tst_kavroserver.moc"
