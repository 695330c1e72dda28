// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "archivestore.h"
#include "messages_p.h"
#include "processmemory.h"
#include "rawconnection.h"
#include "serverprocess.h"
#include "temporarysettings.h"
#include "testcertificates.h"
#include "testdatabase.h"

#include <kavro/filequery.h>
#include <kavro/kavroclient.h>
#include <kavro/kavroreply.h>

#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QUuid>
#include <QtEndian>

#include <memory>
#include <sys/stat.h>

using namespace Kavro;

namespace
{
constexpr int Timeout = 20000;
const QByteArray PrivateContent = "private, outside the store";

// The error of a reply object once it has finished; -1 when it did not in time.
int errorOf(KavroReply *reply, std::unique_ptr<KavroReply> *kept = nullptr)
{
    std::unique_ptr<KavroReply> owned(reply);
    QSignalSpy done(reply, &KavroReply::finished);
    const int error = done.wait(Timeout) ? int(reply->error()) : -1;
    if (kept)
        *kept = std::move(owned);
    return error;
}

SoapMessage message(const char *command, const QHash<QString, QString> &values = {},
                    const QHash<QString, QStringList> &lists = {})
{
    SoapMessage request;
    request.element = QLatin1String(command);
    request.requestId = QUuid::createUuid().toString(QUuid::WithoutBraces);
    request.values = values;
    request.lists = lists;
    return request;
}

bool replaceWithLink(const QString &path, const QString &target)
{
    return QFile::remove(path) && QFile::link(target, path);
}

// Every regular file under \a directory, links not followed, holding \a content.
QStringList filesHolding(const QString &directory, const QByteArray &content)
{
    QStringList found;
    QDirIterator files(directory, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (files.hasNext()) {
        const QString path = files.next();
        if (files.fileInfo().isFile() && !files.fileInfo().isSymLink() && readFile(path).contains(content))
            found.append(path);
    }
    return found;
}
// A server of its own on a fresh store, with alice connected; stopped cleanly at the end.
struct OwnServer {
    QTemporaryDir store;
    ServerProcess server;
    std::unique_ptr<KavroClient> client;
    QString directory; // of the group addGroup() made

    ~OwnServer()
    {
        client.reset();
        if (server.isRunning())
            QVERIFY(server.stop());
    }
    bool start(const QStringList &arguments = {})
    {
        return server.start(store.path(), arguments) && (client = connect(QStringLiteral("alice")));
    }
    std::unique_ptr<KavroClient> connect(const QString &user) const
    {
        auto connected = std::make_unique<KavroClient>(QStringLiteral("127.0.0.1"), server.port(),
                                                       QStringLiteral("viewer"), user, QStringLiteral("team"));
        return connected->waitForConnected(Timeout) ? std::move(connected) : nullptr;
    }
    //! alice's group holding \a files, each holding \a content or else its own name; its guid, empty on failure.
    QString addGroup(const QStringList &files, const QByteArray &content = QByteArray())
    {
        const QString guid = client->CreateFileGroup(QStringLiteral("1"), {}, {}, {}, FileTypeImage, 0,
                                                     QStringLiteral("own"), directory);
        directory = QDir::cleanPath(directory);
        for (const QString &file : files) {
            const QString path = directory + QLatin1Char('/') + file;
            if (!writeFile(path, content.isEmpty() ? file.toUtf8() : content) || client->AddFile(path, guid) == 0)
                return QString();
        }
        return guid;
    }
};
} // namespace

/*!
 * The server tried as an attacker would: files planted in the storage directory, documents no client of
 * ours would write, clients that send much and read nothing. Whatever is tried, nothing outside the store
 * and no other group's files change, and other clients are answered within a second.
 */
class tst_ArchiveServer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void attacks_data();
    void attacks();
    void boundedUnderLoad_data();
    void boundedUnderLoad();
    void connectionsBounded_data();
    void connectionsBounded();
    void interruptedMoveRolledBack_data();
    void interruptedMoveRolledBack();
    void checkAndRepair();
    void commandLine_data();
    void commandLine();

private:
    using Attack = void (tst_ArchiveServer::*)();
    static const QList<std::pair<const char *, Attack>> &attackTable();

