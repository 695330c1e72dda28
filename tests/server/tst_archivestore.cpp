// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "archivestore.h"

#include <kavro/filequery.h>

#include <QRegularExpression>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <memory>

using namespace Kavro;
using namespace Kavro::Server;

Q_DECLARE_METATYPE(Kavro::FileQuery)

namespace
{
const QDateTime s_t0(QDate(2024, 3, 1), QTime(8, 0), Qt::UTC);

// A group created on day \a day after s_t0, with file 1.
FileGroupData group(const QString &guid, const QString &name, FileType type, LocationState location, int day)
{
    FileGroupData record;
    record.setGuid(guid);
    record.setName(name);
    record.setFileType(type);
    record.setLocationState(location);
    record.setCreationTime(s_t0.addDays(day));
    record.addFile(QStringLiteral("data.bin"), 1);
    return record;
}

template<typename Setter, typename Value>
FileQuery with(Setter setter, const Value &value)
{
    FileQuery query;
    (query.*setter)(value);
    return query;
}
} // namespace

class tst_ArchiveStore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void roundTrip_data();
    void roundTrip();
    void operations_data();
    void operations();
    void query_data();
    void query();
    void reopenSharingAndSchemaVersion();
    void failedWorkIsRolledBack();

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<ArchiveStore> m_store;
    QString m_path;
};

void tst_ArchiveStore::init()
{
    m_store.reset();
    m_dir = std::make_unique<QTemporaryDir>();
    m_path = m_dir->filePath(QStringLiteral("archive.db"));
    m_store = std::make_unique<ArchiveStore>();
    QString error;
    QVERIFY2(m_store->open(m_path, &error), qPrintable(error));
}

void tst_ArchiveStore::roundTrip_data()
{
    QTest::addColumn<FileGroupData>("record");
    FileGroupData full = group(QStringLiteral("g-full"), QStringLiteral("Survey Ä"), FileTypeImage, LocationCentral, 0);
    full.setBackupTime(s_t0.addSecs(90).toOffsetFromUtc(7200)); // read back as the same instant in UTC
    full.setModificationTime(s_t0.addMSecs(1));
    full.setLifeCycle(s_t0.addYears(5));
    full.setComment(QStringLiteral("first pass"));
    full.setCreator(QStringLiteral("alice"));
    full.setDetail(QStringLiteral("Ümlaut détail"));
    full.setPath(QStringLiteral("/archive/g-full"));
    full.setTeam(QStringLiteral("blue"));
    full.setVersion(QStringLiteral("1.2"));
    full.setReservedStorage(4096);
    full.setFileList({{QStringLiteral("b.png"), 7}, {QStringLiteral("a.png"), 2}});
    QTest::newRow("every field set, files given out of order") << full;
    FileGroupData bare;
    bare.setGuid(QStringLiteral("g-bare"));
    QTest::newRow("null times, empty texts, no files") << bare;
}

void tst_ArchiveStore::roundTrip()
{
    QFETCH(FileGroupData, record);
    QCOMPARE(m_store->createFileGroup(record), NoError);
    QCOMPARE(m_store->createFileGroup(record), ErrorAddFileGroup);

    FileGroupData::FileList byId = record.getFileList();
    std::sort(byId.begin(), byId.end(), [](const auto &a, const auto &b) {
        return a.second < b.second;
    });
    FileGroupData expected = record;
    expected.setFileList(byId);
    FileGroupData read;
    QCOMPARE(m_store->fileGroup(record.getGuid(), &read), NoError);
    QCOMPARE(read, expected);
    for (const QDateTime &time : {read.getBackupTime(), read.getCreationTime(), read.getLifeCycle()})
        QVERIFY(!time.isValid() || time.timeSpec() == Qt::UTC);
    QCOMPARE(m_store->fileGroup(QStringLiteral("unknown"), &read), ErrorGuidNotFound);

    const QDateTime beforeAdd = QDateTime::currentDateTimeUtc().addMSecs(-1);
    QCOMPARE(m_store->addFile(record.getGuid(), QStringLiteral("late"), 0, nullptr), NoError);
    QCOMPARE(m_store->fileGroup(record.getGuid(), &read), NoError);
    QVERIFY(read.getModificationTime() >= beforeAdd);
}

