// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include <kavro/locationstatestring.h>

#include <QTest>

using namespace Kavro;

class tst_LocationStateString : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void text();
};

void tst_LocationStateString::text()
{
    QCOMPARE(LocationStateString::GetText(LocationRemote), QStringLiteral("Remote location"));
    QCOMPARE(LocationStateString::GetText(LocationUnknownFileGroup), QStringLiteral("Unknown file group"));
    for (const int state : {14, -1})
        QCOMPARE(LocationStateString::GetText(static_cast<LocationState>(state)),
                 QStringLiteral("Invalid location state"));
}

QTEST_GUILESS_MAIN(tst_LocationStateString)
#include "tst_locationstatestring.moc"