    // The attacks, each with the victim groups it makes itself.
    void importThroughPlantedLink();
    void moveOfLinkedFile();
    void archiveFileLinkingOut();
    void pipeInPlaceOfFile();
    void directorySwappedForLink();
    void fileSwappedForLockedFile();
    void newlineInConverterId();
    void refusedCreationLeavesNothing();
    void littleEndianFrameOf512Bytes();
    void longFileTypeLists();

    //! A group with the file "file.bin" holding \a content; its guid, and its directory in \a directory.
    QString newGroup(const QByteArray &content, QString *directory = nullptr)
    {
        const QString guid = m_own.addGroup({QStringLiteral("file.bin")}, content);
        if (directory)
            *directory = m_own.directory;
        return guid;
    }
    QString archives(const QString &name) const { return m_store.filePath(QStringLiteral("archives/")) + name; }
    QString data(const QString &path = QString()) const { return m_store.filePath(QStringLiteral("data/")) + path; }
    int locationState(const QString &guid);
    SoapMessage sendRaw(const SoapMessage &request);
    //! The bystander's request answered within a second, at the best of three tries.
    bool othersAnswered();

    std::unique_ptr<TemporarySettings> m_settings;
    QTemporaryDir m_outside;
    OwnServer m_own; // alice, who is attacked or attacks, is its client
    QTemporaryDir &m_store = m_own.store;
    ServerProcess &m_server = m_own.server;
    std::unique_ptr<KavroClient> &m_client = m_own.client;
    std::unique_ptr<KavroClient> m_bystander; // bob, with a group of his own
    QString m_bystanderGroup;
    QString m_bystanderFile;
    TestCertificates m_certificates;
};

void tst_ArchiveServer::initTestCase()
{
    m_settings = std::make_unique<TemporarySettings>(QByteArray(), true);
    QVERIFY(writeFile(m_outside.filePath(QStringLiteral("private.txt")), PrivateContent));
    QVERIFY(m_own.start({QStringLiteral("--request-memory"), QString::number(8 << 20)}));
    QVERIFY(m_bystander = m_own.connect(QStringLiteral("bob")));
    QString directory;
    m_bystanderGroup = m_bystander->CreateFileGroup(QStringLiteral("1"), {}, {}, {}, FileTypeImage, 0,
                                                    QStringLiteral("bystander"), directory);
    m_bystanderFile = QDir(directory).filePath(QStringLiteral("bob.bin"));
    QVERIFY(writeFile(m_bystanderFile, "bob's") && m_bystander->AddFile(m_bystanderFile, m_bystanderGroup) == 1);
}

void tst_ArchiveServer::cleanupTestCase()
{
    m_bystander.reset();
    m_client.reset();
    QVERIFY(m_server.stop()); // whatever was tried, SIGTERM still stops the server
}

int tst_ArchiveServer::locationState(const QString &guid)
{
    std::unique_ptr<KavroReply> reply;
    return errorOf(m_client->QueryLocationStateProgressRequest(guid), &reply) == NoError ? reply->locationState() : -1;
}

SoapMessage tst_ArchiveServer::sendRaw(const SoapMessage &request)
{
    RawConnection raw(m_server.port());
    return raw.waitForConnected() && raw.send(request) ? raw.reply(request.requestId) : SoapMessage();
}

bool tst_ArchiveServer::othersAnswered()
{
    for (int attempt = 0; attempt < 3; ++attempt) {
        QElapsedTimer clock;
        clock.start();
        std::unique_ptr<KavroReply> files;
        if (errorOf(m_bystander->GetFileListRequest(m_bystanderGroup), &files) == NoError && clock.elapsed() < 1000)
            return true;
    }
    return false;
}

