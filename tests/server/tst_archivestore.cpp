// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "archivestore.h"
#include "testdatabase.h"

#include <kavro/filequery.h>

#include <QRegularExpression>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>

#include <future>

using namespace Kavro;
using namespace Kavro::Server;

// A group without files, created on day \a day of March 2024.
static FileGroupData group(const QString &guid, const QString &name = QString(), int day = 1)
{
    FileGroupData record;
    record.setGuid(guid);
    record.setName(name);
    record.setCreationTime(QDateTime(QDate(2024, 3, day), QTime(8, 0), Qt::UTC));
    return record;
}

class tst_ArchiveStore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void search_data();
    void search();
    void nothingLeftBehind_data();
    void nothingLeftBehind();
    void reopenTwiceAtOnceAndSchemaVersion();
};

void tst_ArchiveStore::search_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected"); // by creation time
    QTest::newRow("non-ASCII letters ignore case") << QStringLiteral("Ärger") << QStringLiteral("g3");
    QTest::newRow("percent taken literally") << QStringLiteral("0%") << QStringLiteral("g2 g1");
    QTest::newRow("underscore taken literally") << QStringLiteral("%_") << QStringLiteral("g2");
}

void tst_ArchiveStore::search()
{
    QFETCH(QString, text);
    QFETCH(QString, expected);
    QTemporaryDir dir;
    ArchiveStore store;
    QVERIFY(store.open(testDatabase(dir.path()), nullptr));
    // made in neither creation-time nor guid order, so that the result's order is the query's doing
    for (const FileGroupData &record : {group(QStringLiteral("g3"), QStringLiteral("ÄRGER 100 done"), 3),
                                        group(QStringLiteral("g1"), QStringLiteral("Harbour 100%-done"), 2),
                                        group(QStringLiteral("g2"), QStringLiteral("river 100%_done"), 1)})
        QCOMPARE(store.createFileGroup(record), NoError);
    FileQuery query;
    query.SetFileGroupSearchText(text);
    QStringList got;
    for (const FileGroupData &record : store.query(query))
        got.append(record.getGuid());
    QCOMPARE(got.join(QLatin1Char(' ')), expected);
}

void tst_ArchiveStore::nothingLeftBehind_data()
{
    QTest::addColumn<bool>("rollBack");
    QTest::newRow("deleted group takes its files and references along") << false;
    QTest::newRow("failed transaction undoes all its work") << true;
}

void tst_ArchiveStore::nothingLeftBehind()
{
    QFETCH(bool, rollBack);
    QTemporaryDir dir;
    ArchiveStore store;
    QVERIFY(store.open(testDatabase(dir.path()), nullptr));
    const QString g = QStringLiteral("g");
    const KavroError result = store.inTransaction([&] {
        store.createFileGroup(group(g));
        store.addFile(g, QStringLiteral("f"), 0, nullptr);
        store.addReference(g, QStringLiteral("viewer"));
        store.noteUser(QStringLiteral("alice"));
        if (!rollBack)
            return store.deleteFileGroup(g);
        // a failing step is undone alone: the group with a duplicate file id goes, the work before it stays
        FileGroupData broken = group(QStringLiteral("broken"));
        broken.setFileList({{QStringLiteral("a"), 1}, {QStringLiteral("b"), 1}});
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("UNIQUE|unique")));
        const bool undoneAlone = store.createFileGroup(broken) == ErrorInsertFileInDb && store.files(g).size() == 1
            && !store.fileGroupExists(broken.getGuid());
        return undoneAlone ? ErrorUnknown : ErrorDatabaseUnavailable; // fails either way, so is rolled back
    });
    QCOMPARE(result, rollBack ? ErrorUnknown : NoError);
    QCOMPARE(store.users().isEmpty(), rollBack);
    QCOMPARE(store.createFileGroup(group(g)), NoError); // afresh: no file or reference of the first is left
    QVERIFY(store.files(g).isEmpty());
    QCOMPARE(store.removeReference(g, QStringLiteral("viewer")), ErrorDeleteReference);
}

void tst_ArchiveStore::reopenTwiceAtOnceAndSchemaVersion()
{
    QTemporaryDir dir;
    const QString path = testDatabase(dir.path());
    const QString g = QStringLiteral("g");
    {
        ArchiveStore store;
        QVERIFY(store.open(path, nullptr) && store.createFileGroup(group(g)) == NoError);
    }
    // Reopened, the group is there: two threads add files to it at once, each through a store of its own.
    // Every addition succeeds and the ids stay unique: the file after them is number 41.
    const auto addFiles = [&](int count) {
        ArchiveStore store;
        quint32 id = 0;
        bool ok = store.open(path, nullptr);
        for (int i = 0; ok && i < count; ++i)
            ok = store.addFile(g, QStringLiteral("f"), 0, &id) == NoError;
        return ok ? id : 0u;
    };
    std::future<quint32> other = std::async(std::launch::async, addFiles, 20);
    QVERIFY(addFiles(20) > 0 && other.get() > 0);
    QCOMPARE(addFiles(1), 41u);

    // The reopened database kept its version; one written by a later schema is left alone.
    {
        QSqlDatabase db = openTestDatabase(path, QStringLiteral("forge"));
        QSqlQuery query(db);
        QVERIFY(db.isOpen() && query.exec(QStringLiteral("SELECT version FROM schema_version")) && query.next());
        QCOMPARE(query.value(0).toInt(), ArchiveStore::schemaVersion());
        QVERIFY(query.exec(QStringLiteral("UPDATE schema_version SET version = version + 1")));
    }
    QSqlDatabase::removeDatabase(QStringLiteral("forge"));
    QTest::ignoreMessage(
        QtWarningMsg, QRegularExpression(QStringLiteral("schema version %1;").arg(ArchiveStore::schemaVersion() + 1)));
    QVERIFY(!ArchiveStore().open(path, nullptr));
}

QTEST_GUILESS_MAIN(tst_ArchiveStore)
#include "tst_archivestore.moc"
