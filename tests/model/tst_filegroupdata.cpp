// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include <kavro/filegroupdata.h>

#include "temporarysettings.h"
#include "tracecapture.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>

#include <functional>

using namespace Kavro;

namespace
{
const QByteArray s_namespace = "http://kavro/8SP/KAVRO";

// A record with every field set, numbers at the top of their range; the path
// and lock count are not part of the XML form.
FileGroupData fullRecord(const QString &guid = QStringLiteral("6f1c2a4e-0000-4000-8000-00000000abcd"))
{
    FileGroupData record;
    record.setGuid(guid);
    record.setName(QStringLiteral("Survey <north> & \"south\""));
    record.setFileType(FileTypeAudioRecording);
    record.setLocationState(LocationCentral);
    const QDateTime base(QDate(2024, 2, 29), QTime(23, 59, 58), Qt::UTC);
    record.setBackupTime(base);
    record.setCreationTime(base.addDays(-10));
    record.setModificationTime(base.addSecs(-5).toOffsetFromUtc(-5 * 3600)); // written as UTC
    record.setLifeCycle(base.addYears(3));
    record.setComment(QStringLiteral("first pass"));
    record.setCreator(QStringLiteral("alice"));
    record.setDetail(QStringLiteral("Ümlaut détail"));
    record.setTeam(QStringLiteral("blue"));
    record.setVersion(QStringLiteral("1.2"));
    record.setReservedStorage(5000000000);
    record.setReferenceCount(2);
    record.addFile(QStringLiteral("a.wav"), 1);
    record.addFile(QStringLiteral("b.wav"), 4294967295);
    return record;
}

QByteArray xmlOf(const FileGroupData &record)
{
    QByteArray xml;
    QXmlStreamWriter writer(&xml);
    record.ToHtml(writer, true, true);
    return xml;
}

QStringList localNames(const QByteArray &xml)
{
    QStringList names;
    QXmlStreamReader reader(xml);
    while (reader.readNextStartElement() || (!reader.atEnd() && !reader.hasError())) {
        if (reader.isStartElement())
            names.append(reader.name().toString());
    }
    return names;
}

QByteArray group(const QByteArray &children)
{
    return "<m:FileGroup xmlns:m=\"" + s_namespace + "\">" + children + "</m:FileGroup>";
}

using Edit = std::function<void(FileGroupData &)>;
} // namespace

Q_DECLARE_METATYPE(Edit)

class tst_FileGroupData : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void defaultRecordXml();
    void writtenElements_data();
    void writtenElements();
    void read_data();
    void read();
    void listForm();
    void exportFiles();
    void import_data();
    void import();
};

void tst_FileGroupData::defaultRecordXml()
{
    const QByteArray fields = "<m:Guid></m:Guid><m:FileGroupName></m:FileGroupName><m:FileType>0</m:FileType>"
                              "<m:ReservedStorage>0</m:ReservedStorage><m:ReferenceCounter>0</m:ReferenceCounter>"
                              "<m:Files/>";
    QCOMPARE(xmlOf(FileGroupData()), group(fields));

    // Without its own element, inside the caller's element that declares the prefix.
    QByteArray xml;
    QXmlStreamWriter writer(&xml);
    writer.writeStartElement(QStringLiteral("m:QueryMetaDataReply"));
    writer.writeNamespace(QString::fromLatin1(s_namespace), QStringLiteral("m"));
    FileGroupData().ToHtml(writer, false, false);
    writer.writeEndElement();
    QCOMPARE(xml, "<m:QueryMetaDataReply xmlns:m=\"" + s_namespace + "\">" + fields + "</m:QueryMetaDataReply>");
}

