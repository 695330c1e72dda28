// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "archivefixture.h"
#include "tracecapture.h"

#include <kavro/clienttreemodel.h>
#include <kavro/filegroupdata.h>
#include <kavro/filegrouptreeitem.h>
#include <kavro/filequery.h>

#include <QAbstractItemModelTester>
#include <QSignalSpy>
#include <QTest>
#include <QTreeView>

using namespace Kavro;

class tst_ClientTreeModel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void tree();
    void filesOnDemand_data();
    void filesOnDemand();
    void failedFetchLeavesTheGroup();
    void emptyTableWarns();

private:
    QModelIndex groupIndex(const QString &guid) const;

    ArchiveFixture m_archive;
    QString m_twoFiles;
    QString m_noFiles;
    std::unique_ptr<ClientTreeModel> m_model;
    std::unique_ptr<QAbstractItemModelTester> m_tester;
};

void tst_ClientTreeModel::initTestCase()
{
    QVERIFY(m_archive.start());
    m_twoFiles = m_archive.addGroup(QStringLiteral("drawings"), FileTypeTechnicalParameters,
                                    {QStringLiteral("plan.txt"), QStringLiteral("section.txt")});
    m_noFiles = m_archive.addGroup(QStringLiteral("empty"), FileTypeTechnicalParameters, {});
    QVERIFY(!m_twoFiles.isEmpty() && !m_noFiles.isEmpty());
}

void tst_ClientTreeModel::init()
{
    m_model = std::make_unique<ClientTreeModel>(m_archive.client());
    m_tester = std::make_unique<QAbstractItemModelTester>(m_model.get(),
                                                          QAbstractItemModelTester::FailureReportingMode::QtTest);
    QStringList headers;
    FileGroupData::GetHeaders(headers);
    QVector<QStringList> rows;
    for (const FileGroupData &group : m_archive.client()->QueryFileGroups(FileQuery())) {
        QStringList row;
        group.ToStringList(row);
        rows.append(row);
    }
    m_model->SetupModelData(headers, rows);
}

QModelIndex tst_ClientTreeModel::groupIndex(const QString &guid) const
{
    for (int row = 0; row < m_model->rowCount(); ++row) {
        if (m_model->GetItem(m_model->index(row, 0))->GetGuid() == guid)
            return m_model->index(row, 0);
    }
    return QModelIndex();
}

void tst_ClientTreeModel::tree()
{
    QCOMPARE(m_model->rowCount(), 2);
    QCOMPARE(m_model->columnCount(), 17);
    QCOMPARE(m_model->headerData(16, Qt::Horizontal).toString(), QStringLiteral("Location"));
    const QModelIndex drawings = groupIndex(m_twoFiles);
    QCOMPARE(drawings.data().toString(), QStringLiteral("drawings"));
    QCOMPARE(drawings.siblingAtColumn(16).data().toString(), QStringLiteral("kavro:///") + m_twoFiles);
    QVERIFY(m_model->hasChildren(drawings));
    QVERIFY(m_model->canFetchMore(drawings));
    QCOMPARE(m_model->rowCount(drawings), 0);
}

void tst_ClientTreeModel::filesOnDemand_data()
{
    QTest::addColumn<bool>("empty");
    QTest::newRow("two files") << false;
    QTest::newRow("no files: the expander goes") << true;
}

void tst_ClientTreeModel::filesOnDemand()
{
    QFETCH(bool, empty);
    const QString guid = empty ? m_noFiles : m_twoFiles;
    const QModelIndex group = groupIndex(guid);
    QTreeView view;
    view.setModel(m_model.get());
    view.expand(group);
    QTRY_VERIFY(!m_model->canFetchMore(group));
    QCOMPARE(m_model->hasChildren(group), !empty);
    if (empty) {
        QCOMPARE(m_model->rowCount(group), 0);
        return;
    }
    QCOMPARE(m_model->rowCount(group), 2);
    QCOMPARE(m_model->index(1, 0, group).data().toString(), QStringLiteral("section.txt"));
    QCOMPARE(m_model->GetItem(m_model->index(1, 0, group))->GetFileId(), 2u);
    QCOMPARE(m_model->index(1, 16, group).data().toString(), QStringLiteral("kavro:///%1/2").arg(guid));
    QVERIFY(!m_model->hasChildren(m_model->index(1, 0, group)));
}

void tst_ClientTreeModel::failedFetchLeavesTheGroup()
{
    const TraceCapture trace;
    QSignalSpy failed(m_model.get(), &ClientTreeModel::fileListFailed);
    m_model->SetupModelData({QStringLiteral("Name")}, {{QStringLiteral("gone"), QStringLiteral("no-such-group")}});
    const QModelIndex gone = m_model->index(0, 0);
    m_model->fetchMore(gone);
    QTRY_COMPARE(failed.count(), 1);
    QCOMPARE(failed.at(0).at(1).toInt(), int(ErrorGuidNotFound));
    QVERIFY(trace.texts().contains(QStringLiteral("ClientTreeModel::fetchMore: KavroError caught: 2")));
    QVERIFY(m_model->hasChildren(gone));
    QVERIFY(m_model->canFetchMore(gone));
}

void tst_ClientTreeModel::emptyTableWarns()
{
    const TraceCapture trace;
    m_model->SetupModelData(QStringList(), QVector<QStringList>());
    QCOMPARE(trace.texts(),
             (QStringList{QStringLiteral("ClientTreeModel::SetupModelData: Invalid number of columns (%!)"),
                          QStringLiteral("ClientTreeModel::SetupModelData: Invalid number of rows (%!)")}));
    QCOMPARE(m_model->rowCount(), 0);
    QCOMPARE(m_model->columnCount(), 1);
}

QTEST_MAIN(tst_ClientTreeModel)
#include "tst_clienttreemodel.moc"
