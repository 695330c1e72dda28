// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "filetypemanager_p.h"
#include "settings_p.h"
#include "temporarysettings.h"

#include <QTest>

using namespace Kavro;

class tst_FileTypeManager : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void listFromSettings_data();
    void listFromSettings();
    void instance();
    void indexLookups_data();
    void indexLookups();
    void text();

private:
    static QVector<FileType> listedWithout(std::initializer_list<FileType> hidden);
};

// The nineteen listable types in ascending order, less the \a hidden ones.
QVector<FileType> tst_FileTypeManager::listedWithout(std::initializer_list<FileType> hidden)
{
    QVector<FileType> types;
    for (int value = FileTypeTransmissionSystemXml; value <= FileTypeTechnicalParameters; ++value) {
        const auto type = static_cast<FileType>(value);
        if (type != FileTypePck && std::find(hidden.begin(), hidden.end(), type) == hidden.end())
            types.append(type);
    }
    return types;
}

void tst_FileTypeManager::listFromSettings_data()
{
    QTest::addColumn<QByteArray>("ini");
    QTest::addColumn<QVector<FileType>>("expected");

    QTest::newRow("no configuration lists nineteen") << QByteArray() << listedWithout({});
    QTest::newRow("image switched off") << QByteArray("[KAVRO]\nType_Image=false\n") << listedWithout({FileTypeImage});
    QTest::newRow("switch in another section is ignored")
        << QByteArray("[ADMIN]\nType_Image=false\n") << listedWithout({});
    QTest::newRow("no switch can list PCK or Unknown")
        << QByteArray("[KAVRO]\nType_PCK=true\nType_PCKFile=true\nType_Unknown=true\n") << listedWithout({});
    QTest::newRow("the key of 12 is not named after its text, first and last")
        << QByteArray("[KAVRO]\nType_MissionPlanningTool=0\nType_PropagationCalculationTool=true\n"
                      "Type_TransmissionSystem_XML=false\nType_TechnicalParameters=false\n")
        << listedWithout({FileTypeMissionPlanningTool, FileTypeTransmissionSystemXml, FileTypeTechnicalParameters});
}

void tst_FileTypeManager::listFromSettings()
{
    QFETCH(QByteArray, ini);
    QFETCH(QVector<FileType>, expected);

    const TemporarySettings file(ini);
    QCOMPARE(readListedFileTypes(Settings(Settings::kavroSection(), file.path())), expected);
}

void tst_FileTypeManager::instance()
{
    QCOMPARE(FileTypeManager::GetType(0), FileTypeUnknown); // no instance yet
    const TemporarySettings file("[KAVRO]\nType_Image=false\n", true);
    FileTypeManager *manager = FileTypeManager::Instance();
    QVERIFY(manager);
    QCOMPARE(FileTypeManager::Instance(), manager);
    QCOMPARE(manager->GetCount(), 18);
    QVERIFY(!manager->GetTypes().contains(FileTypeImage));

    // A copy going away must not empty the process-wide list.
    {
        FileTypeManager copy(*manager);
        FileTypeManager assigned(copy);
        assigned = *manager;
        QCOMPARE(assigned.GetTypes(), manager->GetTypes());
    }
    QCOMPARE(manager->GetCount(), 18);
}

void tst_FileTypeManager::indexLookups_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<FileType>("type");
    QTest::addColumn<QString>("text");

    // The instance lists eighteen types: Image (11) is switched off.
    QTest::newRow("first") << 0 << FileTypeTransmissionSystemXml << QStringLiteral("Transmission System (XML)");
    QTest::newRow("index 10 skips Image")
        << 10 << FileTypeMissionPlanningTool << QStringLiteral("Propagation Calculation Tool");
    QTest::newRow("index 14 skips PCK") << 14 << FileTypeRad << QStringLiteral("RAD File");
    QTest::newRow("last") << 17 << FileTypeTechnicalParameters << QStringLiteral("Technical Parameters");
    QTest::newRow("count is out of range") << 18 << FileTypeUnknown << QStringLiteral("Unknown");
    QTest::newRow("negative") << -1 << FileTypeUnknown << QStringLiteral("Unknown");
}

void tst_FileTypeManager::indexLookups()
{
    QFETCH(int, index);
    QFETCH(FileType, type);
    QFETCH(QString, text);

    QCOMPARE(FileTypeManager::GetType(index), type);
    QCOMPARE(FileTypeManager::GetTextByIndex(index), text);
    QCOMPARE(FileTypeManager::GetText(type), text);
}

void tst_FileTypeManager::text()
{
    QCOMPARE(FileTypeManager::GetText(FileTypePck), QStringLiteral("PCK File")); // never listed, but has a text
    for (const int value : {21, -1})
        QCOMPARE(FileTypeManager::GetText(static_cast<FileType>(value)), QStringLiteral("Invalid file type"));
}

QTEST_GUILESS_MAIN(tst_FileTypeManager)
#include "tst_filetypemanager.moc"
