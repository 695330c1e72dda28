// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "translations_p.h"

#include <kavro/filetypemanager.h>
#include <kavro/kavroerrorstring.h>
#include <kavro/locationstatestring.h>

#include <QTest>

#include <functional>

using namespace Kavro;

class tst_Translations : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { Translations::remove(); } // also whatever the system locale installed at start-up
    void texts_data();
    void texts();
    void installAndRemove();
};

using TextFunction = std::function<QString()>;
Q_DECLARE_METATYPE(TextFunction)

void tst_Translations::texts_data()
{
    QTest::addColumn<TextFunction>("text");
    QTest::addColumn<QString>("english");
    QTest::addColumn<QString>("german");

    QTest::newRow("error") << TextFunction([] {
        return KavroErrorString::Get(ErrorNotConnected);
    }) << QStringLiteral("Client is not connected to server")
                           << QStringLiteral("Client ist nicht mit dem Server verbunden");
    QTest::newRow("error with trailing blank") << TextFunction([] {
        return KavroErrorString::Get(ErrorSoapMissingTag);
    }) << QStringLiteral("Soap Message missing tag: ")
                                               << QStringLiteral("SOAP-Nachricht ohne Element: ");
    QTest::newRow("invalid error") << TextFunction([] {
        return KavroErrorString::Get(static_cast<KavroError>(69));
    }) << QStringLiteral("Invalid error code")
                                   << QStringLiteral("Ungültiger Fehlercode");
    QTest::newRow("file type") << TextFunction([] {
        return FileTypeManager::GetText(FileTypePck);
    }) << QStringLiteral("PCK File")
                               << QStringLiteral("PCK-Datei");
    QTest::newRow("location state") << TextFunction([] {
        return LocationStateString::GetText(LocationBackupCopy);
    }) << QStringLiteral("Backup copy")
                                    << QStringLiteral("Sicherungskopie");
    QTest::newRow("lock state") << TextFunction([] {
        return GetLockStateText(LockWrite);
    }) << QStringLiteral("Write")
                                << QStringLiteral("Schreiben");
}

void tst_Translations::texts()
{
    QFETCH(TextFunction, text);
    QFETCH(QString, english);
    QFETCH(QString, german);

    QCOMPARE(text(), english);
    QVERIFY(Translations::install(QLocale(QLocale::German, QLocale::Germany)));
    QCOMPARE(text(), german);
    Translations::remove();
    QCOMPARE(text(), english);
}

void tst_Translations::installAndRemove()
{
    QVERIFY(!Translations::install(QLocale(QLocale::Japanese, QLocale::Japan)));
    QCOMPARE(KavroErrorString::Get(NoError), QStringLiteral("No error"));
    // Installed twice, removed once: English again.
    QVERIFY(Translations::install(QLocale(QLocale::German, QLocale::Austria)));
    QVERIFY(Translations::install(QLocale(QLocale::German, QLocale::Germany)));
    QCOMPARE(KavroErrorString::Get(NoError), QStringLiteral("Kein Fehler"));
    Translations::remove();
    QCOMPARE(KavroErrorString::Get(NoError), QStringLiteral("No error"));
}

QTEST_GUILESS_MAIN(tst_Translations)
#include "tst_translations.moc"
