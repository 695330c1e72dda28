// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include <kavro/locationstatestring.h>

#include <QTest>

using namespace Kavro;

class tst_LocationStateString : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void text_data();
    void text();
};

void tst_LocationStateString::text_data()
{
    QTest::addColumn<int>("state");
    QTest::addColumn<QString>("text");

    QTest::newRow("undefined") << 0 << QStringLiteral("Undefined");
    QTest::newRow("remote") << 5 << QStringLiteral("Remote location");
    QTest::newRow("last") << 13 << QStringLiteral("Unknown file group");
    QTest::newRow("past the end") << 14 << QStringLiteral("Invalid location state");
    QTest::newRow("negative") << -1 << QStringLiteral("Invalid location state");
}

void tst_LocationStateString::text()
{
    QFETCH(int, state);
    QFETCH(QString, text);

    QCOMPARE(LocationStateString::GetText(static_cast<LocationState>(state)), text);
}

QTEST_GUILESS_MAIN(tst_LocationStateString)
#include "tst_locationstatestring.moc"
