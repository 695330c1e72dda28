// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "settings_p.h"
#include "temporarysettings.h"

#include <QTest>

using Kavro::Settings;

class tst_Settings : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void defaultFilePath();
    void values_data();
    void values();
    void sections();
};

void tst_Settings::defaultFilePath()
{
    const QByteArray previousConfig = qgetenv("KAVRO_CONFIG");
    const QByteArray previousHome = qgetenv("XDG_CONFIG_HOME");
    qputenv("XDG_CONFIG_HOME", "/tmp/xdg-home");
    qputenv("KAVRO_CONFIG", "/etc/site/kavro.ini");
    const QString named = Settings::defaultFilePath();
    qunsetenv("KAVRO_CONFIG");
    const QString underConfigHome = Settings::defaultFilePath();
    qputenv("KAVRO_CONFIG", previousConfig);
    qputenv("XDG_CONFIG_HOME", previousHome);

    QCOMPARE(named, QStringLiteral("/etc/site/kavro.ini"));
    QCOMPARE(underConfigHome, QStringLiteral("/tmp/xdg-home/kavro/kavro.ini"));
}

void tst_Settings::values_data()
{
    QTest::addColumn<QByteArray>("value"); // empty: the key is absent
    QTest::addColumn<QString>("expectedString");
    QTest::addColumn<int>("expectedInt");
    QTest::addColumn<bool>("expectedBool");

    // Defaults used below: "fallback", -7 and true.
    QTest::newRow("absent") << QByteArray() << QStringLiteral("fallback") << -7 << true;
    QTest::newRow("leading zero is not octal") << QByteArray("010") << QStringLiteral("010") << 10 << true;
    QTest::newRow("not a number") << QByteArray("abc") << QStringLiteral("abc") << -7 << true;
    QTest::newRow("false") << QByteArray("false") << QStringLiteral("false") << -7 << false;
    QTest::newRow("zero is false") << QByteArray("0") << QStringLiteral("0") << 0 << false;
}

void tst_Settings::values()
{
    QFETCH(QByteArray, value);
    QFETCH(QString, expectedString);
    QFETCH(int, expectedInt);
    QFETCH(bool, expectedBool);

    const QByteArray line = value.isEmpty() ? QByteArray() : QByteArray("Key=") + value + '\n';
    const TemporarySettings file("[KAVRO]\n" + line + "[ADMIN]\nKey=elsewhere\n");
    const Settings settings(Settings::kavroSection(), file.path());

    QCOMPARE(settings.stringValue(QStringLiteral("Key"), QStringLiteral("fallback")), expectedString);
    QCOMPARE(settings.intValue(QStringLiteral("Key"), -7), expectedInt);
    QCOMPARE(settings.boolValue(QStringLiteral("Key"), true), expectedBool);
}

void tst_Settings::sections()
{
    const TemporarySettings file("[KAVRO]\nServerHost=\n[ADMIN]\nSirelDataDir=/data\n");
    const Settings admin(Settings::adminSection(), file.path());
    {
        Settings kavro(Settings::kavroSection(), file.path());
        QVERIFY(kavro.contains(QStringLiteral("ServerHost"))); // present though empty
        QVERIFY(!kavro.contains(QStringLiteral("SirelDataDir")));
        kavro.setIntValue(QStringLiteral("CompressionRate"), -1);
    }
    QVERIFY(admin.contains(QStringLiteral("SirelDataDir")));
    QVERIFY(!admin.contains(QStringLiteral("CompressionRate")));
    const Settings reread(Settings::kavroSection(), file.path());
    QCOMPARE(reread.intValue(QStringLiteral("CompressionRate"), 0), -1);
    QVERIFY(reread.contains(QStringLiteral("ServerHost")));
}

QTEST_GUILESS_MAIN(tst_Settings)
#include "tst_settings.moc"
