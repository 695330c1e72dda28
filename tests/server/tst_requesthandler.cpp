// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "archivestore.h"
#include "messages_p.h"
#include "requesthandler.h"
#include "storepaths.h"
#include "testdatabase.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

using namespace Kavro;
using namespace Kavro::Server;

namespace
{
// A request of \a command with the values given and every other one empty, as a client could write it.
QByteArray request(const char *command, const QHash<QString, QString> &values,
                   const QHash<QString, QStringList> &lists = {})
{
    SoapMessage message;
    message.element = QLatin1String(command);
    message.requestId = QStringLiteral("r");
    message.values = values;
    message.lists = lists;
    return writeSoapMessage(message);
}

QByteArray create(const QString &guid, const QString &path)
{
    return request("CreateFileGroup",
                   {{QStringLiteral("Guid"), guid},
                    {QStringLiteral("FileType"), QStringLiteral("11")},
                    {QStringLiteral("ReservedStorage"), QStringLiteral("0")},
                    {QStringLiteral("Path"), path}});
}

QByteArray withFile(const char *command, const QString &guid, const QString &name,
                    const QString &fileId = QStringLiteral("0"))
{
    return request(command,
                   {{QStringLiteral("Guid"), guid},
                    {QStringLiteral("FileName"), name},
                    {QStringLiteral("FileId"), fileId},
                    {QStringLiteral("WriteLock"), QStringLiteral("true")},
                    {QStringLiteral("UserName"), QStringLiteral("mallory")}});
}

QByteArray query(const QString &element, const QString &value, const QStringList &fileTypes = {})
{
    QHash<QString, QString> values = {{QStringLiteral("LocationState"), QStringLiteral("0")},
                                      {QStringLiteral("LockState"), QStringLiteral("0")}};
    QHash<QString, QStringList> lists = {{QStringLiteral("FileTypeList"), fileTypes}};
    if (element.endsWith(QLatin1String("Time")))
        lists.insert(element, {value, QString()});
    else
        values.insert(element, value);
    return request("QueryFileGroups", values, lists);
}
} // namespace

// What a client may send must never reach outside the store and the archive root nor another group, and a
// request with a value that is not of its kind, range or size is refused whole.
class tst_RequestHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void refusals_data();
    void refusals();
    void changesRefusedWhileMoving_data();
    void changesRefusedWhileMoving();

private:
    SoapMessage replyTo(const QByteArray &document);

    std::unique_ptr<QTemporaryDir> m_dir;
    StorePaths m_paths;
    ServerLimits m_limits;
    std::unique_ptr<ArchiveStore> m_store;
};

void tst_RequestHandler::initTestCase()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QString error;
    const QString store = m_dir->filePath(QStringLiteral("store"));
    QVERIFY2(m_paths.create(store, QString(), testDatabase(store), &error), qPrintable(error));
    m_store = std::make_unique<ArchiveStore>();
    QVERIFY2(m_store->open(m_paths.database, &error), qPrintable(error));
    m_limits.maxFieldLength = 100;
    m_limits.maxListEntries = 30;
    // Groups "g" in data/g and "other" in data/team/other, each with a file; links that lead out of the store
    // or into the other group, and a pipe.
    const QString outside = m_dir->filePath(QStringLiteral("outside"));
    QVERIFY(QDir().mkpath(outside));
    QVERIFY(QFile::link(outside, m_paths.data + QLatin1String("/escape")));
    for (const QString &path : {QStringLiteral("g"), QStringLiteral("team/other")}) {
        const QString guid = path.section(QLatin1Char('/'), -1);
        QCOMPARE(replyTo(create(guid, m_paths.data + QLatin1Char('/') + path)).number(QStringLiteral("Error")), 0);
        QFile file(m_paths.data + QLatin1Char('/') + path + QLatin1String("/f"));
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write("content") == 7);
        file.close();
        QCOMPARE(replyTo(withFile("AddFile", guid, QStringLiteral("f"))).number(QStringLiteral("Error")), 0);
    }
    QVERIFY(QFile::link(outside, m_paths.data + QLatin1String("/g/link")));
    QVERIFY(QFile::link(m_paths.data + QLatin1String("/team/other/f"), m_paths.data + QLatin1String("/g/swapped")));
    QVERIFY(m_store->addFile(QStringLiteral("g"), QStringLiteral("swapped"), 2, nullptr) == NoError);
    QCOMPARE(::mkfifo(QFile::encodeName(m_paths.data + QLatin1String("/g/pipe")).constData(), 0600), 0);
}

