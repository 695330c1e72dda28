// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include <kavro/kavroerrorstring.h>

#include <QSet>
#include <QTest>

#include <limits>

using namespace Kavro;

class tst_KavroErrorString : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void text_data();
    void text();
    void trailingBlanks();
    void sharedTextKeepsCodesDistinct();
};

void tst_KavroErrorString::text_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("text");

    QTest::newRow("no error") << 0 << QStringLiteral("No error");
    QTest::newRow("apostrophe") << 42 << QStringLiteral("The replied command code doesn't match the sent command");
    QTest::newRow("missing tag ends in colon and blank") << 58 << QStringLiteral("Soap Message missing tag: ");
    QTest::newRow("odd spelling kept")
        << 63 << QStringLiteral("The file group has been found, but is not yet ready to be transfered . ");
    QTest::newRow("last code") << 68 << QStringLiteral("Server is busy. Please try again later.");
    QTest::newRow("first unknown code") << 69 << QStringLiteral("Invalid error code");
    QTest::newRow("negative") << -1 << QStringLiteral("Invalid error code");
    QTest::newRow("largest") << std::numeric_limits<qint32>::max() << QStringLiteral("Invalid error code");
    QTest::newRow("smallest") << std::numeric_limits<qint32>::min() << QStringLiteral("Invalid error code");
}

void tst_KavroErrorString::text()
{
    QFETCH(int, code);
    QFETCH(QString, text);

    QCOMPARE(KavroErrorString::Get(static_cast<KavroError>(code)), text);
}

void tst_KavroErrorString::trailingBlanks()
{
    // Codes 58 to 65 end in exactly one blank, so callers can append detail; no other code does.
    for (int code = NoError; code <= ErrorServerBusy; ++code) {
        const QString text = KavroErrorString::Get(static_cast<KavroError>(code));
        const bool blankExpected = code >= ErrorSoapMissingTag && code <= ErrorNoCopyRequested;
        QVERIFY2(text.endsWith(QLatin1Char(' ')) == blankExpected, qPrintable(QString::number(code)));
        QVERIFY2(!text.endsWith(QLatin1String("  ")), qPrintable(QString::number(code)));
        QVERIFY2(!text.startsWith(QLatin1Char(' ')), qPrintable(QString::number(code)));
    }
}

void tst_KavroErrorString::sharedTextKeepsCodesDistinct()
{
    QCOMPARE(KavroErrorString::Get(ErrorDeleteFile), QStringLiteral("Failed to delete file"));
    QCOMPARE(KavroErrorString::Get(ErrorRemoveFile), QStringLiteral("Failed to delete file"));
    QVERIFY(int(ErrorDeleteFile) != int(ErrorRemoveFile));
    // No other two codes share a text.
    QSet<QString> texts;
    for (int code = NoError; code <= ErrorServerBusy; ++code)
        texts.insert(KavroErrorString::Get(static_cast<KavroError>(code)));
    QCOMPARE(texts.size(), int(ErrorServerBusy)); // 69 codes, one text shared by two
}

QTEST_GUILESS_MAIN(tst_KavroErrorString)
#include "tst_kavroerrorstring.moc"
