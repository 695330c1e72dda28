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
    void everyCode();
};

void tst_KavroErrorString::text_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("text");

    QTest::newRow("no error") << 0 << QStringLiteral("No error");
    QTest::newRow("missing tag ends in colon and blank") << 58 << QStringLiteral("Soap Message missing tag: ");
    QTest::newRow("odd spelling kept")
        << 63 << QStringLiteral("The file group has been found, but is not yet ready to be transfered . ");
    QTest::newRow("last code") << 68 << QStringLiteral("Server is busy. Please try again later.");
    QTest::newRow("first unknown code") << 69 << QStringLiteral("Invalid error code");
    QTest::newRow("negative") << -1 << QStringLiteral("Invalid error code");
    QTest::newRow("largest") << std::numeric_limits<qint32>::max() << QStringLiteral("Invalid error code");
}

void tst_KavroErrorString::text()
{
    QFETCH(int, code);
    QFETCH(QString, text);

    QCOMPARE(KavroErrorString::Get(static_cast<KavroError>(code)), text);
}

void tst_KavroErrorString::everyCode()
{
    // Codes 58 to 65 end in one blank, so callers can append detail; no other text has outer blanks.
    // Only the two delete-file codes share a text.
    QSet<QString> texts;
    for (int code = NoError; code <= ErrorServerBusy; ++code) {
        const QString text = KavroErrorString::Get(static_cast<KavroError>(code));
        const bool blank = code >= ErrorSoapMissingTag && code <= ErrorNoCopyRequested;
        QCOMPARE(text, text.trimmed() + QLatin1String(blank ? " " : ""));
        texts.insert(text);
    }
    QCOMPARE(KavroErrorString::Get(ErrorRemoveFile), KavroErrorString::Get(ErrorDeleteFile));
    QCOMPARE(texts.size(), int(ErrorServerBusy));
}

QTEST_GUILESS_MAIN(tst_KavroErrorString)
#include "tst_kavroerrorstring.moc"
