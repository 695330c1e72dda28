// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "fakearchive.h"
#include "tracecapture.h"

#include <kavro/kavroclient.h>
#include <kavro/kavrofile.h>

#include <QDir>
#include <QTest>

#include <memory>

using namespace Kavro;

class tst_KavroFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { m_env = std::make_unique<FakeArchive>(); }
    void cleanup() { m_env.reset(); }
    void names_data();
    void names();
    void open_data();
    void open();
    void newFileIsArchived();

private:
    std::unique_ptr<FakeArchive> m_env;
};

void tst_KavroFile::names_data()
{
    QTest::addColumn<bool>("service");
    QTest::addColumn<QString>("name"); // null: a file of the test's directory, named with a detour
    QTest::addColumn<uint>("fileId");
    QTest::addColumn<QString>("printed"); // null: that file's clean native path
    QTest::addColumn<QString>("guid");

    const QString G = QStringLiteral("G");
    QTest::newRow("archived file") << true << G << 4u << QStringLiteral("kavro:///G/4") << G;
    QTest::newRow("file id 0 means a local file") << true << QString() << 0u << QString() << QString();
    QTest::newRow("without the service every file is local") << false << QString() << 5u << QString() << QString();
}

void tst_KavroFile::names()
{
    QFETCH(bool, service);
    QFETCH(QString, name);
    QFETCH(uint, fileId);
    QFETCH(QString, printed);
    QFETCH(QString, guid);

    if (!service)
        m_env->useSettings(QByteArray());
    const auto client = service ? FakeArchive::connectedClient() : std::make_unique<KavroClient>();
    QVERIFY(client);
    const QString path = m_env->storage.filePath(QStringLiteral("plain.txt"));
    QVERIFY(writeFile(path, "local"));
    KavroFile file(client.get(), name.isNull() ? m_env->storage.path() + QStringLiteral("/sub/../plain.txt") : name,
                   fileId);
    QCOMPARE(file.GetName(), printed.isNull() ? QDir::toNativeSeparators(path) : printed);
    QCOMPARE(file.GetGuid(), guid);
    QVERIFY(!file.IsEmpty());
    QVERIFY(KavroFile(nullptr).IsEmpty());
    if (guid.isEmpty()) {
        // A local file opens as it is: nothing is asked of the server.
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), QByteArray("local"));
        file.close();
        QCOMPARE(file.GetError(), NoError);
        for (const QByteArray &frame : m_env->server.frames())
            QCOMPARE(FakeServer::commandOf(frame), QStringLiteral("GetBasePath"));
    }
}

void tst_KavroFile::open_data()
{
    QTest::addColumn<QIODevice::OpenMode>("mode");
    QTest::addColumn<QByteArray>("requestReply"); // empty: the server is not answering at all; PATH: a real file
    QTest::addColumn<bool>("withClient");
    QTest::addColumn<QByteArray>("writeLock"); // as requested; empty: nothing requested
    QTest::addColumn<int>("error");
    QTest::addColumn<QString>("warning"); // empty: opened
    QTest::addColumn<bool>("released"); // a CloseFile follows the RequestFile

    const QIODevice::OpenMode read(QIODevice::ReadOnly);
    const QByteArray ok = "<m:Error>0</m:Error>";
    QTest::newRow("for writing with the write lock, released on closing")
        << QIODevice::OpenMode(QIODevice::ReadWrite) << "<m:Path>PATH</m:Path>" + ok << true << QByteArray("true") << 0
        << QString() << true;
    QTest::newRow("no client") << read << ok << false << QByteArray() << 0
                               << QStringLiteral("KavroClient was not given to KavroFile") << false;
    QTest::newRow("client not connected") << read << QByteArray() << true << QByteArray() << int(ErrorNotConnected)
                                          << QStringLiteral("KavroClient not connected but available") << false;
    QTest::newRow("locked by someone else")
        << read << QByteArray("<m:Error>6</m:Error>") << true << QByteArray("false") << int(ErrorFileGroupLocked)
        << QStringLiteral("KavroFile::open: File group is locked") << false;
    QTest::newRow("locked, but the local copy cannot be opened")
        << read << "<m:Path>/nonexistent/kavro/file.txt</m:Path>" + ok << true << QByteArray("false")
        << int(ErrorOpenFile) << QStringLiteral("KavroFile::open: Failed to open file") << true;
}

