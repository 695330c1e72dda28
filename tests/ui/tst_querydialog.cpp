// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include <kavro/filequery.h>
#include <kavro/querydialog.h>

#include "temporarysettings.h"

#include <QApplication>
#include <QCheckBox>
#include <QDateTimeEdit>
#include <QDialogButtonBox>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTest>

#include <optional>

using namespace Kavro;

Q_DECLARE_METATYPE(Kavro::FileQuery)

namespace
{
// Every field of a query as text, so that a mismatch shows which one differs.
QStringList fieldsOf(const FileQuery &query)
{
    QStringList fields{query.GetFileGroupSearchText(),
                       query.GetCommentSearchText(),
                       query.GetCreatorSearchText(),
                       query.GetDetailSearchText(),
                       query.GetTeamMembershipSearchText(),
                       query.GetVersionSearchText(),
                       query.GetLockUser(),
                       query.GetReferencingApplication()};
    for (int i = 0; i < query.GetFileTypeListSize(); ++i)
        fields << QStringLiteral("type %1").arg(query.GetFileTypeAt(i));
    fields << QStringLiteral("location %1").arg(query.GetLocationState())
           << QStringLiteral("lock %1").arg(query.GetLockState());
    for (const QDateTime &time :
         {query.GetCreationTimeMin(), query.GetCreationTimeMax(), query.GetModificationTimeMin(),
          query.GetModificationTimeMax(), query.GetBackupTimeMin(), query.GetBackupTimeMax(),
          query.GetLifeCycleTimeMin(), query.GetLifeCycleTimeMax()})
        fields << (time.isNull() ? QStringLiteral("open") : time.toString(Qt::ISODateWithMs));
    return fields;
}
} // namespace

class tst_QueryDialog : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void roundTrip_data();
    void roundTrip();
    void drivenByKeys_data();
    void drivenByKeys();

private:
    std::optional<TemporarySettings> m_settings;
};

void tst_QueryDialog::initTestCase()
{
    m_settings.emplace(QByteArray(), true);
    // A zone away from UTC, so that showing local time differs from showing UTC.
    qputenv("TZ", "KVT-3");
}

void tst_QueryDialog::roundTrip_data()
{
    QTest::addColumn<FileQuery>("query");
    QTest::addColumn<bool>("useUtc");

    FileQuery texts;
    texts.SetFileGroupSearchText(QStringLiteral("group"));
    texts.SetCommentSearchText(QStringLiteral("comment"));
    texts.SetCreatorSearchText(QStringLiteral("creator"));
    texts.SetDetailSearchText(QStringLiteral("detail"));
    texts.SetTeamMembershipSearchText(QStringLiteral("team"));
    texts.SetVersionSearchText(QStringLiteral("version"));
    texts.SetLockUser(QStringLiteral("locker"));
    texts.SetReferencingApplication(QStringLiteral("application"));
    texts.AddFileType(FileTypeScanRecording);
    texts.AddFileType(FileTypeImage);
    texts.SetLocationState(LocationRemote);
    texts.SetLockState(LockWrite);
    QTest::newRow("texts, types and states") << texts << false;

    FileQuery unknownStates;
    unknownStates.SetLocationState(LocationState(42));
    unknownStates.SetLockState(LockState(7));
    QTest::newRow("states outside the enumerations") << unknownStates << false;

    FileQuery times;
    const QDateTime t0(QDate(2024, 3, 31), QTime(1, 30, 15), Qt::UTC);
    times.SetCreationTimeMin(t0);
    times.SetCreationTimeMax(t0.addDays(2));
    times.SetModificationTimeMin(t0.addSecs(-3600));
    times.SetBackupTimeMax(t0.addMSecs(250));
    QTest::newRow("closed and open bounds in UTC") << times << true;
    QTest::newRow("closed and open bounds in local time") << times << false;
}

void tst_QueryDialog::roundTrip()
{
    QFETCH(FileQuery, query);
    QFETCH(bool, useUtc);

    QueryDialog dialog(query, useUtc);
    QCOMPARE(fieldsOf(dialog.GetQuery()), fieldsOf(query));
}

