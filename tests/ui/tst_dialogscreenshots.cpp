// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
// The dialogs as a person sees them: each is shown at its default size in a real window on an X display, its
// picture is taken from the screen and saved as PNG (into $KAVRO_SCREENSHOT_DIR, else ./screenshots), and the
// picture must not be blank and the widgets a user needs must be visible and whole.
#include "archivefixture.h"

#include <kavro/filequery.h>
#include <kavro/fileselectdialog.h>
#include <kavro/kavrosaveasdlg.h>
#include <kavro/querydialog.h>

#include <QDir>
#include <QGuiApplication>
#include <QImage>
#include <QScreen>
#include <QSet>
#include <QSignalSpy>
#include <QTabWidget>
#include <QTest>
#include <QTreeView>

#include <functional>

using namespace Kavro;

class tst_DialogScreenshots : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void dialogs_data();
    void dialogs();

private:
    ArchiveFixture m_archive;
    QTemporaryDir m_files;
};

using Prepare = std::function<QDialog *(KavroClient *, const QString &localFile)>;
Q_DECLARE_METATYPE(Prepare)

void tst_DialogScreenshots::initTestCase()
{
    QVERIFY2(QGuiApplication::platformName() == QLatin1String("xcb"), "runs on a real X display (xvfb-run)");
    QVERIFY(m_archive.start());
    const QStringList drawings{QStringLiteral("ground floor.dxf"), QStringLiteral("first floor.dxf"),
                               QStringLiteral("sections.pdf")};
    QVERIFY(!m_archive
                 .addGroup(QStringLiteral("Town hall drawings"), FileTypeTechnicalParameters, drawings,
                           QStringLiteral("Approved plans"), 52428800)
                 .isEmpty());
    QVERIFY(!m_archive
                 .addGroup(QStringLiteral("Bridge survey 2026"), FileTypeReportFragment, {QStringLiteral("survey.pdf")},
                           QStringLiteral("Spring inspection"), 1048576)
                 .isEmpty());
    QVERIFY(!m_archive
                 .addGroup(QStringLiteral("Pump station parameters"), FileTypeTechnicalParameters,
                           {QStringLiteral("pumps.csv")}, QStringLiteral("Commissioning"), 4096)
                 .isEmpty());
    QVERIFY(writeFile(m_files.filePath(QStringLiteral("site report.pdf")), QByteArray(2048, 'r')));
}