const QList<std::pair<const char *, tst_ArchiveServer::Attack>> &tst_ArchiveServer::attackTable()
{
    using T = tst_ArchiveServer;
    static const QList<std::pair<const char *, Attack>> table = {
        {"import through a link planted where the copy goes", &T::importThroughPlantedLink},
        {"move of a file swapped for a link out", &T::moveOfLinkedFile},
        {"import of an archive whose file links out", &T::archiveFileLinkingOut},
        {"export of a pipe put in place of a file", &T::pipeInPlaceOfFile},
        {"deletion of a directory swapped for a link to another group's", &T::directorySwappedForLink},
        {"file swapped for a link to another group's locked file", &T::fileSwappedForLockedFile},
        {"newline in a converter id", &T::newlineInConverterId},
        {"creation refused after its directory was asked for", &T::refusedCreationLeavesNothing},
        {"first frame of 512 bytes, little-endian", &T::littleEndianFrameOf512Bytes},
        {"long file-type lists", &T::longFileTypeLists},
    };
    return table;
}

void tst_ArchiveServer::attacks_data()
{
    QTest::addColumn<int>("attack");
    for (int i = 0; i < attackTable().size(); ++i)
        QTest::newRow(attackTable().at(i).first) << i;
}

void tst_ArchiveServer::attacks()
{
    QFETCH(int, attack);
    (this->*attackTable().at(attack).second)();
    if (QTest::currentTestFailed())
        qWarning().noquote() << "server stderr:\n" << QString::fromLocal8Bit(m_server.errorOutput());
    // What must stay as it was, whatever the attack.
    QCOMPARE(QDir(m_outside.path()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::System),
             QStringList{QStringLiteral("private.txt")});
    QCOMPARE(readFile(m_outside.filePath(QStringLiteral("private.txt"))), PrivateContent);
    QCOMPARE(filesHolding(m_store.path(), PrivateContent), QStringList());
    QCOMPARE(readFile(m_bystanderFile), QByteArray("bob's"));
    QVERIFY(othersAnswered());
}

void tst_ArchiveServer::importThroughPlantedLink()
{
    const QString guid = newGroup("archived");
    QCOMPARE(errorOf(m_client->ExportArchiveRequest({guid}, archives(QStringLiteral("planted")))), int(NoError));
    QCOMPARE(errorOf(m_client->DeleteFileGroupRequest(guid)), int(NoError));
    QVERIFY(QDir().mkpath(data(QStringLiteral("imported"))));
    QVERIFY(QFile::link(m_outside.path(), data(QStringLiteral("imported/")) + guid));
    QCOMPARE(errorOf(m_client->ImportArchiveRequest({archives(QStringLiteral("planted"))})),
             int(ErrorImportFileGroupIncomplete));
    QVERIFY(QFile::remove(data(QStringLiteral("imported/")) + guid));
    QCOMPARE(errorOf(m_client->QueryMetaDataRequest(guid)), int(ErrorGuidNotFound));
}

void tst_ArchiveServer::moveOfLinkedFile()
{
    QString directory;
    const QString guid = newGroup("moved", &directory);
    QVERIFY(replaceWithLink(directory + QLatin1String("/file.bin"), m_outside.filePath(QStringLiteral("private.txt"))));
    QCOMPARE(errorOf(m_client->MoveToNasRequest(guid)), int(NoError));
    // The copy fails, and the group is back where it was.
    QTRY_COMPARE_WITH_TIMEOUT(locationState(guid), int(LocationCentral), Timeout);
    QVERIFY(!QFileInfo::exists(m_store.filePath(QStringLiteral("nas/")) + guid));
}

