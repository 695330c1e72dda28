// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include <kavro/kavrotypes.h>

#include <QTest>

using namespace Kavro;

class tst_KavroTypes : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void lockStateText_data();
    void lockStateText();
};

void tst_KavroTypes::lockStateText_data()
{
    QTest::addColumn<int>("state");
    QTest::addColumn<QString>("text");

    QTest::newRow("undefined") << 0 << QStringLiteral("Undefined");
    QTest::newRow("write") << 3 << QStringLiteral("Write");
    QTest::newRow("past the end") << 4 << QStringLiteral("Invalid lock state");
    QTest::newRow("negative") << -1 << QStringLiteral("Invalid lock state");
}

void tst_KavroTypes::lockStateText()
{
    QFETCH(int, state);
    QFETCH(QString, text);

    QCOMPARE(GetLockStateText(static_cast<LockState>(state)), text);
}

QTEST_GUILESS_MAIN(tst_KavroTypes)
#include "tst_kavrotypes.moc"
