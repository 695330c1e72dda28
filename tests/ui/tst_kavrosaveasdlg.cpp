// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "archivefixture.h"

#include <kavro/kavroclient.h>
#include <kavro/kavrosaveasdlg.h>

#include <QComboBox>
#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QTest>

using namespace Kavro;

class tst_KavroSaveAsDlg : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QVERIFY(m_archive.start()); }
    void savesIntoTheArchive_data();
    void savesIntoTheArchive();
    void failureKeepsTheDialogOpen();

private:
    template<typename T>
    static T *child(const QDialog &dialog, const char *name)
    {
        return dialog.findChild<T *>(QLatin1String(name));
    }
    static QPushButton *saveButton(const QDialog &dialog)
    {
        return child<QDialogButtonBox>(dialog, "buttonBox")->button(QDialogButtonBox::Save);
    }

    ArchiveFixture m_archive;
    QTemporaryDir m_files;
};

void tst_KavroSaveAsDlg::savesIntoTheArchive_data()
{
    QTest::addColumn<QString>("typedName"); // empty: the user leaves the name alone
    QTest::addColumn<QString>("groupName");
    QTest::addColumn<QString>("archivedName");

    QTest::newRow("name as the file") << QString() << QStringLiteral("survey") << QStringLiteral("survey.txt");
    QTest::newRow("name changed by the user")
        << QStringLiteral("Field notes") << QStringLiteral("Field notes") << QStringLiteral("Field notes.txt");
}

void tst_KavroSaveAsDlg::savesIntoTheArchive()
{
    QFETCH(QString, typedName);
    QFETCH(QString, groupName);
    QFETCH(QString, archivedName);

    const QString draft = m_files.filePath(QStringLiteral("draft.txt"));
    const QString survey = m_files.filePath(QStringLiteral("survey.txt"));
    QVERIFY(writeFile(draft, "draft") && writeFile(survey, "north ridge"));

    KavroSaveAsDlg dialog(m_archive.client(), draft);
    dialog.show();
    auto *nameEdit = child<QLineEdit>(dialog, "nameEdit");
    QCOMPARE(nameEdit->text(), QStringLiteral("draft"));
    if (!typedName.isEmpty()) {
        nameEdit->selectAll();
        QTest::keyClicks(nameEdit, typedName);
    }
    // Choosing another file renames the group only while the user has not named it.
    child<QLineEdit>(dialog, "fileEdit")->setText(survey);
    QCOMPARE(nameEdit->text(), groupName);

    auto *types = child<QComboBox>(dialog, "fileTypeCombo");
    types->setCurrentIndex(types->findData(int(FileTypeImage)));
    child<QLineEdit>(dialog, "versionEdit")->setText(QStringLiteral("2.1"));
    child<QSpinBox>(dialog, "lifeCycleSpin")->setValue(10);
    QTest::keyClicks(child<QPlainTextEdit>(dialog, "commentEdit"), QStringLiteral("taken at dawn"));
    QTest::mouseClick(saveButton(dialog), Qt::LeftButton);

    QCOMPARE(dialog.result(), int(QDialog::Accepted));
    QVERIFY(!dialog.isVisible());
    const KavroUrl url = dialog.GetUrl();
    const QString guid = url.toKavroGuid();
    QVERIFY(url.toKavroFileId() != 0);
    QCOMPARE(url.toString(), QStringLiteral("kavro:///%1/%2").arg(guid).arg(url.toKavroFileId()));

    const FileGroupData group = m_archive.client()->QueryMetaData(guid);
    QCOMPARE(group.getName(), groupName);
    QCOMPARE(group.getVersion(), QStringLiteral("2.1"));
    QCOMPARE(group.getComment(), QStringLiteral("taken at dawn"));
    QCOMPARE(group.getFileType(), FileTypeImage);
    QCOMPARE(group.getReservedStorage(), 11);
    QVERIFY(qAbs(QDateTime::currentDateTimeUtc().daysTo(group.getLifeCycle()) - 10) <= 1);
    QCOMPARE(m_archive.client()->GetFileList(guid), QStringList({QString::number(url.toKavroFileId()), archivedName}));
}

void tst_KavroSaveAsDlg::failureKeepsTheDialogOpen()
{
    // Nothing listens on port 1: the client never connects.
    KavroClient offline(QStringLiteral("127.0.0.1"), 1, QStringLiteral("viewer"), QStringLiteral("alice"),
                        QStringLiteral("blue"));
    const QString path = m_files.filePath(QStringLiteral("report.txt"));
    QVERIFY(writeFile(path, "report"));

    KavroSaveAsDlg dialog(&offline, path);
    dialog.show();
    auto *fileEdit = child<QLineEdit>(dialog, "fileEdit");
    auto *nameEdit = child<QLineEdit>(dialog, "nameEdit");
    QPushButton *save = saveButton(dialog);
    QVERIFY(save->isEnabled());
    nameEdit->selectAll();
    QTest::keyClick(nameEdit, Qt::Key_Backspace);
    QVERIFY(!save->isEnabled());
    fileEdit->clear();
    QVERIFY(!save->isEnabled());
    fileEdit->setText(m_files.filePath(QStringLiteral("missing.txt")));
    QVERIFY(!save->isEnabled());
    fileEdit->setText(path);
    QCOMPARE(nameEdit->text(), QStringLiteral("report")); // an emptied name follows the file again
    QVERIFY(save->isEnabled());

    QTest::mouseClick(save, Qt::LeftButton);
    QVERIFY(dialog.isVisible());
    QCOMPARE(dialog.result(), int(QDialog::Rejected));
    QVERIFY(dialog.GetUrl().isEmpty());
    auto *error = child<QLabel>(dialog, "errorLabel");
    QVERIFY(error->isVisible());
    QVERIFY(error->text().startsWith(QStringLiteral("Could not save the file: ")));
}

QTEST_MAIN(tst_KavroSaveAsDlg)
#include "tst_kavrosaveasdlg.moc"