void tst_ArchiveStore::operations_data()
{
    // Steps on group "g", which starts with file 1: "add <id>", "read|write <user> [<file>]", "unlock <user>",
    // "delete-file <id>", "delete-group", "create", "ref|unref|unref-all <application>". A step's result
    // code follows "=", and is 0 where none is given.
    QTest::addColumn<QString>("script");
    QTest::addColumn<QVector<int>>("files");
    QTest::addColumn<int>("locks");
    QTest::addColumn<int>("references");
    const QVector<int> one{1};
    QTest::newRow("numbering: above the highest, wanted, taken 26")
        << QStringLiteral("add 0; add 5; add 0; add 3; add 3 =26") << QVector<int>{1, 2, 3, 5, 6} << 0 << 0;
    QTest::newRow("numbering: first file is 1") << QStringLiteral("delete-file 1; add 0") << one << 0 << 0;
    QTest::newRow("lock: unknown file 7") << QStringLiteral("read alice 9 =7") << one << 0 << 0;
    QTest::newRow("lock: read beside read") << QStringLiteral("read alice; read bob") << one << 2 << 0;
    QTest::newRow("lock: write beside another's read 6") << QStringLiteral("read alice; write bob =6") << one << 1 << 0;
    QTest::newRow("lock: read beside another's write 5") << QStringLiteral("write alice; read bob =5") << one << 1 << 0;
    QTest::newRow("lock: own read replaced by write")
        << QStringLiteral("read alice; write alice; read carol =5") << one << 1 << 0;
    QTest::newRow("lock: own write replaced by read")
        << QStringLiteral("write alice; read alice; read bob") << one << 2 << 0;
    QTest::newRow("lock: unlock frees the file")
        << QStringLiteral("read alice; unlock alice; write bob") << one << 1 << 0;
    QTest::newRow("lock: unlock without a lock 22") << QStringLiteral("read alice; unlock bob =22") << one << 1 << 0;
    QTest::newRow("lock: delete a locked file 6") << QStringLiteral("read alice; delete-file 1 =6") << one << 1 << 0;
    QTest::newRow("lock: delete a locked group 6") << QStringLiteral("read alice; delete-group =6") << one << 1 << 0;
    QTest::newRow("delete: files and references go with the group")
        << QStringLiteral("add 0; ref viewer; delete-group; create") << one << 0 << 0;
    QTest::newRow("references: added twice, removed once")
        << QStringLiteral("ref viewer; ref viewer; unref viewer") << one << 0 << 1;
    QTest::newRow("references: removed when none held 32")
        << QStringLiteral("ref editor; unref viewer =32") << one << 0 << 1;
    QTest::newRow("references: all of one application removed")
        << QStringLiteral("ref viewer; ref viewer; ref editor; unref-all viewer; unref viewer =32") << one << 0 << 1;
}

void tst_ArchiveStore::operations()
{
    QFETCH(QString, script);
    QFETCH(QVector<int>, files);
    QFETCH(int, locks);
    QFETCH(int, references);
    const QString g = QStringLiteral("g");
    QCOMPARE(m_store->createFileGroup(group(g, g, FileTypeImage, LocationLocal, 0)), NoError);
    const QStringList steps = script.split(QLatin1Char(';'));
    for (const QString &step : steps) {
        const QStringList word = step.section(QLatin1Char('='), 0, 0).split(QLatin1Char(' '), Qt::SkipEmptyParts);
        const QString verb = word.value(0);
        const QString arg = word.value(1);
        const auto is = [&](const char *name) {
            return verb == QLatin1String(name);
        };
        const KavroError result = is("add") ? m_store->addFile(g, QStringLiteral("f"), arg.toUInt(), nullptr)
            : is("read") || is("write")
            ? m_store->lockFile(g, word.value(2, QStringLiteral("1")).toUInt(), arg, is("write"))
            : is("unlock")       ? m_store->unlockFile(g, 1, arg)
            : is("delete-file")  ? m_store->deleteFile(g, arg.toUInt())
            : is("delete-group") ? m_store->deleteFileGroup(g)
            : is("create")       ? m_store->createFileGroup(group(g, g, FileTypeImage, LocationLocal, 0))
            : is("ref")          ? m_store->addReference(g, arg)
            : is("unref")        ? m_store->removeReference(g, arg)
            : is("unref-all")    ? m_store->removeAllReferences(g, arg)
                                 : ErrorUnknown;
        QVERIFY2(int(result) == step.section(QLatin1Char('='), 1).toInt(), qPrintable(step));
    }
    FileGroupData record;
    QCOMPARE(m_store->fileGroup(g, &record), NoError);
    QVector<int> ids;
    for (const auto &file : record.getFileList())
        ids.append(file.second);
    QCOMPARE(ids, files);
    QCOMPARE(record.getLockCount(), locks);
    QCOMPARE(record.getReferenceCount(), references);
}

