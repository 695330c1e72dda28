// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "errorhandler_p.h"
#include "fakeserver.h"
#include "kavroclient_p.h"
#include "temporarysettings.h"
#include "tracecapture.h"
#include "workerthread.h"

#include <kavro/kavroclient.h>
#include <kavro/kavrofile.h>

#include <QDir>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace Kavro;

class tst_KavroFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void withoutService();
    void names_data();
    void names();
    void openFetchesWithTheLock_data();
    void openFetchesWithTheLock();
    void openFailures_data();
    void openFailures();
    void knownLocalFileOpensWithoutRequest();
    void newFileIsArchived();
    void newFileWithAGuidName();

private:
    std::unique_ptr<KavroClient> connectedClient();
    QString writeFile(const QString &name, const QByteArray &content) const;

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<FakeServer> m_server;
    std::unique_ptr<TemporarySettings> m_settings;
};

void tst_KavroFile::init()
{
    ErrorHandler::instance().setTraceMask(ErrorHandler::TraceWarning);
    m_dir = std::make_unique<QTemporaryDir>();
    m_server = std::make_unique<FakeServer>();
    QVERIFY(m_server->listen());
    m_server->answerRequests(m_dir->path());
    m_settings = std::make_unique<TemporarySettings>(
        "[KAVRO]\nServerHost=127.0.0.1\nXmlPort=" + QByteArray::number(m_server->port()) + "\nReconnectIntervalMs=20\n",
        true);
    KavroClient::ClientConfig::instance().reload();
}

void tst_KavroFile::cleanup()
{
    m_server.reset();
    m_settings.reset();
    m_dir.reset();
}

std::unique_ptr<KavroClient> tst_KavroFile::connectedClient()
{
    auto client = std::make_unique<KavroClient>();
    QSignalSpy connected(client.get(), &KavroClient::connected);
    return connected.wait(10000) ? std::move(client) : nullptr;
}

QString tst_KavroFile::writeFile(const QString &name, const QByteArray &content) const
{
    const QString path = m_dir->filePath(name);
    QFile file(path);
    if (file.open(QIODevice::WriteOnly))
        file.write(content);
    return path;
}

void tst_KavroFile::withoutService()
{
    m_settings.reset();
    m_settings = std::make_unique<TemporarySettings>(QByteArray(), true);
    KavroClient::ClientConfig::instance().reload();
    const QString path = writeFile(QStringLiteral("plain.txt"), "local");

    KavroFile file(nullptr, m_dir->path() + QStringLiteral("/sub/../plain.txt"), 5);
    QCOMPARE(file.GetName(), QDir::toNativeSeparators(path));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), QByteArray("local"));
    file.close();
    QCOMPARE(file.GetError(), NoError);
    QVERIFY(m_server->frames().isEmpty());
}

void tst_KavroFile::names_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<uint>("fileId");
    QTest::addColumn<QString>("printed");
    QTest::addColumn<QString>("guid");

    QTest::newRow("archived file") << QStringLiteral("G") << 4u << QStringLiteral("kavro:///G/4")
                                   << QStringLiteral("G");
    QTest::newRow("file id 0 means a local file") << QStringLiteral("G") << 0u << QStringLiteral("G") << QString();
}

void tst_KavroFile::names()
{
    QFETCH(QString, name);
    QFETCH(uint, fileId);
    QFETCH(QString, printed);
    QFETCH(QString, guid);

    KavroFile file(nullptr, name, fileId);
    QCOMPARE(file.GetName(), printed);
    QCOMPARE(file.GetGuid(), guid);
    QVERIFY(!file.IsEmpty());
    QVERIFY(KavroFile(nullptr).IsEmpty());
}

void tst_KavroFile::openFetchesWithTheLock_data()
{
    QTest::addColumn<QIODevice::OpenMode>("mode");
    QTest::addColumn<QByteArray>("writeLock");

    QTest::newRow("read") << QIODevice::OpenMode(QIODevice::ReadOnly) << QByteArray("false");
    QTest::newRow("write") << QIODevice::OpenMode(QIODevice::ReadWrite) << QByteArray("true");
}

void tst_KavroFile::openFetchesWithTheLock()
{
    QFETCH(QIODevice::OpenMode, mode);
    QFETCH(QByteArray, writeLock);

    const QString path = writeFile(QStringLiteral("archived.txt"), "archived content");
    m_server->setReplyFields(QStringLiteral("RequestFile"),
                             "<m:Path>" + path.toUtf8() + "</m:Path><m:Error>0</m:Error>");
    const auto client = connectedClient();
    QVERIFY(client);

    QVERIFY(inWorkerThread([&] {
        KavroFile file(client.get(), QStringLiteral("G"), 3);
        if (!file.open(mode) || file.readAll() != "archived content")
            return false;
        file.close();
        return file.GetError() == NoError;
    }));
    QTRY_COMPARE(m_server->frames().size(), 3);
    const QByteArray request = m_server->frames().at(1);
    QCOMPARE(FakeServer::commandOf(request), QStringLiteral("RequestFile"));
    QVERIFY(request.contains(
        QByteArray("<m:Guid>G</m:Guid><m:FileId>3</m:FileId><m:WriteLock>" + writeLock + "</m:WriteLock>")));
    QCOMPARE(FakeServer::commandOf(m_server->frames().at(2)), QStringLiteral("CloseFile"));
}