void tst_QueryDialog::drivenByKeys_data()
{
    QTest::addColumn<bool>("useUtc");
    QTest::addColumn<QDateTime>("expectedFrom");

    // The time typed below is 2024-03-05 06:07:08, taken in UTC or in the zone set in initTestCase.
    QTest::newRow("UTC") << true << QDateTime(QDate(2024, 3, 5), QTime(6, 7, 8), Qt::UTC);
    QTest::newRow("local time") << false << QDateTime(QDate(2024, 3, 5), QTime(3, 7, 8), Qt::UTC);
}

void tst_QueryDialog::drivenByKeys()
{
    QFETCH(bool, useUtc);
    QFETCH(QDateTime, expectedFrom);

    // A type the dialog does not offer is dropped from the query.
    FileQuery initial;
    initial.AddFileType(FileTypePck);
    QueryDialog dialog(initial, useUtc, {FileTypeImage, FileTypeAudioRecording});
    dialog.show();
    QVERIFY(QTest::qWaitForWindowActive(&dialog));

    auto *nameEdit = dialog.findChild<QLineEdit *>(QStringLiteral("nameEdit"));
    QVERIFY(nameEdit);
    QCOMPARE(QApplication::focusWidget(), nameEdit);
    QTest::keyClicks(nameEdit, QStringLiteral("report"));

    // The tab's mnemonic shows the page, the label's leads to the list; Space ticks the second type.
    QTest::keyClick(&dialog, Qt::Key_Y, Qt::AltModifier);
    QTest::keyClick(&dialog, Qt::Key_T, Qt::AltModifier);
    auto *typeList = dialog.findChild<QListWidget *>(QStringLiteral("fileTypeList"));
    QCOMPARE(QApplication::focusWidget(), typeList);
    QTest::keyClick(typeList, Qt::Key_Down);
    QTest::keyClick(typeList, Qt::Key_Space);

    QTest::keyClick(&dialog, Qt::Key_M, Qt::AltModifier);
    auto *fromCheck = dialog.findChild<QCheckBox *>(QStringLiteral("createdFromCheck"));
    auto *fromEdit = dialog.findChild<QDateTimeEdit *>(QStringLiteral("createdFromEdit"));
    QVERIFY(fromCheck && fromEdit);
    QVERIFY(!fromEdit->isEnabled());
    fromCheck->setFocus();
    QTest::keyClick(fromCheck, Qt::Key_Space);
    QVERIFY(fromEdit->isEnabled());
    // Tab leads from the box to its editor with the year selected; each full section moves on to the next.
    QTest::keyClick(fromCheck, Qt::Key_Tab);
    QCOMPARE(QApplication::focusWidget(), fromEdit);
    QTest::keyClicks(fromEdit, QStringLiteral("20240305060708"));

    dialog.resize(700, 500);
    QTest::keyClick(fromEdit, Qt::Key_Return);
    QCOMPARE(dialog.result(), int(QDialog::Accepted));
    const FileQuery query = dialog.GetQuery();
    QCOMPARE(query.GetFileGroupSearchText(), QStringLiteral("report"));
    QCOMPARE(query.GetFileTypeListSize(), 1);
    QCOMPARE(query.GetFileTypeAt(0), FileTypeAudioRecording);
    QCOMPARE(query.GetCreationTimeMin(), expectedFrom);
    QVERIFY(query.GetCreationTimeMax().isNull());
    QCOMPARE(QueryDialog(FileQuery(), useUtc).size(), QSize(700, 500)); // remembered on closing

    // Reset empties every field.
    dialog.findChild<QDialogButtonBox *>(QStringLiteral("buttonBox"))->button(QDialogButtonBox::Reset)->click();
    QCOMPARE(fieldsOf(dialog.GetQuery()), fieldsOf(FileQuery()));
}

QTEST_MAIN(tst_QueryDialog)
#include "tst_querydialog.moc"