void tst_ArchiveServer::archiveFileLinkingOut()
{
    // A crafted archive: a description of one group whose file is a link to a private file.
    FileGroupData record;
    record.setGuid(QStringLiteral("c0ffee00-0000-4000-8000-000000000001"));
    record.setName(QStringLiteral("crafted"));
    record.addFile(QStringLiteral("passwd"), 1);
    const QString archive = archives(QStringLiteral("crafted"));
    QVERIFY(QDir().mkpath(archive + QLatin1String("/crafted_") + record.getGuid()));
    record.toXmlFileForExport(archive);
    QVERIFY(QFile::link(m_outside.filePath(QStringLiteral("private.txt")),
                        archive + QLatin1String("/crafted_") + record.getGuid() + QLatin1String("/passwd")));
    QCOMPARE(errorOf(m_client->ImportArchiveRequest({archive})), int(ErrorImportFileGroupIncomplete));
    QCOMPARE(errorOf(m_client->RequestFileRequest(1, record.getGuid(), LockRead)), int(ErrorGuidNotFound));
}

void tst_ArchiveServer::pipeInPlaceOfFile()
{
    QString directory;
    const QString guid = newGroup("piped", &directory);
    const QString file = directory + QLatin1String("/file.bin");
    QVERIFY(QFile::remove(file));
    QCOMPARE(::mkfifo(QFile::encodeName(file).constData(), 0600), 0);
    // Never opened: the export is refused at once, and nothing waits behind it.
    QCOMPARE(errorOf(m_client->ExportArchiveRequest({guid}, archives(QStringLiteral("piped")))),
             int(ErrorExportArchive));
    QCOMPARE(errorOf(m_client->RequestFileRequest(1, guid, LockRead)), int(ErrorOpenFile));
}

void tst_ArchiveServer::directorySwappedForLink()
{
    QString victimDirectory;
    QString targetDirectory;
    const QString victim = newGroup("victim", &victimDirectory);
    const QString target = newGroup("target", &targetDirectory);
    QVERIFY(QDir().rename(victimDirectory, victimDirectory + QLatin1String(".away")));
    QVERIFY(QFile::link(targetDirectory, victimDirectory));
    QCOMPARE(errorOf(m_client->DeleteFileGroupRequest(victim)), int(ErrorDeleteFileGroup));
    QCOMPARE(readFile(targetDirectory + QLatin1String("/file.bin")), QByteArray("target"));
    QVERIFY(QFile::remove(victimDirectory) && QDir().rename(victimDirectory + QLatin1String(".away"), victimDirectory));
    QCOMPARE(errorOf(m_client->DeleteFileGroupRequest(victim)), int(NoError));
    QCOMPARE(errorOf(m_client->DeleteFileGroupRequest(target)), int(NoError));
}

void tst_ArchiveServer::fileSwappedForLockedFile()
{
    QString victimDirectory;
    QString targetDirectory;
    const QString victim = newGroup("victim", &victimDirectory);
    const QString target = newGroup("target", &targetDirectory);
    QCOMPARE(errorOf(m_bystander->RequestFileRequest(1, target, LockWrite)), int(NoError));
    QVERIFY(
        replaceWithLink(victimDirectory + QLatin1String("/file.bin"), targetDirectory + QLatin1String("/file.bin")));
    QCOMPARE(errorOf(m_client->RequestFileRequest(1, victim, LockWrite)), int(ErrorOpenFile));
    // Deleting the victim's file takes the link away, never what it points to.
    QCOMPARE(errorOf(m_client->DeleteFileNameRequest(1, victim)), int(NoError));
    QVERIFY(!QFileInfo(victimDirectory + QLatin1String("/file.bin")).isSymLink());
    QCOMPARE(readFile(targetDirectory + QLatin1String("/file.bin")), QByteArray("target"));
    QCOMPARE(errorOf(m_bystander->CloseFileRequest(1, target)), int(NoError));
}

void tst_ArchiveServer::newlineInConverterId()
{
    const SoapMessage reply = sendRaw(
        message("RegisterConverter", {{QStringLiteral("ConverterId"), QStringLiteral("x\nkavro-server: forged")}}));
    QCOMPARE(reply.error, int(NoError));
    QVERIFY(m_server.waitForLog("converter x\\nkavro-server: forged registered"));
    QVERIFY(!m_server.errorOutput().contains("\nkavro-server: forged"));
}