SoapMessage tst_RequestHandler::replyTo(const QByteArray &document)
{
    RequestHandler handler(*m_store, m_paths, m_limits, nullptr);
    const std::optional<SoapMessage> reply = handler.handle(readSoapMessage(document, SoapSender::Client), Caller{});
    return reply.value_or(SoapMessage());
}

void tst_RequestHandler::refusals_data()
{
    QTest::addColumn<QByteArray>("document");
    QTest::addColumn<int>("error");
    QTest::addColumn<QString>("text"); // a part of the reply's text, where the code's own says too little

    const QString data = m_paths.data;
    const QString g = QStringLiteral("g");
    QTest::newRow("guid climbing out") << create(QStringLiteral("../x"), data + QLatin1String("/x")) << 36 << "";
    QTest::newRow("guid with a separator") << create(QStringLiteral("a/b"), data + QLatin1String("/x")) << 36 << "";
    QTest::newRow("guid taken, in other letters")
        << create(QStringLiteral("OTHER"), data + QLatin1String("/x")) << 36 << "";
    QTest::newRow("path outside the storage directory") << create(QStringLiteral("h"), m_dir->path()) << 48 << "";
    QTest::newRow("path climbing out") << create(QStringLiteral("h"), data + QLatin1String("/../../h")) << 48 << "";
    QTest::newRow("path through a link out")
        << create(QStringLiteral("h"), data + QLatin1String("/escape/h")) << 48 << "link";
    QTest::newRow("the storage directory itself") << create(QStringLiteral("h"), data) << 48 << "";
    QTest::newRow("another group's directory")
        << create(QStringLiteral("h"), data + QLatin1String("/team/other")) << 48 << "another file group's directory";
    QTest::newRow("inside another group's directory")
        << create(QStringLiteral("h"), data + QLatin1String("/team/other/sub")) << 48 << "";
    QTest::newRow("above another group's directory")
        << create(QStringLiteral("h"), data + QLatin1String("/team")) << 48 << "";
    QTest::newRow("the imported groups' directory")
        << create(QStringLiteral("h"), data + QLatin1String("/imported")) << 48 << "imported";
    QTest::newRow("file name climbing out") << withFile("AddFile", g, QStringLiteral("..")) << 26 << "";
    QTest::newRow("file name with a separator") << withFile("AddFile", g, QStringLiteral("sub/a")) << 26 << "";
    QTest::newRow("adding a link") << withFile("AddFile", g, QStringLiteral("link")) << 26 << "not a regular file";
    QTest::newRow("adding a pipe") << withFile("AddFile", g, QStringLiteral("pipe")) << 26 << "not a regular file";
    QTest::newRow("adding a file not in the group's directory")
        << withFile("AddFile", g, QStringLiteral("nowhere")) << 26 << "";
    QTest::newRow("requesting a file swapped for a link to another group's")
        << withFile("RequestFile", g, {}, QStringLiteral("2")) << 7 << "";
    QTest::newRow("export outside the archive root")
        << ExportArchiveMessage(m_dir->path(), {QStringLiteral("g")}).writeRequest() << 52 << "";
    QTest::newRow("export climbing out of the archive root")
        << ExportArchiveMessage(m_paths.archiveRoot + QLatin1String("/../x"), {QStringLiteral("g")}).writeRequest()
        << 52 << "";
    QTest::newRow("export of a group with a file that is a link")
        << ExportArchiveMessage(m_paths.archiveRoot + QLatin1String("/x"), {QStringLiteral("g")}).writeRequest() << 52
        << "";
    QTest::newRow("import outside the archive root") << ImportArchiveMessage({m_paths.data}).writeRequest() << 50 << "";
    QTest::newRow("unknown command") << GetUserListMessage().writeRequest().replace("GetUserList", "GetSecrets") << 41
                                     << "";
    QTest::newRow("unreadable request")
        << AddFileMessage(QStringLiteral("g"), QStringLiteral("b"), 0).writeRequest().replace("FileId>0", "FileId>x")
        << 57 << "";

    // Values that are not of their kind, range or size.
    QTest::newRow("file type out of range") << create(QStringLiteral("h"), {}).replace(">11<", ">999<") << 57
                                            << "FileType \"999\" is not a whole number from 0 to 20";
    QTest::newRow("file id beyond 32 bits")
        << withFile("DeleteFile", g, {}, QStringLiteral("4294967296")) << 57 << "FileId";
    QTest::newRow("reserved storage beyond 64 bits")
        << create(QStringLiteral("h"), {}).replace("Storage>0<", "Storage>18446744073709551616<") << 57
        << "ReservedStorage";
    QTest::newRow("location state not whole")
        << query(QStringLiteral("LocationState"), QStringLiteral("2.7")) << 57 << "LocationState \"2.7\"";
    QTest::newRow("time that is no time") << query(QStringLiteral("CreationTime"), QStringLiteral("garbage")) << 57
                                          << "CreationTime Min \"garbage\" is not a time";
    QTest::newRow("boolean that is neither")
        << withFile("RequestFile", g, {}, QStringLiteral("1")).replace(">true<", ">yes<") << 57 << "WriteLock";
    QTest::newRow("name longer than a value may be")
        << query(QStringLiteral("FileGroupNameSearchText"), QString(101, QLatin1Char('n'))) << 57
        << "longer than 100 characters";
    QTest::newRow("file type list longer than a list may be")
        << query(QStringLiteral("User"), {}, QStringList(31, QStringLiteral("11"))) << 57 << "more than 30 entries";
    QTest::newRow("file type in a list out of range")
        << query(QStringLiteral("User"), {}, {QStringLiteral("11"), QStringLiteral("-1")}) << 57
        << "FileTypeList \"-1\"";
}

