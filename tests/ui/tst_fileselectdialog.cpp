// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "archivefixture.h"

#include <kavro/filequery.h>
#include <kavro/fileselectdialog.h>
#include <kavro/kavrofile.h>
#include <kavro/kavrofiledialog.h>

#include <QApplication>
#include <QPushButton>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>
#include <QTreeView>

#include <functional>

using namespace Kavro;

class tst_FileSelectDialog : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void choosesAFile_data();
    void choosesAFile();
    void choosers_data();
    void choosers();

private:
    //! Shows the groups found and picks file 2 of "drawings" with the keyboard.
    static void pickSecondDrawing(FileSelectDialog *dialog);

    ArchiveFixture m_archive;
    QString m_drawings;
};

void tst_FileSelectDialog::initTestCase()
{
    QVERIFY(m_archive.start());
    m_drawings = m_archive.addGroup(QStringLiteral("drawings"), FileTypeTechnicalParameters,
                                    {QStringLiteral("plan.txt"), QStringLiteral("section.txt")});
    QVERIFY(!m_drawings.isEmpty());
    QVERIFY(!m_archive.addGroup(QStringLiteral("notes"), FileTypePck, {QStringLiteral("readme.txt")}).isEmpty());
}

void tst_FileSelectDialog::pickSecondDrawing(FileSelectDialog *dialog)
{
    auto *tree = dialog->findChild<QTreeView *>(QStringLiteral("groupTree"));
    QTRY_COMPARE(tree->model()->rowCount(), 1);
    tree->setFocus();
    QTest::keyClick(tree, Qt::Key_Home);
    QTest::keyClick(tree, Qt::Key_Return); // opens the group
    QTRY_COMPARE(tree->model()->rowCount(tree->currentIndex()), 2);
    QTest::keyClick(tree, Qt::Key_Down);
    QTest::keyClick(tree, Qt::Key_Down);
    QVERIFY(dialog->findChild<QPushButton *>(QStringLiteral("acceptButton"))->isEnabled());
    QTest::keyClick(tree, Qt::Key_Return);
}

void tst_FileSelectDialog::choosesAFile_data()
{
    QTest::addColumn<QVector<FileType>>("fileTypes");
    QTest::addColumn<QString>("filter");
    QTest::newRow("all types, the filter finds the group") << QVector<FileType>() << QStringLiteral("DRAW");
    QTest::newRow("the types allowed find the group")
        << QVector<FileType>{FileTypeTechnicalParameters, FileTypeReportFragment} << QString();
}

void tst_FileSelectDialog::choosesAFile()
{
    QFETCH(QVector<FileType>, fileTypes);
    QFETCH(QString, filter);

    FileSelectDialog dialog(m_archive.client(), QStringLiteral("Open"), false, fileTypes);
    dialog.SetFilterText(filter);
    QSignalSpy searched(&dialog, &FileSelectDialog::queryFinished);
    dialog.show();
    dialog.RunQuery();
    QTRY_COMPARE(searched.count(), 1);
    QCOMPARE(searched.at(0).at(0).toInt(), int(NoError));
    pickSecondDrawing(&dialog);
    QCOMPARE(dialog.result(), int(QDialog::Accepted));
    QCOMPARE(dialog.GetGuid(), m_drawings);
    QCOMPARE(dialog.GetFileId(), 2u);
    QCOMPARE(dialog.GetUrl().toString(), QStringLiteral("kavro:///%1/2").arg(m_drawings));

    // The next dialog starts from the query run last.
    FileQuery named;
    named.SetFileGroupSearchText(QStringLiteral("draw"));
    named.AddFileType(FileTypeTechnicalParameters);
    const QDateTime since(QDate(2026, 1, 2), QTime(3, 4, 5, 678), Qt::UTC);
    named.SetCreationTimeMin(since);
    dialog.SetQuery(named);
    dialog.RunQuery();
    QTRY_COMPARE(searched.count(), 2);
    const FileQuery remembered = FileSelectDialog(m_archive.client(), QString()).GetQuery();
    QCOMPARE(remembered.GetFileGroupSearchText(), QStringLiteral("draw"));
    QVERIFY(remembered.IsFileTypeListed(FileTypeTechnicalParameters) && remembered.GetFileTypeListSize() == 1);
    QCOMPARE(remembered.GetCreationTimeMin(), since);
    QVERIFY(remembered.GetCreationTimeMax().isNull());
    dialog.SetQuery(FileQuery());
    dialog.RunQuery();
    QTRY_COMPARE(searched.count(), 3);
}

using Chooser = std::function<QString(KavroClient *)>;
Q_DECLARE_METATYPE(Chooser)

void tst_FileSelectDialog::choosers_data()
{
    QTest::addColumn<Chooser>("choose");
    QTest::addColumn<QString>("buttonText");
    QTest::newRow("KavroFileDialog::GetOpenUrl") << Chooser([](KavroClient *client) {
        return KavroFileDialog::GetOpenUrl(nullptr, QStringLiteral("Pick"), QStringLiteral("draw"), QString(), client,
                                           {FileTypeTechnicalParameters})
            .toString();
    }) << QStringLiteral("Open");
    QTest::newRow("KavroFileDialog::GetOpenFile") << Chooser([](KavroClient *client) {
        const std::shared_ptr<KavroFile> file =
            KavroFileDialog::GetOpenFile(nullptr, QString(), QString(), QString(), client, {});
        return file ? file->GetName() : QString();
    }) << QStringLiteral("Open");
    QTest::newRow("KavroClient::GetSelectedFile") << Chooser([](KavroClient *client) {
        QString guid;
        unsigned int fileId = 0;
        return client->GetSelectedFile(nullptr, QString(), guid, fileId)
            ? KavroUrl::fromKavroIds(guid, fileId).toString()
            : QString();
    }) << QStringLiteral("Ok");
}

void tst_FileSelectDialog::choosers()
{
    QFETCH(Chooser, choose);
    QFETCH(QString, buttonText);

    // The modal dialog is driven from inside its own event loop.
    bool driven = false;
    QTimer::singleShot(0, this, [&] {
        // A failed check leaves the lambda early: the dialog is closed then, so the call returns.
        const auto closeOnFailure = qScopeGuard([&] {
            if (!driven && QApplication::activeModalWidget())
                QApplication::activeModalWidget()->close();
        });
        auto *dialog = qobject_cast<FileSelectDialog *>(QApplication::activeModalWidget());
        QVERIFY(dialog);
        QCOMPARE(dialog->findChild<QPushButton *>(QStringLiteral("acceptButton"))->text(), buttonText);
        dialog->SetFilterText(QStringLiteral("drawings"));
        pickSecondDrawing(dialog);
        driven = true;
    });
    QCOMPARE(choose(m_archive.client()), QStringLiteral("kavro:///%1/2").arg(m_drawings));
    QVERIFY(driven);
}

QTEST_MAIN(tst_FileSelectDialog)
#include "tst_fileselectdialog.moc"