void tst_KavroFile::open()
{
    QFETCH(QIODevice::OpenMode, mode);
    QFETCH(QByteArray, requestReply);
    QFETCH(bool, withClient);
    QFETCH(QByteArray, writeLock);
    QFETCH(int, error);
    QFETCH(QString, warning);
    QFETCH(bool, released);

    const QString path = m_env->storage.filePath(QStringLiteral("archived.txt"));
    QVERIFY(writeFile(path, "archived content"));
    if (requestReply.isEmpty())
        m_env->server.setSilent(QStringLiteral("GetBasePath"));
    else
        m_env->server.setReplyFields(QStringLiteral("RequestFile"), requestReply.replace("PATH", path.toUtf8()));
    auto client = std::make_unique<KavroClient>();
    if (requestReply.isEmpty())
        QVERIFY(m_env->server.waitForFrames(1));
    else
        QVERIFY(QSignalSpy(client.get(), &KavroClient::connected).wait(10000));

    const TraceCapture capture;
    const auto [content, fileError] = inWorkerThread([&] {
        KavroFile file(withClient ? client.get() : nullptr, QStringLiteral("G"), 3);
        if (!file.open(mode))
            return std::make_pair(QByteArray(), int(file.GetError()));
        const QByteArray bytes = file.readAll();
        file.close();
        return std::make_pair(bytes, int(file.GetError()));
    });
    QCOMPARE(fileError, error);
    QCOMPARE(content, warning.isEmpty() ? QByteArray("archived content") : QByteArray());
    if (!warning.isEmpty())
        QVERIFY2(capture.texts().contains(warning), qPrintable(capture.texts().join(QLatin1Char('\n'))));
    const QByteArray request = m_env->server.lastRequest(QStringLiteral("RequestFile"));
    QCOMPARE(request.isEmpty(), writeLock.isEmpty());
    if (!writeLock.isEmpty())
        QVERIFY(request.contains(QByteArray("<m:Guid>G</m:Guid><m:FileId>3</m:FileId><m:WriteLock>" + writeLock)));
    const QList<QByteArray> frames = m_env->server.frames();
    if (released)
        QTRY_COMPARE(FakeServer::commandOf(m_env->server.frames().last()), QStringLiteral("CloseFile"));
    else
        QVERIFY(frames.isEmpty() || FakeServer::commandOf(frames.last()) != QLatin1String("CloseFile"));
}

void tst_KavroFile::newFileIsArchived()
{
    m_env->server.setReplyFields(QStringLiteral("AddFile"), "<m:FileId>5</m:FileId><m:Error>0</m:Error>");
    const auto client = FakeArchive::connectedClient();
    QVERIFY(client);
    const QString path = m_env->storage.filePath(QStringLiteral("report.final.txt"));
    QVERIFY(writeFile(path, "report"));

    const auto [guid, fileId] = inWorkerThread([&] {
        unsigned int days = 30;
        KavroFile file(client.get(), path, QStringLiteral("1"), days, QStringLiteral("det"), QStringLiteral("com"),
                       FileTypeReportFragment, 100);
        return std::make_pair(file.GetGuid(), file.GetFileId());
    });
    QCOMPARE(guid.size(), 36);
    QCOMPARE(fileId, 5u);
    const QList<QByteArray> frames = m_env->server.frames();
    QCOMPARE(FakeServer::commandOf(frames.at(1)), QStringLiteral("CreateFileGroup"));
    QVERIFY(frames.at(1).contains("<m:FileGroupName>report.final</m:FileGroupName>"));
    QCOMPARE(FakeServer::commandOf(frames.at(2)), QStringLiteral("AddFile"));
    QVERIFY(frames.at(2).contains("<m:FileName>report.final.txt</m:FileName>"));
    // The file now lies in the group's directory as well.
    const QString groupDirectory =
        QString::fromUtf8(frames.at(1).mid(frames.at(1).indexOf("<m:Path>") + 8).split('<').first());
    QCOMPARE(readFile(QDir(groupDirectory).filePath(QStringLiteral("report.final.txt"))), QByteArray("report"));

    // A name that is no file name is the guid of a group there already: nothing is created.
    unsigned int days = 1;
    const QString existing = QStringLiteral("6f1c2a4e-0000-4000-8000-00000000abcd");
    QCOMPARE(KavroFile(client.get(), existing, QString(), days, QString(), QString(), FileTypeImage, 0).GetGuid(),
             existing);
    QCOMPARE(m_env->server.frames().size(), frames.size());
}

QTEST_GUILESS_MAIN(tst_KavroFile)
#include "tst_kavrofile.moc"
