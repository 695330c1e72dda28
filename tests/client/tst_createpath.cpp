// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include <kavro/createpath.h>

#include <QDir>
#include <QTest>
#include <QTimeZone>

using Kavro::CreatePath;

class tst_CreatePath : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void layout_data();
    void layout();
    void currentUtcHour();
};

void tst_CreatePath::layout_data()
{
    QTest::addColumn<QString>("base");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QDateTime>("when");
    QTest::addColumn<QString>("expected"); // with '/' separators; "./" stands for the current directory

    const QDateTime may3 = QDateTime(QDate(2021, 5, 3), QTime(14, 27, 59), Qt::UTC);
    const QString layout = QStringLiteral("/store/2021/05/03/14/G/N/");

    QTest::newRow("plain") << QStringLiteral("/store") << QStringLiteral("N") << may3 << layout;
    QTest::newRow("doubled and dotted parts")
        << QStringLiteral("/store//x/./../") << QStringLiteral("N") << may3 << layout;
    QTest::newRow("empty name ends at the guid")
        << QStringLiteral("/store") << QString() << may3 << QStringLiteral("/store/2021/05/03/14/G/");
    QTest::newRow("relative base") << QStringLiteral("rel/store") << QStringLiteral("N") << may3
                                   << QStringLiteral("./rel/store/2021/05/03/14/G/N/");
    QTest::newRow("two digits everywhere")
        << QStringLiteral("/store") << QStringLiteral("N") << QDateTime(QDate(987, 1, 2), QTime(0, 5), Qt::UTC)
        << QStringLiteral("/store/0987/01/02/00/G/N/");
    QTest::newRow("hour of the time's own zone") << QStringLiteral("/store") << QStringLiteral("N")
                                                 << QDateTime(QDate(2021, 5, 3), QTime(23, 30), QTimeZone(2 * 3600))
                                                 << QStringLiteral("/store/2021/05/03/23/G/N/");
    // Successive substitution: markers inside the base are filled by the later parts.
    QTest::newRow("marker %3 in base") << QStringLiteral("/s%3") << QStringLiteral("N") << may3
                                       << QStringLiteral("/sG/2021/05/03/14/G/N/");
    QTest::newRow("dot-dot name is cleaned away")
        << QStringLiteral("/store") << QStringLiteral("..") << may3 << QStringLiteral("/store/2021/05/03/14/");
}

void tst_CreatePath::layout()
{
    QFETCH(QString, base);
    QFETCH(QString, name);
    QFETCH(QDateTime, when);
    QFETCH(QString, expected);

    if (expected.startsWith(QLatin1String("./")))
        expected.replace(0, 1, QDir::currentPath());
    QCOMPARE(CreatePath(base, QStringLiteral("G"), name, when), QDir::toNativeSeparators(expected));
}

void tst_CreatePath::currentUtcHour()
{
    const QString format = QStringLiteral("yyyy/MM/dd/hh");
    const QString before = QDateTime::currentDateTimeUtc().toString(format);
    const QString path = CreatePath(QStringLiteral("/store"), QStringLiteral("G"), QStringLiteral("N"));
    const QString after = QDateTime::currentDateTimeUtc().toString(format);

    const auto expected = [](const QString &hour) {
        return QDir::toNativeSeparators(QStringLiteral("/store/") + hour + QStringLiteral("/G/N/"));
    };
    QVERIFY2(path == expected(before) || path == expected(after), qPrintable(path));
}

QTEST_GUILESS_MAIN(tst_CreatePath)
#include "tst_createpath.moc"