void tst_ArchiveServer::refusedCreationLeavesNothing()
{
    const QString path = data(QStringLiteral("refused/deep/directory"));
    const SoapMessage reply = sendRaw(message("CreateFileGroup",
                                              {{QStringLiteral("Guid"), m_bystanderGroup},
                                               {QStringLiteral("FileType"), QStringLiteral("11")},
                                               {QStringLiteral("ReservedStorage"), QStringLiteral("0")},
                                               {QStringLiteral("Path"), path}}));
    QCOMPARE(reply.error, int(ErrorAddFileGroup));
    QVERIFY(!QFileInfo::exists(data(QStringLiteral("refused"))));
}

void tst_ArchiveServer::littleEndianFrameOf512Bytes()
{
    // A request id long enough for a document of exactly 512 bytes: its length's first byte is 0.
    SoapMessage request = message("GetBasePath");
    request.requestId.clear();
    request.requestId = QString(512 - writeSoapMessage(request).size(), QLatin1Char('x'));
    QCOMPARE(writeSoapMessage(request).size(), 512);
    QCOMPARE(sendRaw(request).text(QStringLiteral("Path")), QDir::cleanPath(data()));
}

void tst_ArchiveServer::longFileTypeLists()
{
    const auto query = [](const QStringList &types) {
        return message("QueryFileGroups",
                       {{QStringLiteral("LocationState"), QStringLiteral("0")},
                        {QStringLiteral("LockState"), QStringLiteral("0")}},
                       {{QStringLiteral("FileTypeList"), types}});
    };
    const SoapMessage tooMany = sendRaw(query(QStringList(40000, QStringLiteral("11"))));
    QCOMPARE(tooMany.error, int(ErrorSoapParsing));
    QVERIFY2(tooMany.errorString.contains(QLatin1String("more than 10000 entries")), qPrintable(tooMany.errorString));
    // As many as may be, the same one over and over: the same answer as for one.
    const SoapMessage repeated = sendRaw(query(QStringList(10000, QStringLiteral("11"))));
    QCOMPARE(repeated.error, int(NoError));
    QCOMPARE(repeated.groups.size(), sendRaw(query({QStringLiteral("11")})).groups.size());
}

void tst_ArchiveServer::boundedUnderLoad_data()
{
    QTest::addColumn<QString>("load");
    QTest::addColumn<QByteArray>("logged");
    QTest::newRow("replies never read") << QStringLiteral("unread") << QByteArray("does not read its replies");
    QTest::newRow("requests never finished") << QStringLiteral("unfinished") << QByteArray("memory for requests");
    QTest::newRow("request beyond the size a request may have")
        << QStringLiteral("oversized") << QByteArray("refused a message of 201326593 bytes");
}

