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
};

void tst_KavroUrl::parse_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("isKavro");
    QTest::addColumn<bool>("hasFileId");
    QTest::addColumn<QString>("guid");
    QTest::addColumn<uint>("fileId");
    QTest::addColumn<QString>("printed"); // empty: the text itself
    QTest::addColumn<bool>("built"); // the text is what the builders print for the guid and file id

    const QString G = QStringLiteral("G");
    QTest::newRow("group and file") << QStringLiteral("kavro:///G/5") << true << true << G << 5u << QString() << true;
    QTest::newRow("group only") << QStringLiteral("kavro:///G") << true << false << G << 0u << QString() << true;
    QTest::newRow("empty parts dropped") << QStringLiteral("kavro://///G//5/") << true << true << G << 5u << QString()
                                         << false;
    QTest::newRow("three parts have no file id")
        << QStringLiteral("kavro:///G/5/7") << true << false << G << 5u << QString() << false;
    QTest::newRow("file id not a number")
        << QStringLiteral("kavro:///G/five") << true << true << G << 0u << QString() << false;
    QTest::newRow("file id overflows") << QStringLiteral("kavro:///G/4294967296") << true << true << G << 0u
                                       << QString() << false;
    QTest::newRow("largest file id") << QStringLiteral("kavro:///3f2504e0-4f89-11d3-9a0c-0305e82c3301/4294967295")
                                     << true << true << QStringLiteral("3f2504e0-4f89-11d3-9a0c-0305e82c3301")
                                     << 4294967295u << QString() << true;
    QTest::newRow("reserved characters stay in the path")
        << QStringLiteral("kavro:///a%3Fb%23c/2") << true << true << QStringLiteral("a?b#c") << 2u << QString() << true;
    // Schemes are case-insensitive: the parser lowers them.
    QTest::newRow("upper-case scheme") << QStringLiteral("KAVRO:///G/5") << true << true << G << 5u
                                       << QStringLiteral("kavro:///G/5") << false;
    QTest::newRow("slashes only") << QStringLiteral("kavro:///") << false << false << QString() << 0u << QString()
                                  << false;
    QTest::newRow("other scheme still has parts")
        << QStringLiteral("http://host/G/5") << false << true << G << 5u << QString() << false;
    // Local files: a drive letter after two slashes would be read as the host.
    QTest::newRow("drive after two slashes repaired")
        << QStringLiteral("file://C:/data/a.txt") << false << false << QStringLiteral("C:") << 0u
        << QStringLiteral("file:///C:/data/a.txt") << false;
    QTest::newRow("every occurrence repaired")
        << QStringLiteral("file://d:/a?next=file://D:/b") << false << true << QStringLiteral("d:") << 0u
        << QStringLiteral("file:///d:/a?next=file:///D:/b") << false;
    QTest::newRow("three slashes unchanged") << QStringLiteral("file:///C:/data/a.txt") << false << false
                                             << QStringLiteral("C:") << 0u << QString() << false;
    QTest::newRow("host without drive unchanged") << QStringLiteral("file://server/share/a.txt") << false << true
                                                  << QStringLiteral("share") << 0u << QString() << false;
    QTest::newRow("repair only at the start") << QStringLiteral("x-file://C:/a") << false << false
                                              << QStringLiteral("a") << 0u << QStringLiteral("x-file://c/a") << false;
}

void tst_KavroUrl::parse()
{
    QFETCH(QString, text);
    QFETCH(bool, isKavro);
    QFETCH(bool, hasFileId);
    QFETCH(QString, guid);
    QFETCH(uint, fileId);
    QFETCH(QString, printed);
    QFETCH(bool, built);

    const KavroUrl url(text);
    QCOMPARE(url.isKavroUrl(), isKavro);
    QCOMPARE(url.hasKavroFileId(), hasFileId);
    QCOMPARE(url.toKavroGuid(), guid);
    QCOMPARE(url.toKavroFileId(), fileId);
    QCOMPARE(url.isLocalFile(), text.startsWith(QLatin1String("file:")));
    QCOMPARE(url.toString(), printed.isEmpty() ? text : printed);
    if (built)
        QCOMPARE(KavroUrl(fileId ? KavroUrl::fromKavroIds(guid, fileId) : KavroUrl::fromKavroGuid(guid)).toString(),
                 text);
}

QTEST_GUILESS_MAIN(tst_KavroUrl)
#include "tst_kavrourl.moc"