void tst_RequestHandler::refusals()
{
    QFETCH(QByteArray, document);
    QFETCH(int, error);
    QFETCH(QString, text);

    const SoapMessage reply = replyTo(document);
    QCOMPARE(reply.number(QStringLiteral("Error")), error);
    QVERIFY2(reply.text(QStringLiteral("ErrorString")).contains(text),
             qPrintable(reply.text(QStringLiteral("ErrorString"))));
    // Nothing was created outside the store, nor left behind in it; the other group's file is as it was.
    QCOMPARE(QDir(m_dir->filePath(QStringLiteral("outside"))).entryList(QDir::NoDotAndDotDot | QDir::AllEntries),
             QStringList());
    QCOMPARE(QDir(m_dir->path()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries),
             QStringList({QStringLiteral("outside"), QStringLiteral("store")}));
    QCOMPARE(QDir(m_paths.data).entryList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::System),
             QStringList({QStringLiteral("escape"), QStringLiteral("g"), QStringLiteral("team")}));
    QCOMPARE(QDir(m_paths.archiveRoot).entryList(QDir::NoDotAndDotDot | QDir::AllEntries), QStringList());
    QFile other(m_paths.data + QLatin1String("/team/other/f"));
    QVERIFY(other.open(QIODevice::ReadOnly));
    QCOMPARE(other.readAll(), QByteArray("content"));
}

void tst_RequestHandler::changesRefusedWhileMoving_data()
{
    QTest::addColumn<QByteArray>("document");
    const QString g = QStringLiteral("g");
    QTest::newRow("adding a file") << withFile("AddFile", g, QStringLiteral("f"), QStringLiteral("7"));
    QTest::newRow("deleting a file") << withFile("DeleteFile", g, {}, QStringLiteral("1"));
    QTest::newRow("locking a file") << withFile("RequestFile", g, {}, QStringLiteral("1"));
    QTest::newRow("deleting the group") << DeleteFileGroupMessage(g, false).writeRequest();
    QTest::newRow("moving it again") << MoveToNasMessage(g, QStringLiteral("mallory")).writeRequest();
}

void tst_RequestHandler::changesRefusedWhileMoving()
{
    QFETCH(QByteArray, document);
    QCOMPARE(m_store->setLocationState(QStringLiteral("g"), LocationCentralNotMoved, 50), NoError);
    const SoapMessage reply = replyTo(document);
    QCOMPARE(m_store->setLocationState(QStringLiteral("g"), LocationCentral, 0), NoError);
    QCOMPARE(reply.number(QStringLiteral("Error")), ErrorFileGroupLocked);
    QCOMPARE(reply.text(QStringLiteral("ErrorString")), QStringLiteral("The file group is being moved"));
}

QTEST_GUILESS_MAIN(tst_RequestHandler)
#include "tst_requesthandler.moc"