void tst_ArchiveServer::boundedUnderLoad()
{
    QFETCH(QString, load);
    QFETCH(QByteArray, logged);
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    QSKIP("the sanitizer's allocator keeps freed memory; measured in the plain build");
#endif
    if (load == QLatin1String("unread")) {
        // Groups enough for queries of about 1.6 MB of records each.
        QString directory;
        for (int i = 0; i < 400; ++i)
            m_client->CreateFileGroupAsync(QStringLiteral("1"), {}, {}, QString(4000, QLatin1Char('c')),
                                           FileTypeAudioRecording, 0, QStringLiteral("bulky"), directory);
        unsigned int count = 0;
        QTRY_VERIFY_WITH_TIMEOUT(m_client->QueryFiles(FileQuery(), count).size() > 400, Timeout);
    }
    if (!resetPeakMemory(QString::number(m_server.processId())))
        QSKIP("the peak of the server's resident set cannot be reset here");
    const qint64 before = memoryKiB("VmHWM", QString::number(m_server.processId()));
    std::vector<std::unique_ptr<RawConnection>> attackers;
    const auto attacker = [&] {
        attackers.push_back(std::make_unique<RawConnection>(m_server.port()));
        return attackers.back()->waitForConnected() ? attackers.back().get() : nullptr;
    };
    if (load == QLatin1String("unread")) {
        // The queries are sent at once, and their answers never read.
        RawConnection *reader = attacker();
        QVERIFY(reader);
        reader->pauseReading();
        for (int i = 0; i < 80; ++i)
            QVERIFY(reader->send(message("QueryFileGroups",
                                         {{QStringLiteral("LocationState"), QStringLiteral("0")},
                                          {QStringLiteral("LockState"), QStringLiteral("0")}})));
    } else {
        // Frames that claim the most a request may have (or far more), of which all but the end arrives.
        const qint64 claimed = load == QLatin1String("unfinished") ? (4 << 20) - 4 : (192 << 20) + 1;
        for (int i = 0; i < (load == QLatin1String("unfinished") ? 12 : 1); ++i) {
            RawConnection *sender = attacker();
            QVERIFY(sender);
            QByteArray frame(4, Qt::Uninitialized);
            qToLittleEndian(quint32(claimed), frame.data());
            sender->socket().write(frame + QByteArray((4 << 20) - 1024, '<'));
        }
    }
    QVERIFY(m_server.waitForLog(logged));
    QVERIFY(othersAnswered());
    const qint64 grownKiB = memoryKiB("VmHWM", QString::number(m_server.processId())) - before;
    qInfo("peak growth of the server: %lld KiB", grownKiB);
    // The budget for requests, the unsent replies of one connection, and what the kernel and the sockets buffer.
    QVERIFY2(grownKiB < 40 * 1024, qPrintable(QString::number(grownKiB)));
    // Nothing was lost: once read, every query is answered; once finished, every request, a few at a time.
    if (load == QLatin1String("unread")) {
        attackers.front()->resumeReading();
        QTRY_COMPARE_WITH_TIMEOUT(attackers.front()->receivedCount(), 80, 60000);
    } else if (load == QLatin1String("unfinished")) {
        for (const auto &sender : attackers)
            sender->socket().write(QByteArray(1020, '<'));
        for (const auto &sender : attackers)
            QTRY_COMPARE_WITH_TIMEOUT(sender->receivedCount(), 1, 60000);
    }
}

void tst_ArchiveServer::connectionsBounded_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("fileLimit");
    QTest::addColumn<QByteArray>("sent"); // by each of the connections, after a first request when not empty
    QTest::addColumn<int>("connections");
    QTest::addColumn<QByteArray>("logged");
    const QStringList timeouts = {QStringLiteral("--idle-timeout"), QStringLiteral("1"),
                                  QStringLiteral("--request-timeout"), QStringLiteral("1")};
    QTest::newRow("past the connection limit") << QStringList{QStringLiteral("--max-connections"), QStringLiteral("20")}
                                               << 0 << QByteArray() << 100 << QByteArray("as many as allowed");
    QTest::newRow("out of file descriptors")
        << QStringList() << 48 << QByteArray() << 100 << QByteArray("cannot accept connections");
    QTest::newRow("never a request") << timeouts << 0 << QByteArray() << 1 << QByteArray("no request within 1 s");
    QTest::newRow("a request cut short") << timeouts << 0 << QByteArray::fromHex("001000003c3f786d6c") << 1
                                         << QByteArray("did not arrive whole within 1 s");
}

void tst_ArchiveServer::connectionsBounded()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, fileLimit);
    QFETCH(QByteArray, sent);
    QFETCH(int, connections);
    QFETCH(QByteArray, logged);
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    if (fileLimit > 0)
        QSKIP("the sanitizer's own checks need file descriptors: run out of them, it reports false errors");
