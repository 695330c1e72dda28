// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include <kavro/clienttreemodel.h>
#include <kavro/filegroupsortmodel.h>

#include "translations_p.h"

#include <QScopeGuard>
#include <QTest>

using namespace Kavro;

class tst_FileGroupSortModel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void sortOrder_data();
    void sortOrder();
    void filterKeepsTheFilesOfAGroup();
};

void tst_FileGroupSortModel::sortOrder_data()
{
    QTest::addColumn<QLocale::Language>("language");
    QTest::addColumn<QString>("header");
    QTest::addColumn<QStringList>("values");
    QTest::addColumn<QStringList>("ascending");

    const QStringList numbers{QStringLiteral("10"), QStringLiteral("9"), QStringLiteral("100")};
    QTest::newRow("count column sorts as numbers")
        << QLocale::English << QStringLiteral("Reference count") << numbers
        << QStringList{QStringLiteral("9"), QStringLiteral("10"), QStringLiteral("100")};
    QTest::newRow("storage column, any case, sorts as numbers")
        << QLocale::English << QStringLiteral("RESERVED STORAGE")
        << QStringList{QStringLiteral("18446744073"), QStringLiteral("5")}
        << QStringList{QStringLiteral("5"), QStringLiteral("18446744073")};
    QTest::newRow("text column sorts as text")
        << QLocale::English << QStringLiteral("Comment") << numbers
        << QStringList{QStringLiteral("10"), QStringLiteral("100"), QStringLiteral("9")};
    QTest::newRow("German count column sorts as numbers")
        << QLocale::German << QStringLiteral("Anzahl Referenzen") << numbers
        << QStringList{QStringLiteral("9"), QStringLiteral("10"), QStringLiteral("100")};
}

void tst_FileGroupSortModel::sortOrder()
{
    QFETCH(QLocale::Language, language);
    QFETCH(QString, header);
    QFETCH(QStringList, values);
    QFETCH(QStringList, ascending);
    QVERIFY(language == QLocale::English || Translations::install(QLocale(language)));
    const auto english = qScopeGuard([] {
        Translations::remove();
    });

    ClientTreeModel model(nullptr);
    QVector<QStringList> rows;
    for (const QString &value : values)
        rows.append({value, QStringLiteral("guid-") + value});
    model.SetupModelData({header}, rows);
    FileGroupSortModel sorted;
    sorted.setSourceModel(&model);
    sorted.sort(0);
    QStringList order;
    for (int row = 0; row < sorted.rowCount(); ++row)
        order.append(sorted.index(row, 0).data().toString());
    QCOMPARE(order, ascending);
}

void tst_FileGroupSortModel::filterKeepsTheFilesOfAGroup()
{
    ClientTreeModel model(nullptr);
    model.SetupModelData(
        {QStringLiteral("Name")},
        {{QStringLiteral("plans"), QStringLiteral("g1")}, {QStringLiteral("notes"), QStringLiteral("g2")}});
    FileGroupSortModel filtered;
    filtered.setSourceModel(&model);
    filtered.setFilterFixedString(QStringLiteral("PLAN"));
    QCOMPARE(filtered.rowCount(), 1);
    QCOMPARE(filtered.index(0, 0).data().toString(), QStringLiteral("plans"));
    // The group's Location column holds its URL, which the filter searches too.
    filtered.setFilterFixedString(QStringLiteral("kavro:///g2"));
    QCOMPARE(filtered.index(0, 0).data().toString(), QStringLiteral("notes"));
}

QTEST_MAIN(tst_FileGroupSortModel)
#include "tst_filegroupsortmodel.moc"