void tst_FileGroupData::writtenElements_data()
{
    QTest::addColumn<Edit>("edit");
    QTest::addColumn<QString>("elements");

    QTest::newRow("full record in order")
        << Edit([](FileGroupData &r) {
               r = fullRecord();
           })
        << QStringLiteral("FileGroup Guid FileGroupName FileType LocationState BackupTime CreationTime "
                          "ModificationTime LifeCycle Comment Creator Detail TeamMembership Version ReservedStorage "
                          "ReferenceCounter Files File FileId FileName File FileId FileName");
    const QString head = QStringLiteral("FileGroup Guid FileGroupName FileType ");
    QTest::newRow("negative location state left out") << Edit([](FileGroupData &r) {
        r.setLocationState(static_cast<LocationState>(-2));
    }) << head + QStringLiteral("ReservedStorage ReferenceCounter Files");
    QTest::newRow("reserved storage -1 left out") << Edit([](FileGroupData &r) {
        r.setReservedStorage(-1);
    }) << head + QStringLiteral("ReferenceCounter Files");
    QTest::newRow("reference count -1 left out") << Edit([](FileGroupData &r) {
        r.setReferenceCount(-1);
    }) << head + QStringLiteral("ReservedStorage Files");
    QTest::newRow("only the valid time written") << Edit([](FileGroupData &r) {
        r.setBackupTime(QDateTime(QDate(2020, 13, 1), QTime(0, 0)));
        r.setLifeCycle(QDateTime::currentDateTimeUtc());
    }) << head + QStringLiteral("LifeCycle ReservedStorage ReferenceCounter Files");
    QTest::newRow("path and lock count never written") << Edit([](FileGroupData &r) {
        r.setPath(QStringLiteral("/store/x"));
        r.setLockCount(3);
    }) << head + QStringLiteral("ReservedStorage ReferenceCounter Files");
}

void tst_FileGroupData::writtenElements()
{
    QFETCH(Edit, edit);
    QFETCH(QString, elements);

    FileGroupData record;
    edit(record);
    QCOMPARE(localNames(xmlOf(record)), elements.split(QLatin1Char(' ')));
}