#endif
    OwnServer own;
    if (fileLimit > 0)
        own.server.setFileLimit(rlim_t(fileLimit));
    QVERIFY(own.start(arguments));
    {
        std::vector<std::unique_ptr<RawConnection>> flood;
        for (int i = 0; i < connections; ++i) {
            flood.push_back(std::make_unique<RawConnection>(own.server.port()));
            if (!sent.isEmpty()) {
                const SoapMessage first = message("GetBasePath");
                QVERIFY(flood.back()->waitForConnected() && flood.back()->send(first));
                QCOMPARE(flood.back()->reply(first.requestId).error, int(NoError));
                QVERIFY(flood.back()->socket().write(sent) > 0);
            }
        }
        QVERIFY(own.server.waitForLog(logged));
        if (connections == 1)
            QTRY_COMPARE_WITH_TIMEOUT(flood.back()->socket().state(), QAbstractSocket::UnconnectedState, Timeout);
    }
    // Once they are gone, connections are taken again; a client that asks went on all along; what happened was
    // said once.
    RawConnection later(own.server.port());
    const SoapMessage request = message("GetBasePath");
    QVERIFY(later.waitForConnected() && later.send(request));
    QCOMPARE(later.reply(request.requestId).error, int(NoError));
    QVERIFY(own.client->IsConnected());
    QCOMPARE(own.server.errorOutput().count(logged), 1);
}

void tst_ArchiveServer::interruptedMoveRolledBack_data()
{
    QTest::addColumn<int>("ownerAliveMs"); // how much longer the server that claims the move says it is alive
    QTest::newRow("nobody's move: put back at start") << -1;
    QTest::newRow("another server's move: left alone until that server falls silent") << 3000;
}

// A move cut off by a crash is put back, but not the move of another server of the archive that is still alive.
void tst_ArchiveServer::interruptedMoveRolledBack()
{
    QFETCH(int, ownerAliveMs);
    OwnServer own;
    QString guid;
    QVERIFY(own.start() && !(guid = own.addGroup({QStringLiteral("file.bin")})).isEmpty());
    own.client.reset();
    QVERIFY(own.server.stop());
    // As a crash in the middle of a move leaves it: the state says moving, a part is copied.
    {
        Server::ArchiveStore database;
        QVERIFY(database.open(testDatabase(own.store.path()), nullptr));
        QCOMPARE(database.setLocationState(guid, LocationCentralNotMoved, 33), NoError);
        if (ownerAliveMs > 0) {
            QCOMPARE(database.claimMove(guid, QStringLiteral("other")), NoError);
            QCOMPARE(database.beat(QStringLiteral("other"), QDateTime::currentMSecsSinceEpoch() + ownerAliveMs),
                     NoError);
        }
    }
    const QString copy = own.store.filePath(QStringLiteral("nas/")) + guid;
    QVERIFY(QDir().mkpath(copy) && writeFile(copy + QLatin1String("/file.bin"), "fil"));
    QVERIFY(own.start());
    std::unique_ptr<KavroReply> reply;
    if (ownerAliveMs > 0) {
        QCOMPARE(errorOf(own.client->QueryLocationStateProgressRequest(guid), &reply), int(NoError));
        QCOMPARE(reply->locationState(), LocationCentralNotMoved);
        QVERIFY(QFileInfo::exists(copy));
    }
    QVERIFY(own.server.waitForLog("1 move(s) to network storage were cut off", 30000));
    QCOMPARE(errorOf(own.client->QueryLocationStateProgressRequest(guid), &reply), int(NoError));
    QCOMPARE(reply->locationState(), LocationCentral);
    QVERIFY(!QFileInfo::exists(copy));
    QCOMPARE(errorOf(own.client->RequestFileRequest(1, guid, LockRead), &reply), int(NoError));
    QCOMPARE(readFile(reply->path()), QByteArray("file.bin"));
}

