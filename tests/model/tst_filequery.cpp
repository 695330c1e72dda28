// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include <kavro/filequery.h>

#include <QTest>

using namespace Kavro;

// One time range of the query: its two setters and its test. Whether the
// getters read the right fields shows in the QueryFileGroups request.
struct RangeAccess {
    void (FileQuery::*setMin)(const QDateTime &);
    void (FileQuery::*setMax)(const QDateTime &);
    bool (FileQuery::*inRange)(const QDateTime &) const;
};

const RangeAccess s_ranges[] = {
    {&FileQuery::SetBackupTimeMin, &FileQuery::SetBackupTimeMax, &FileQuery::IsBackupTimeInRange},
    {&FileQuery::SetCreationTimeMin, &FileQuery::SetCreationTimeMax, &FileQuery::IsCreationTimeInRange},
    {&FileQuery::SetModificationTimeMin, &FileQuery::SetModificationTimeMax, &FileQuery::IsModificationTimeInRange},
    {&FileQuery::SetLifeCycleTimeMin, &FileQuery::SetLifeCycleTimeMax, &FileQuery::IsLifeCycleInRange},
};

class tst_FileQuery : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void rangeTest_data();
    void rangeTest();
    void fileTypes();
    void resetAndCopy();
    void dateTimeFromString_data();
    void dateTimeFromString();
};

void tst_FileQuery::rangeTest_data()
{
    QTest::addColumn<QDateTime>("minimum");
    QTest::addColumn<QDateTime>("maximum");
    QTest::addColumn<QDateTime>("time");
    QTest::addColumn<bool>("inRange");

    const QDateTime t0(QDate(2020, 1, 1), QTime(12, 0), Qt::UTC);
    const QDateTime before = t0.addMSecs(-1);
    const QDateTime after = t0.addSecs(3600);
    const QDateTime null;

    QTest::newRow("open range accepts null") << null << null << null << true;
    QTest::newRow("minimum is inclusive") << t0 << null << t0 << true;
    QTest::newRow("earlier than minimum") << t0 << null << before << false;
    QTest::newRow("null against a minimum") << t0 << null << null << false;
    QTest::newRow("maximum is inclusive") << null << t0 << t0 << true;
    QTest::newRow("later than maximum") << null << t0 << after << false;
    QTest::newRow("null against a maximum") << null << t0 << null << false;
    QTest::newRow("equal bounds") << t0 << t0 << t0 << true;
    QTest::newRow("inside both") << before << after << t0 << true;
    QTest::newRow("same instant in another zone") << t0 << t0 << t0.toOffsetFromUtc(7200) << true;
    QTest::newRow("inverted bounds accept nothing") << after << before << t0 << false;
}

void tst_FileQuery::rangeTest()
{
    QFETCH(QDateTime, minimum);
    QFETCH(QDateTime, maximum);
    QFETCH(QDateTime, time);
    QFETCH(bool, inRange);

    for (const RangeAccess &range : s_ranges) {
        FileQuery query;
        (query.*range.setMin)(minimum);
        (query.*range.setMax)(maximum);
        QCOMPARE((query.*range.inRange)(time), inRange);
    }
}

void tst_FileQuery::fileTypes()
{
    FileQuery query;
    QCOMPARE(query.GetFileTypeAt(0), FileTypeUnknown);
    query.AddFileType(FileTypeImage);
    query.AddFileType(FileTypeImage);
    query.AddFileType(FileTypePck);
    QCOMPARE(query.GetFileTypeListSize(), 3);
    QVERIFY(query.IsFileTypeListed(FileTypePck));
    QVERIFY(!query.IsFileTypeListed(FileTypeRad));
    QCOMPARE(query.GetFileTypeAt(2), FileTypePck);
    for (const int index : {3, -1})
        QCOMPARE(query.GetFileTypeAt(index), FileTypeUnknown);
}

void tst_FileQuery::resetAndCopy()
{
    FileQuery query;
    QVERIFY(!query.GetCommentSearchText().isNull());
    for (const RangeAccess &range : s_ranges)
        (query.*range.setMax)(QDateTime::currentDateTimeUtc());
    query.AddFileType(FileTypeRad);
    query.SetLocationState(LocationCentral);
    query.SetLockState(LockWrite);
    query.SetCommentSearchText(QStringLiteral("x"));
    query.SetReferencingApplication(QStringLiteral("x"));

    // Copies own their data: resetting the original leaves them as they were.
    FileQuery copy(query);
    FileQuery assigned;
    assigned = query;
    query.Reset();
    for (const FileQuery *q : {&copy, &assigned}) {
        QCOMPARE(q->GetFileTypeAt(0), FileTypeRad);
        QCOMPARE(q->GetLockState(), LockWrite);
        QCOMPARE(q->GetReferencingApplication(), QStringLiteral("x"));
        QVERIFY(!q->IsLifeCycleInRange(QDateTime()));
    }

    for (const RangeAccess &range : s_ranges)
        QVERIFY((query.*range.inRange)(QDateTime())); // open again
    QCOMPARE(query.GetFileTypeListSize(), 0);
    QCOMPARE(query.GetLocationState(), LocationUndefined);
    QCOMPARE(query.GetLockState(), LockUndefined);
    for (const QString &text : {query.GetCommentSearchText(), query.GetReferencingApplication()}) {
        QVERIFY(text.isEmpty());
        QVERIFY(!text.isNull());
    }
}

void tst_FileQuery::dateTimeFromString_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QDateTime>("expected"); // invalid: none fits

    const QDate date(2020, 1, 2);
    QTest::newRow("blank with milliseconds")
        << QStringLiteral("2020-01-02 03:04:05.678") << QDateTime(date, QTime(3, 4, 5, 678));
    QTest::newRow("T with milliseconds") << QStringLiteral("2020-01-02T03:04:05.678")
                                         << QDateTime(date, QTime(3, 4, 5, 678));
    QTest::newRow("blank") << QStringLiteral("2020-01-02 03:04:05") << QDateTime(date, QTime(3, 4, 5));
    QTest::newRow("T") << QStringLiteral("2020-01-02T03:04:05") << QDateTime(date, QTime(3, 4, 5));
    QTest::newRow("no seconds") << QStringLiteral("2020-01-02 03:04") << QDateTime();
    QTest::newRow("impossible date") << QStringLiteral("2020-02-30 03:04:05") << QDateTime();
    QTest::newRow("empty") << QString() << QDateTime();
}

void tst_FileQuery::dateTimeFromString()
{
    QFETCH(QString, text);
    QFETCH(QDateTime, expected);

    QCOMPARE(FileQuery::getValidDateTimeFromString(text), expected); // invalid ones compare equal
}

QTEST_GUILESS_MAIN(tst_FileQuery)
#include "tst_filequery.moc"