void tst_KavroFile::openFailures_data()
{
    QTest::addColumn<QByteArray>("requestReply"); // empty: the server is not answering at all
    QTest::addColumn<bool>("withClient");
    QTest::addColumn<int>("error");
    QTest::addColumn<QString>("warning");
    QTest::addColumn<bool>("released"); // a CloseFile follows the RequestFile

    QTest::newRow("no client") << QByteArray("<m:Error>0</m:Error>") << false << 0
                               << QStringLiteral("KavroClient was not given to KavroFile") << false;
    QTest::newRow("client not connected") << QByteArray() << true << int(ErrorNotConnected)
                                          << QStringLiteral("KavroClient not connected but available") << false;
    QTest::newRow("locked by someone else") << QByteArray("<m:Error>6</m:Error>") << true << int(ErrorFileGroupLocked)
                                            << QStringLiteral("KavroFile::open: File group is locked") << false;
    QTest::newRow("locked, but the local copy cannot be opened")
        << QByteArray("<m:Path>/nonexistent/kavro/file.txt</m:Path><m:Error>0</m:Error>") << true << int(ErrorOpenFile)
        << QStringLiteral("KavroFile::open: Failed to open file") << true;
}

void tst_KavroFile::openFailures()
{
    QFETCH(QByteArray, requestReply);
    QFETCH(bool, withClient);
    QFETCH(int, error);
    QFETCH(QString, warning);
    QFETCH(bool, released);

    if (requestReply.isEmpty())
        m_server->setSilent(QStringLiteral("GetBasePath"));
    else
        m_server->setReplyFields(QStringLiteral("RequestFile"), requestReply);
    auto client = std::make_unique<KavroClient>();
    if (requestReply.isEmpty())
        QVERIFY(m_server->waitForFrames(1));
    else
        QVERIFY(QSignalSpy(client.get(), &KavroClient::connected).wait(10000));

    const TraceCapture capture;
    const int fileError = inWorkerThread([&] {
        KavroFile file(withClient ? client.get() : nullptr, QStringLiteral("G"), 3);
        return file.open(QIODevice::ReadOnly) ? -1 : int(file.GetError());
    });
    QCOMPARE(fileError, error);
    QVERIFY2(capture.texts().contains(warning), qPrintable(capture.texts().join(QLatin1Char('\n'))));
    if (released)
        QTRY_COMPARE(FakeServer::commandOf(m_server->frames().last()), QStringLiteral("CloseFile"));
    else
        QVERIFY(m_server->frames().isEmpty()
                || FakeServer::commandOf(m_server->frames().last()) != QLatin1String("CloseFile"));
}

void tst_KavroFile::knownLocalFileOpensWithoutRequest()
{
    const auto client = connectedClient();
    QVERIFY(client);
    const QString path = writeFile(QStringLiteral("known.txt"), "x");
    KavroFile file(client.get(), path, 0);
    QVERIFY(file.open(QIODevice::ReadOnly));
    file.close();
    QCOMPARE(m_server->frames().size(), 1); // GetBasePath only
}

void tst_KavroFile::newFileIsArchived()
{
    m_server->setReplyFields(QStringLiteral("AddFile"), "<m:FileId>5</m:FileId><m:Error>0</m:Error>");
    const auto client = connectedClient();
    QVERIFY(client);
    const QString path = writeFile(QStringLiteral("report.final.txt"), "report");

    const auto [guid, fileId] = inWorkerThread([&] {
        unsigned int days = 30;
        KavroFile file(client.get(), path, QStringLiteral("1"), days, QStringLiteral("det"), QStringLiteral("com"),
                       FileTypeReportFragment, 100);
        return std::make_pair(file.GetGuid(), file.GetFileId());
    });
    QCOMPARE(guid.size(), 36);
    QCOMPARE(fileId, 5u);
    const QList<QByteArray> frames = m_server->frames();
    QCOMPARE(FakeServer::commandOf(frames.at(1)), QStringLiteral("CreateFileGroup"));
    QVERIFY(frames.at(1).contains("<m:FileGroupName>report.final</m:FileGroupName>"));
    QCOMPARE(FakeServer::commandOf(frames.at(2)), QStringLiteral("AddFile"));
    QVERIFY(frames.at(2).contains("<m:FileName>report.final.txt</m:FileName>"));
    // The file now lies in the group's directory as well.
    const QString groupDirectory =
        QString::fromUtf8(frames.at(1).mid(frames.at(1).indexOf("<m:Path>") + 8).split('<').first());
    QFile archived(QDir(groupDirectory).filePath(QStringLiteral("report.final.txt")));
    QVERIFY(archived.open(QIODevice::ReadOnly));
    QCOMPARE(archived.readAll(), QByteArray("report"));
}

void tst_KavroFile::newFileWithAGuidName()
{
    const auto client = connectedClient();
    QVERIFY(client);
    unsigned int days = 1;
    const QString guid = QStringLiteral("6f1c2a4e-0000-4000-8000-00000000abcd");
    KavroFile file(client.get(), guid, QString(), days, QString(), QString(), FileTypeImage, 0);
    QCOMPARE(file.GetGuid(), guid);
    QCOMPARE(m_server->frames().size(), 1); // nothing created
}

QTEST_GUILESS_MAIN(tst_KavroFile)
#include "tst_kavrofile.moc"