void tst_DialogScreenshots::dialogs_data()
{
    QTest::addColumn<Prepare>("prepare");
    QTest::addColumn<QStringList>("keyWidgets");

    QTest::newRow("fileselectdialog") << Prepare([](KavroClient *client, const QString &) -> QDialog * {
        auto *dialog = new FileSelectDialog(client, QStringLiteral("Open"));
        dialog->SetQuery(FileQuery());
        QSignalSpy searched(dialog, &FileSelectDialog::queryFinished);
        dialog->RunQuery();
        if (!searched.wait(20000))
            return dialog;
        auto *tree = dialog->findChild<QTreeView *>(QStringLiteral("groupTree"));
        const QModelIndex drawings =
            tree->model()
                ->match(tree->model()->index(0, 0), Qt::DisplayRole, QStringLiteral("Town hall drawings"))
                .value(0);
        tree->expand(drawings);
        if (!QTest::qWaitFor(
                [&] {
                    return tree->model()->rowCount(drawings) == 3;
                },
                20000))
            return dialog;
        tree->setCurrentIndex(tree->model()->index(1, 0, drawings));
        return dialog;
    }) << QStringList{QStringLiteral("filterEdit"), QStringLiteral("queryButton"), QStringLiteral("refreshButton"),
                      QStringLiteral("groupTree"),  QStringLiteral("statusLabel"), QStringLiteral("acceptButton")};

    const auto queryDialog = [](int tab) {
        return Prepare([tab](KavroClient *, const QString &) -> QDialog * {
            FileQuery query;
            query.SetFileGroupSearchText(QStringLiteral("drawings"));
            query.AddFileType(FileTypeTechnicalParameters);
            query.SetCreationTimeMin(QDateTime(QDate(2026, 1, 1), QTime(0, 0), Qt::UTC));
            auto *dialog = new QueryDialog(query, true);
            dialog->findChild<QTabWidget *>(QStringLiteral("tabs"))->setCurrentIndex(tab);
            return dialog;
        });
    };
    QTest::newRow("querydialog") << queryDialog(0)
                                 << QStringList{QStringLiteral("tabs"), QStringLiteral("nameEdit"),
                                                QStringLiteral("applicationEdit"), QStringLiteral("buttonBox")};
    QTest::newRow("querydialog-types") << queryDialog(1)
                                       << QStringList{QStringLiteral("fileTypeList"),
                                                      QStringLiteral("locationStateCombo"),
                                                      QStringLiteral("lockStateCombo")};
    QTest::newRow("querydialog-times") << queryDialog(2)
                                       << QStringList{QStringLiteral("createdFromCheck"),
                                                      QStringLiteral("createdFromEdit"),
                                                      QStringLiteral("lifeCycleToEdit")};

    QTest::newRow("kavrosaveasdlg") << Prepare([](KavroClient *client, const QString &localFile) -> QDialog * {
        return new KavroSaveAsDlg(client, localFile);
    }) << QStringList{QStringLiteral("fileEdit"),      QStringLiteral("browseButton"),  QStringLiteral("nameEdit"),
                      QStringLiteral("fileTypeCombo"), QStringLiteral("lifeCycleSpin"), QStringLiteral("commentEdit"),
                      QStringLiteral("buttonBox")};
}

void tst_DialogScreenshots::dialogs()
{
    QFETCH(Prepare, prepare);
    QFETCH(QStringList, keyWidgets);

    const std::unique_ptr<QDialog> dialog(
        prepare(m_archive.client(), m_files.filePath(QStringLiteral("site report.pdf"))));
    dialog->show();
    QVERIFY(QTest::qWaitForWindowExposed(dialog.get()));

    for (const QString &name : keyWidgets) {
        const auto *widget = dialog->findChild<QWidget *>(name);
        QVERIFY2(widget, qPrintable(name));
        QVERIFY2(widget->isVisible(), qPrintable(name + QStringLiteral(" is hidden")));
        const QRect area(widget->mapTo(dialog.get(), QPoint(0, 0)), widget->size());
        QVERIFY2(dialog->rect().contains(area), qPrintable(name + QStringLiteral(" reaches out of the window")));
        const QSize needed = widget->minimumSizeHint();
        QVERIFY2(widget->width() >= needed.width() && widget->height() >= needed.height(),
                 qPrintable(name
                            + QStringLiteral(" is clipped: %1x%2 < %3x%4")
                                  .arg(widget->width())
                                  .arg(widget->height())
                                  .arg(needed.width())
                                  .arg(needed.height())));
    }

    // What the X server shows, not what the widget would paint.
    QImage picture;
    QTRY_VERIFY_WITH_TIMEOUT(!(picture = dialog->screen()->grabWindow(dialog->winId()).toImage()).isNull(), 10000);
    QSet<QRgb> colours;
    for (int y = 0; y < picture.height(); y += 2) {
        for (int x = 0; x < picture.width(); x += 2)
            colours.insert(picture.pixel(x, y));
    }
    QVERIFY2(colours.size() > 16, "the picture is blank");

    const QString directory = qEnvironmentVariableIsSet("KAVRO_SCREENSHOT_DIR")
        ? qEnvironmentVariable("KAVRO_SCREENSHOT_DIR")
        : QDir::current().filePath(QStringLiteral("screenshots"));
    QVERIFY(QDir().mkpath(directory));
    QVERIFY(
        picture.save(QDir(directory).filePath(QString::fromLatin1(QTest::currentDataTag()) + QStringLiteral(".png"))));
}

QTEST_MAIN(tst_DialogScreenshots)
#include "tst_dialogscreenshots.moc"
