// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include <kavro/kavrotypes.h>

#include <QTest>

using namespace Kavro;

class tst_KavroTypes : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void lockStateText();
};

void tst_KavroTypes::lockStateText()
{
    QCOMPARE(GetLockStateText(LockWrite), QStringLiteral("Write"));
    QCOMPARE(GetLockStateText(static_cast<LockState>(4)), QStringLiteral("Invalid lock state"));
    QCOMPARE(GetLockStateText(static_cast<LockState>(-1)), QStringLiteral("Invalid lock state"));
}

QTEST_GUILESS_MAIN(tst_KavroTypes)
#include "tst_kavrotypes.moc"