void tst_ArchiveStore::query_data()
{
    QTest::addColumn<FileQuery>("criteria");
    QTest::addColumn<QString>("expected");
    QTest::newRow("no criteria, by creation time") << FileQuery() << QStringLiteral("g2 g1 g3");
    QTest::newRow("name ignores case") << with(&FileQuery::SetFileGroupSearchText, QStringLiteral("SURVEY"))
                                       << QStringLiteral("g2 g1");
    QTest::newRow("non-ASCII letters ignore case")
        << with(&FileQuery::SetFileGroupSearchText, QStringLiteral("ärger")) << QStringLiteral("g3");
    QTest::newRow("wildcards taken literally")
        << with(&FileQuery::SetCommentSearchText, QStringLiteral("0%_")) << QStringLiteral("g2");
    QTest::newRow("creator substring") << with(&FileQuery::SetCreatorSearchText, QStringLiteral("smith"))
                                       << QStringLiteral("g1");
    FileQuery types = with(&FileQuery::AddFileType, FileTypeImage);
    types.AddFileType(FileTypeScanRecording);
    QTest::newRow("file type list") << types << QStringLiteral("g1 g3");
    QTest::newRow("location state") << with(&FileQuery::SetLocationState, LocationLocal) << QStringLiteral("g2 g3");
    QTest::newRow("free of locks") << with(&FileQuery::SetLockState, LockFree) << QStringLiteral("g3");
    QTest::newRow("read locked") << with(&FileQuery::SetLockState, LockRead) << QStringLiteral("g1");
    QTest::newRow("write locked") << with(&FileQuery::SetLockState, LockWrite) << QStringLiteral("g2");
    QTest::newRow("lock user") << with(&FileQuery::SetLockUser, QStringLiteral("bob")) << QStringLiteral("g2");
    QTest::newRow("referencing application, count above 0")
        << with(&FileQuery::SetReferencingApplication, QStringLiteral("viewer")) << QStringLiteral("g1");
    FileQuery closed = with(&FileQuery::SetCreationTimeMin, s_t0.addDays(1));
    closed.SetCreationTimeMax(s_t0.addDays(1));
    QTest::newRow("closed range, inclusive bounds") << closed << QStringLiteral("g1");
    QTest::newRow("open minimum, NULL times excluded")
        << with(&FileQuery::SetBackupTimeMax, s_t0.addYears(1)) << QStringLiteral("g1");
    FileQuery combined = with(&FileQuery::SetLocationState, LocationLocal);
    combined.AddFileType(FileTypeAudioRecording);
    QTest::newRow("criteria combined") << combined << QStringLiteral("g2");
}

void tst_ArchiveStore::query()
{
    QFETCH(FileQuery, criteria);
    QFETCH(QString, expected);
    // created in neither creation-time nor guid order, so that the result's order is the query's doing
    FileGroupData g3 = group(QStringLiteral("g3"), QStringLiteral("ÄRGER"), FileTypeScanRecording, LocationLocal, 2);
    g3.setComment(QStringLiteral("100 done"));
    FileGroupData g1 = group(QStringLiteral("g1"), QStringLiteral("Harbour Survey"), FileTypeImage, LocationCentral, 1);
    g1.setCreator(QStringLiteral("Alice Smith"));
    g1.setComment(QStringLiteral("100%-done"));
    g1.setBackupTime(s_t0.addDays(3));
    FileGroupData g2 =
        group(QStringLiteral("g2"), QStringLiteral("river survey"), FileTypeAudioRecording, LocationLocal, 0);
    g2.setComment(QStringLiteral("100%_done"));
    for (const FileGroupData &record : {g3, g1, g2})
        QCOMPARE(m_store->createFileGroup(record), NoError);
    QCOMPARE(m_store->lockFile(g1.getGuid(), 1, QStringLiteral("alice"), false), NoError);
    QCOMPARE(m_store->lockFile(g2.getGuid(), 1, QStringLiteral("bob"), true), NoError);
    QCOMPARE(m_store->addReference(g1.getGuid(), QStringLiteral("viewer")), NoError);
    QCOMPARE(m_store->addReference(g3.getGuid(), QStringLiteral("viewer")), NoError);
    QCOMPARE(m_store->removeReference(g3.getGuid(), QStringLiteral("viewer")), NoError);

    QStringList got;
    const QList<FileGroupData> records = m_store->query(criteria);
    for (const FileGroupData &record : records) {
        got.append(record.getGuid());
        FileGroupData stored;
        QCOMPARE(m_store->fileGroup(record.getGuid(), &stored), NoError);
        QCOMPARE(record.getLockCount(), stored.getLockCount());
        QCOMPARE(record.getReferenceCount(), stored.getReferenceCount());
    }
    QCOMPARE(got.join(QLatin1Char(' ')), expected);
}