void tst_ArchiveServer::checkAndRepair()
{
    OwnServer own;
    QString guid;
    QVERIFY(own.start() && !(guid = own.addGroup({QStringLiteral("a.bin"), QStringLiteral("b.bin")})).isEmpty());
    // What a crash or a careless hand leaves: a directory no record names, a copy never finished, a lost file.
    const QString stray = own.store.filePath(QStringLiteral("data/stray"));
    const QString partial = own.store.filePath(QStringLiteral("nas/.kavro-partial-x"));
    QVERIFY(QDir().mkpath(stray) && writeFile(stray + QLatin1String("/left.bin"), "left") && QDir().mkpath(partial));
    QVERIFY(QFile::remove(own.directory + QLatin1String("/b.bin")));
    const auto check = [&](const QStringList &extra, QByteArray *output) {
        QProcess process;
        process.start(QString::fromUtf8(KAVRO_SERVER_BINARY),
                      QStringList{QStringLiteral("--store"), own.store.path(), QStringLiteral("--database"),
                                  testDatabase(own.store.path()), QStringLiteral("--check")}
                          + extra);
        const bool ended = process.waitForFinished(Timeout);
        *output = process.readAllStandardOutput();
        return ended ? process.exitCode() : -1;
    };
    QByteArray output;
    QCOMPARE(check({}, &output), 1);
    const QByteArray lostFile = "missing: " + guid.toUtf8() + ": file 2 \"b.bin\"";
    for (const QByteArray &line : QByteArrayList{"orphan: " + stray.toUtf8(), "orphan: " + partial.toUtf8(), lostFile})
        QVERIFY2(output.contains(line), output.constData());
    QVERIFY2(!output.contains("a.bin"), output.constData());
    QCOMPARE(check({QStringLiteral("--repair")}, &output), 1); // the lost file is still lost
    QVERIFY2(output.contains(QByteArray("removed: " + stray.toUtf8())) && output.contains(lostFile),
             output.constData());
    QVERIFY(!QFileInfo::exists(stray) && !QFileInfo::exists(partial));
    QCOMPARE(errorOf(own.client->DeleteFileGroupRequest(guid)), int(NoError));
    QVERIFY(own.server.waitForLog(" unauthenticated DeleteFileGroup Guid=\"" + guid.toUtf8() + "\" "));
    QCOMPARE(check({}, &output), 0);
    QVERIFY2(output.contains("the store matches its database"), output.constData());
}

void tst_ArchiveServer::commandLine_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("refusal"); // what the server says as it exits with 2; empty: it starts
    QVERIFY(m_certificates.make());
    const QStringList anyAddress{QStringLiteral("--listen"), QStringLiteral("0.0.0.0:0")};
    const QByteArray insecure = "give --insecure to allow it on purpose";

    QTest::newRow("any address without TLS") << anyAddress << insecure;
    QTest::newRow("any address without client certificates")
        << anyAddress + m_certificates.serverArguments(false) << insecure;
    QTest::newRow("any address, on purpose") << anyAddress + QStringList{QStringLiteral("--insecure")} << QByteArray();
    QTest::newRow("any address with client certificates")
        << anyAddress + m_certificates.serverArguments(true) << QByteArray();
    QTest::newRow("key without certificate")
        << QStringList{QStringLiteral("--tls-key"), m_certificates.key(QStringLiteral("server"))}
        << QByteArray("--tls-cert and --tls-key go together");
    QTest::newRow("administrator without client certificates")
        << m_certificates.serverArguments(false) + QStringList{QStringLiteral("--admin"), QStringLiteral("root")}
        << QByteArray("--admin needs --tls-client-ca");
    QTest::newRow("unreadable certificate")
        << QStringList{QStringLiteral("--tls-cert"), QStringLiteral("/nonexistent"), QStringLiteral("--tls-key"),
                       m_certificates.key(QStringLiteral("server"))}
        << QByteArray("cannot read /nonexistent");
}

// Beyond loopback the server serves only users proved by certificates, unless told otherwise on purpose.
void tst_ArchiveServer::commandLine()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, refusal);
    QTemporaryDir store;
    ServerProcess server;
    if (refusal.isEmpty()) {
        QVERIFY(server.start(store.path(), arguments));
        QVERIFY(server.stop());
        return;
    }
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("^ServerProcess:")));
    QVERIFY(!server.start(store.path(), arguments));
    QVERIFY2(server.errorOutput().contains(refusal), server.errorOutput().constData());
    QVERIFY(server.waitForExit() == 2);
}

QTEST_GUILESS_MAIN(tst_ArchiveServer)
#include "tst_archiveserver.moc"
