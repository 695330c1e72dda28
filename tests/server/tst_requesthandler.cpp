// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "archivestore.h"
#include "messages_p.h"
#include "requesthandler.h"
#include "storepaths.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace Kavro;
using namespace Kavro::Server;

// What a client may send must never reach outside the store and the archive
// root, and a request that cannot be read or named gets an error reply.
class tst_RequestHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void refusals_data();
    void refusals();

private:
    int errorOf(const QByteArray &document);

    std::unique_ptr<QTemporaryDir> m_dir;
    StorePaths m_paths;
    std::unique_ptr<ArchiveStore> m_store;
};

void tst_RequestHandler::initTestCase()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QString error;
    QVERIFY2(m_paths.create(m_dir->filePath(QStringLiteral("store")), QString(), &error), qPrintable(error));
    m_store = std::make_unique<ArchiveStore>();
    QVERIFY2(m_store->open(m_paths.database, &error), qPrintable(error));
    // A group "g" with one file, and links that lead out of the store.
    const QString outside = m_dir->filePath(QStringLiteral("outside"));
    QVERIFY(QDir().mkpath(outside));
    QVERIFY(QFile::link(outside, m_paths.data + QLatin1String("/escape")));
    QCOMPARE(errorOf(CreateFileGroupMessage({}, QStringLiteral("g"), {}, QStringLiteral("n"), FileTypeImage, {}, 0, {},
                                            QStringLiteral("ann"), {}, m_paths.data + QLatin1String("/g"))
                         .writeRequest()),
             0);
    QVERIFY(QFile::link(outside, m_paths.data + QLatin1String("/g/link")));
    QCOMPARE(errorOf(AddFileMessage(QStringLiteral("g"), QStringLiteral("link"), 0).writeRequest()), 0);
}

int tst_RequestHandler::errorOf(const QByteArray &document)
{
    RequestHandler handler(*m_store, m_paths, nullptr);
    const std::optional<SoapMessage> reply = handler.handle(readSoapMessage(document, SoapSender::Client), nullptr);
    return reply ? int(reply->number(QStringLiteral("Error"))) : -1;
}

void tst_RequestHandler::refusals_data()
{
    QTest::addColumn<QByteArray>("document");
    QTest::addColumn<int>("error");

    const auto create = [this](const QString &guid, const QString &path) {
        return CreateFileGroupMessage({}, guid, {}, QStringLiteral("n"), FileTypeImage, {}, 0, {}, {}, {}, path)
            .writeRequest();
    };
    const QString data = m_paths.data;
    QTest::newRow("guid climbing out") << create(QStringLiteral("../x"), data + QLatin1String("/x")) << 36;
    QTest::newRow("guid with a separator") << create(QStringLiteral("a/b"), data + QLatin1String("/x")) << 36;
    QTest::newRow("path outside the storage directory") << create(QStringLiteral("h"), m_dir->path()) << 48;
    QTest::newRow("path climbing out") << create(QStringLiteral("h"), data + QLatin1String("/../../h")) << 48;
    QTest::newRow("path through a link out") << create(QStringLiteral("h"), data + QLatin1String("/escape/h")) << 48;
    QTest::newRow("the storage directory itself") << create(QStringLiteral("h"), data) << 48;
    QTest::newRow("file name climbing out")
        << AddFileMessage(QStringLiteral("g"), QStringLiteral(".."), 0).writeRequest() << 26;
    QTest::newRow("file name with a separator")
        << AddFileMessage(QStringLiteral("g"), QStringLiteral("sub/a"), 0).writeRequest() << 26;
    QTest::newRow("file that is a link out")
        << RequestFileMessage(QStringLiteral("g"), 1, false, QStringLiteral("ann")).writeRequest() << 7;
    QTest::newRow("export outside the archive root")
        << ExportArchiveMessage(m_dir->path(), {QStringLiteral("g")}).writeRequest() << 52;
    QTest::newRow("export climbing out of the archive root")
        << ExportArchiveMessage(m_paths.archiveRoot + QLatin1String("/../x"), {QStringLiteral("g")}).writeRequest()
        << 52;
    QTest::newRow("import outside the archive root") << ImportArchiveMessage({m_paths.data}).writeRequest() << 50;
    QTest::newRow("unknown command") << GetUserListMessage().writeRequest().replace("GetUserList", "GetSecrets") << 41;
    QTest::newRow("unreadable request")
        << AddFileMessage(QStringLiteral("g"), QStringLiteral("b"), 0).writeRequest().replace("FileId>0", "FileId>x")
        << 57;
}

void tst_RequestHandler::refusals()
{
    QFETCH(QByteArray, document);
    QFETCH(int, error);

    QCOMPARE(errorOf(document), error);
    // Nothing was created outside the store.
    QCOMPARE(QDir(m_dir->filePath(QStringLiteral("outside"))).entryList(QDir::NoDotAndDotDot | QDir::AllEntries),
             QStringList());
    QCOMPARE(QDir(m_dir->path()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries),
             QStringList({QStringLiteral("outside"), QStringLiteral("store")}));
}

QTEST_GUILESS_MAIN(tst_RequestHandler)
#include "tst_requesthandler.moc"
