// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include <kavro/kavrourl.h>

#include <QTest>

using Kavro::KavroUrl;

class tst_KavroUrl : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void parse_data();
    void parse();
    void build_data();
    void build();
};

void tst_KavroUrl::parse_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("isKavro");
    QTest::addColumn<bool>("hasFileId");
    QTest::addColumn<QString>("guid");
    QTest::addColumn<uint>("fileId");
    QTest::addColumn<QString>("printed"); // empty: the text itself

    const QString G = QStringLiteral("G");
    QTest::newRow("group and file") << QStringLiteral("kavro:///G/5") << true << true << G << 5u << QString();
    QTest::newRow("group only") << QStringLiteral("kavro:///G") << true << false << G << 0u << QString();
    QTest::newRow("empty parts dropped") << QStringLiteral("kavro://///G//5/") << true << true << G << 5u << QString();
    QTest::newRow("three parts have no file id")
        << QStringLiteral("kavro:///G/5/7") << true << false << G << 5u << QString();
    QTest::newRow("file id not a number") << QStringLiteral("kavro:///G/five") << true << true << G << 0u << QString();
    QTest::newRow("file id overflows") << QStringLiteral("kavro:///G/4294967296") << true << true << G << 0u
                                       << QString();
    QTest::newRow("largest file id") << QStringLiteral("kavro:///G/4294967295") << true << true << G << 4294967295u
                                     << QString();
    // Schemes are case-insensitive: the parser lowers them.
    QTest::newRow("upper-case scheme") << QStringLiteral("KAVRO:///G/5") << true << true << G << 5u
                                       << QStringLiteral("kavro:///G/5");
    QTest::newRow("slashes only") << QStringLiteral("kavro:///") << false << false << QString() << 0u << QString();
    QTest::newRow("other scheme still has parts")
        << QStringLiteral("http://host/G/5") << false << true << G << 5u << QString();
    // Local files: a drive letter after two slashes would be read as the host.
    QTest::newRow("drive after two slashes repaired")
        << QStringLiteral("file://C:/data/a.txt") << false << false << QStringLiteral("C:") << 0u
        << QStringLiteral("file:///C:/data/a.txt");
    QTest::newRow("every occurrence repaired")
        << QStringLiteral("file://d:/a?next=file://D:/b") << false << true << QStringLiteral("d:") << 0u
        << QStringLiteral("file:///d:/a?next=file:///D:/b");
    QTest::newRow("three slashes unchanged")
        << QStringLiteral("file:///C:/data/a.txt") << false << false << QStringLiteral("C:") << 0u << QString();
    QTest::newRow("host without drive unchanged")
        << QStringLiteral("file://server/share/a.txt") << false << true << QStringLiteral("share") << 0u << QString();
    QTest::newRow("repair only at the start") << QStringLiteral("x-file://C:/a") << false << false
                                              << QStringLiteral("a") << 0u << QStringLiteral("x-file://c/a");
}

void tst_KavroUrl::parse()
{
    QFETCH(QString, text);
    QFETCH(bool, isKavro);
    QFETCH(bool, hasFileId);
    QFETCH(QString, guid);
    QFETCH(uint, fileId);
    QFETCH(QString, printed);

    const KavroUrl url(text);
    QCOMPARE(url.isKavroUrl(), isKavro);
    QCOMPARE(url.hasKavroFileId(), hasFileId);
    QCOMPARE(url.toKavroGuid(), guid);
    QCOMPARE(url.toKavroFileId(), fileId);
    QCOMPARE(url.isLocalFile(), text.startsWith(QLatin1String("file:")));
    QCOMPARE(url.toString(), printed.isEmpty() ? text : printed);
}

void tst_KavroUrl::build_data()
{
    QTest::addColumn<QString>("guid");
    QTest::addColumn<uint>("fileId"); // 0: the group's URL
    QTest::addColumn<QString>("printed");

    QTest::newRow("group") << QStringLiteral("G") << 0u << QStringLiteral("kavro:///G");
    QTest::newRow("guid") << QStringLiteral("3f2504e0-4f89-11d3-9a0c-0305e82c3301") << 4294967295u
                          << QStringLiteral("kavro:///3f2504e0-4f89-11d3-9a0c-0305e82c3301/4294967295");
    QTest::newRow("reserved characters stay in the path")
        << QStringLiteral("a?b#c") << 2u << QStringLiteral("kavro:///a%3Fb%23c/2");
}

void tst_KavroUrl::build()
{
    QFETCH(QString, guid);
    QFETCH(uint, fileId);
    QFETCH(QString, printed);

    const KavroUrl url(fileId ? KavroUrl::fromKavroIds(guid, fileId) : KavroUrl::fromKavroGuid(guid));
    QCOMPARE(url.toString(), printed);
    QVERIFY(url.isKavroUrl());
    QCOMPARE(url.hasKavroFileId(), fileId != 0);
    QCOMPARE(url.toKavroGuid(), guid);
    QCOMPARE(url.toKavroFileId(), fileId);
    // The printed form reads back to the same parts.
    const KavroUrl reread(url.toString());
    QCOMPARE(reread.toKavroGuid(), guid);
    QCOMPARE(reread.toKavroFileId(), fileId);
}

QTEST_GUILESS_MAIN(tst_KavroUrl)
#include "tst_kavrourl.moc"