void tst_ArchiveStore::reopenSharingAndSchemaVersion()
{
    const QString g = QStringLiteral("g");
    QCOMPARE(m_store->createFileGroup(group(g, g, FileTypeImage, LocationLocal, 0)), NoError);
    for (const char *user : {"bob", "alice", "", "bob"})
        m_store->noteUser(QLatin1String(user));
    m_store.reset();

    ArchiveStore first;
    QString error;
    QVERIFY2(first.open(m_path, &error), qPrintable(error));
    QVERIFY(first.fileGroupExists(g));
    QCOMPARE(first.users(), QStringList({QStringLiteral("alice"), QStringLiteral("bob")}));

    // another store in another thread numbers files of the same group at once: each file gets an id of its own
    auto addFiles = [&](ArchiveStore *store) {
        int added = 0;
        for (int i = 0; i < 20; ++i)
            added += store->addFile(g, QStringLiteral("f"), 0, nullptr) == NoError ? 1 : 0;
        return added;
    };
    int addedByThread = 0;
    std::unique_ptr<QThread> thread(QThread::create([&] {
        ArchiveStore own;
        if (own.open(m_path, nullptr))
            addedByThread = addFiles(&own);
    }));
    thread->start();
    QCOMPARE(addFiles(&first), 20);
    QVERIFY(thread->wait());
    QCOMPARE(addedByThread, 20);
    QCOMPARE(first.files(g).size(), 41);
    QCOMPARE(first.files(g).last().id, 41u);

    // a database written by a later schema is left alone
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("forge"));
        db.setDatabaseName(m_path);
        QVERIFY(db.open());
        QVERIFY(QSqlQuery(db).exec(QStringLiteral("UPDATE schema_version SET version = version + 1")));
    }
    QSqlDatabase::removeDatabase(QStringLiteral("forge"));
    ArchiveStore later;
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("schema version")));
    QVERIFY(!later.open(m_path, &error));
    QVERIFY(error.contains(QString::number(ArchiveStore::schemaVersion() + 1)));
}

void tst_ArchiveStore::failedWorkIsRolledBack()
{
    const QString g = QStringLiteral("g");
    KavroError brokenResult = NoError;
    const KavroError got = m_store->inTransaction([&] {
        m_store->createFileGroup(group(g, g, FileTypeImage, LocationLocal, 0));
        m_store->addFile(g, QStringLiteral("more"), 0, nullptr);
        m_store->addReference(g, QStringLiteral("viewer"));
        m_store->noteUser(QStringLiteral("alice"));
        // a failing step inside is undone alone: the group with a duplicate file id is not kept
        FileGroupData broken = group(QStringLiteral("broken"), g, FileTypeImage, LocationLocal, 0);
        broken.addFile(QStringLiteral("again"), 1);
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("UNIQUE")));
        brokenResult = m_store->createFileGroup(broken);
        const bool asExpected = brokenResult == ErrorInsertFileInDb && m_store->files(g).size() == 2
            && !m_store->fileGroupExists(QStringLiteral("broken"));
        return asExpected ? ErrorUnknown : NoError;
    });
    QCOMPARE(got, ErrorUnknown); // the work saw its own changes, and the broken group undone alone
    QVERIFY(!m_store->fileGroupExists(g));
    QVERIFY(m_store->files(g).isEmpty());
    QVERIFY(m_store->users().isEmpty());
}

QTEST_GUILESS_MAIN(tst_ArchiveStore)
#include "tst_archivestore.moc"