void tst_FileGroupData::read_data()
{
    QTest::addColumn<QByteArray>("xml");
    QTest::addColumn<int>("result");
    QTest::addColumn<FileGroupData>("expected");
    QTest::addColumn<QStringList>("warnings");

    FileGroupData named;
    named.setGuid(QStringLiteral("G"));
    named.setName(QStringLiteral("N"));
    FileGroupData cutShort = named;
    cutShort.setVersion(QStringLiteral("1"));
    FileGroupData pck = named;
    pck.setFileType(FileTypePck);
    FileGroupData timed;
    timed.setCreationTime(QDateTime(QDate(2021, 3, 28), QTime(2, 30), Qt::UTC));
    FileGroupData wide;
    wide.setReservedStorage(5000000000);
    wide.addFile(QStringLiteral("w"), 4294967295);
    FileGroupData badIds;
    badIds.addFile(QStringLiteral("negative"), 0);
    badIds.addFile(QStringLiteral("too large"), 0);
    FileGroupData withFiles;
    withFiles.addFile(QStringLiteral("x.txt"), 3);
    withFiles.addFile(QString(), 0);
    withFiles.setVersion(QStringLiteral("after"));

    const QByteArray guidAndName = "<m:Guid>G</m:Guid><m:FileGroupName>N</m:FileGroupName>";
    QTest::newRow("file type 16 is read")
        << group(guidAndName + "<m:FileType>16</m:FileType>") << 0 << pck << QStringList();
    QTest::newRow("file type 21 rejected, the rest read")
        << group("<m:Guid>G</m:Guid><m:FileType>21</m:FileType><m:FileGroupName>N</m:FileGroupName>") << 54 << named
        << QStringList{QStringLiteral("Unkown file type \"21\" read")};
    QTest::newRow("file type not a number") << group(guidAndName + "<m:FileType>six</m:FileType>") << 54 << named
                                            << QStringList{QStringLiteral("Unkown file type \"six\" read")};
    QTest::newRow("location state 14 rejected")
        << group(guidAndName + "<m:LocationState>14</m:LocationState>") << 54 << named
        << QStringList{QStringLiteral("Unkown location state \"14\" read")};
    QTest::newRow("Error element is the result")
        << group(guidAndName + "<m:Error>62</m:Error>") << 62 << named << QStringList();
    QTest::newRow("unexpected tag of the service")
        << group("<m:Guid>G</m:Guid><m:Colour>red</m:Colour><m:FileGroupName>N</m:FileGroupName>") << 54 << named
        << QStringList{QStringLiteral("Encountered unexpected xml tag Colour while reading filegroup for import")};
    QTest::newRow("other namespaces passed over")
        << group(guidAndName + "<x:Comment xmlns:x=\"urn:other\">no</x:Comment><Comment>no</Comment>") << 0 << named
        << QStringList();
    QTest::newRow("time read as UTC") << group("<m:CreationTime>2021-03-28 02:30:00</m:CreationTime>") << 0 << timed
                                      << QStringList();
    QTest::newRow("64-bit storage, unsigned 32-bit file id")
        << group("<m:ReservedStorage>5000000000</m:ReservedStorage>"
                 "<m:Files><m:File><m:FileId>4294967295</m:FileId><m:FileName>w</m:FileName></m:File></m:Files>")
        << 0 << wide << QStringList();
    QTest::newRow("file ids outside 32 bits rejected, the files kept")
        << group("<m:Files><m:File><m:FileId>-1</m:FileId><m:FileName>negative</m:FileName></m:File>"
                 "<m:File><m:FileId>4294967296</m:FileId><m:FileName>too large</m:FileName></m:File></m:Files>")
        << 54 << badIds
        << QStringList{QStringLiteral("Invalid file id \"-1\" read"),
                       QStringLiteral("Invalid file id \"4294967296\" read")};
    QTest::newRow("files in any inner order")
        << group("<m:Files><m:File><m:FileName>x.txt</m:FileName><m:FileId>3</m:FileId></m:File><m:File/></m:Files>"
                 "<m:Version>after</m:Version>")
        << 0 << withFiles << QStringList();
    // The document ends inside the closing tag of "Version".
    QTest::newRow("malformed keeps what was read")
        << group(guidAndName + "<m:Version>1</m:Version>").left(120) << 54 << cutShort
        << QStringList{QStringLiteral(
               "Could not read Xml file for import of filegroup. XmlStreamReader error: Premature end of document.")};
}

void tst_FileGroupData::read()
{
    QFETCH(QByteArray, xml);
    QFETCH(int, result);
    QFETCH(FileGroupData, expected);
    QFETCH(QStringList, warnings);

    const TraceCapture capture;
    FileGroupData record;
    QXmlStreamReader reader(xml);
    QCOMPARE(int(record.FromHtml(reader)), result);
    QCOMPARE(record, expected);
    QCOMPARE(capture.texts(), warnings);
}

void tst_FileGroupData::listForm()
{
    QStringList headers(QStringLiteral("kept"));
    FileGroupData::GetHeaders(headers);
    QCOMPARE(headers.size(), 17);
    QCOMPARE(headers.at(1), QStringLiteral("File group name"));
    QCOMPARE(headers.last(), QStringLiteral("Guid"));

    FileGroupData original = fullRecord();
    original.setLockCount(4);
    QStringList values;
    original.ToStringList(values);
    QCOMPARE(values.size(), 16);
    QCOMPARE(values.mid(1, 3),
             QStringList({QStringLiteral("Audio Recording"), QStringLiteral("Central"),
                          original.getBackupTime().toLocalTime().toString(QStringLiteral("yyyy-MM-dd hh:mm:ss"))}));
    QCOMPARE(values.mid(12, 4),
             QStringList({QStringLiteral("5000000000"), QStringLiteral("2"), QStringLiteral("4"), original.getGuid()}));

    // The list form holds neither the files nor the path.
    FileGroupData expected = original;
    expected.setFileList({});
    QCOMPARE(FileGroupData::fromStringList(values), expected);
    QCOMPARE(FileGroupData::fromStringList({}), FileGroupData());

    // Texts of no type or state leave the defaults, with a warning each.
    values[1] = QStringLiteral("Hologram");
    values[2] = QStringLiteral("Invalid location state");
    const TraceCapture capture;
    expected.setFileType(FileTypeUnknown);
    expected.setLocationState(LocationUndefined);
    QCOMPARE(FileGroupData::fromStringList(values), expected);
    QCOMPARE(capture.texts(),
             QStringList({QStringLiteral("FileGroupData::fromStringList: Unkown file type \"Hologram\" read"),
                          QStringLiteral("FileGroupData::fromStringList: Unkown location state \"Invalid location "
                                         "state\" read")}));
}

void tst_FileGroupData::exportFiles()
{
    QTemporaryDir root;
    const QString directory = root.filePath(QStringLiteral("exports"));
    QVERIFY(QDir().mkdir(directory));
    const FileGroupData record = fullRecord(QStringLiteral("G"));
    const QString base = record.getName() + QStringLiteral("_G");

    QCOMPARE(record.toXmlFileForExport(directory), base + QStringLiteral(".fgdesc"));
    const QByteArray written = readFile(directory + QDir::separator() + base + QStringLiteral(".fgdesc"));
    QCOMPARE(written, xmlOf(record));
    QVERIFY(written.contains("<m:ReservedStorage>5000000000<") && written.contains("<m:FileId>4294967295<"));

    // Numbered names are joined to the directory without a separator.
    QCOMPARE(record.toXmlFileForExport(directory), base + QStringLiteral("_1.fgdesc"));
    QVERIFY(QFile::exists(directory + base + QStringLiteral("_1.fgdesc")));
    QCOMPARE(record.toXmlFileForExport(directory), base + QStringLiteral("_2.fgdesc"));
    QVERIFY(QFile::exists(directory + base + QStringLiteral("_2.fgdesc")));

    // A directory that cannot be written to still yields the name, with a warning.
    const TraceCapture capture;
    QCOMPARE(record.toXmlFileForExport(root.filePath(QStringLiteral("missing"))), base + QStringLiteral(".fgdesc"));
    QCOMPARE(capture.texts(),
             QStringList{QStringLiteral("Could not create Xml file for export of filegroup ") + record.getName()
                         + QStringLiteral(" with guid G")});
}

void tst_FileGroupData::import_data()
{
    QTest::addColumn<QByteArray>("content"); // empty: no file is written
    QTest::addColumn<bool>("asDirectory");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("warningCount");

    QTest::newRow("exported record") << xmlOf(fullRecord()) << false << true << fullRecord().getName() << 0;
    QTest::newRow("file type 21") << group("<m:FileGroupName>N</m:FileGroupName><m:FileType>21</m:FileType>") << false
                                  << false << QStringLiteral("N") << 1;
    QTest::newRow("missing file, no warning") << QByteArray() << false << false << QString() << 0;
    QTest::newRow("a directory cannot be opened") << QByteArray() << true << false << QString() << 1;
}

void tst_FileGroupData::import()
{
    QFETCH(QByteArray, content);
    QFETCH(bool, asDirectory);
    QFETCH(bool, ok);
    QFETCH(QString, name);
    QFETCH(int, warningCount);

    QTemporaryDir root;
    const QString path = root.filePath(QStringLiteral("group.fgdesc"));
    if (asDirectory)
        QVERIFY(QDir().mkdir(path));
    if (!content.isEmpty())
        QVERIFY(writeFile(path, content));

    const TraceCapture capture;
    FileGroupData record;
    QCOMPARE(record.fromXmlforImport(path), ok);
    QCOMPARE(record.getName(), name);
    QCOMPARE(capture.texts().size(), warningCount);
    if (ok) {
        // Times go over as UTC and come back as the same instants.
        QCOMPARE(record, fullRecord());
        QCOMPARE(record.getModificationTime().timeSpec(), Qt::UTC);
    }
}

QTEST_GUILESS_MAIN(tst_FileGroupData)
#include "tst_filegroupdata.moc"
