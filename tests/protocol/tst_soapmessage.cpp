// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "fakeserver.h"
#include "soapmessage_p.h"

#include <QFile>
#include <QTest>

using namespace Kavro;

Q_DECLARE_METATYPE(Kavro::SoapMessage)
Q_DECLARE_METATYPE(Kavro::SoapSender)

namespace
{
QByteArray reply(const char *command, const QByteArray &fields)
{
    return FakeServer::soapReply(QStringLiteral("R-7"), command, fields);
}
} // namespace

class tst_SoapMessage : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void read_data();
    void read();
    void readErrors_data();
    void readErrors();
    void writtenAsRead_data();
    void writtenAsRead();
    void documentedAsDefined();
};

void tst_SoapMessage::read_data()
{
    QTest::addColumn<QByteArray>("document");
    QTest::addColumn<QString>("command");
    QTest::addColumn<bool>("known"); // all but "FutureReply"
    QTest::addColumn<int>("error");
    QTest::addColumn<QStringList>("values"); // "Name=text", sorted
    QTest::addColumn<QStringList>("list");
    QTest::addColumn<QStringList>("groups"); // guids

    const auto row = [](const char *tag, const char *command, const QByteArray &fields, int error, const char *values,
                        const char *list = "", const char *groups = "") {
        const auto split = [](const char *texts) {
            return QString::fromLatin1(texts).split(QLatin1Char(' '), Qt::SkipEmptyParts);
        };
        QTest::newRow(tag) << reply(command, fields) << QString::fromLatin1(command)
                           << (qstrcmp(command, "FutureReply") != 0) << error << split(values) << split(list)
                           << split(groups);
    };
    row("fields in any order, blanks between", "AddFileReply",
        "\n <m:ErrorString/> <m:FileId>12</m:FileId>\t<m:Error>-3</m:Error>\n", -3, "Error=-3 ErrorString= FileId=12");
    row("file list as id, name", "GetFileListReply",
        "<m:Files><m:File><m:FileName>a.txt</m:FileName><m:FileId>1</m:FileId></m:File>"
        "<m:File><m:FileId>2</m:FileId><m:FileName>b.txt</m:FileName></m:File></m:Files>",
        0, "", "1 a.txt 2 b.txt");
    row("three groups around the error", "QueryFileGroupsReply",
        FakeServer::groupXml("g1") + "<m:Error>0</m:Error>" + FakeServer::groupXml("g2") + FakeServer::groupXml("g3"),
        0, "Error=0", "", "g1 g2 g3");
    row("unknown command is not read", "FutureReply", "<m:Anything>at all</m:Anything>", 0, "");
}

void tst_SoapMessage::read()
{
    QFETCH(QByteArray, document);
    QFETCH(QString, command);
    QFETCH(bool, known);
    QFETCH(int, error);
    QFETCH(QStringList, values);
    QFETCH(QStringList, list);
    QFETCH(QStringList, groups);

    const SoapMessage read = readSoapMessage(document, SoapSender::Server);
    QCOMPARE(read.readError, QString());
    QCOMPARE(read.requestId, QStringLiteral("R-7"));
    QCOMPARE(read.element, command);
    QCOMPARE(read.known, known);
    QCOMPARE(read.error, error);
    QCOMPARE(read.errorString, QString());
    QStringList readValues;
    for (auto it = read.values.cbegin(); it != read.values.cend(); ++it)
        readValues << it.key() + QLatin1Char('=') + it.value();
    readValues.sort();
    QCOMPARE(readValues, values);
    QCOMPARE(read.listTexts(), list);
    QStringList readGroups;
    for (const FileGroupData &group : read.groups)
        readGroups << group.getGuid();
    QCOMPARE(readGroups, groups);
}

void tst_SoapMessage::readErrors_data()
{
    QTest::addColumn<QByteArray>("document");
    QTest::addColumn<QString>("readError");

    const QByteArray open = "<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\">";
    QTest::newRow("one element expected")
        << QByteArray("<Envelope2/>")
        << QStringLiteral("Expected element Envelope, but got Envelope2 at line 1, column 12");
    QTest::newRow("header missing") << open + "<s:Body/></s:Envelope>"
                                    << QStringLiteral("Expected element Header, but got Body at line 1, column 71");
    QTest::newRow("one of several expected")
        << reply("AddFileReply", "<m:Path>/x</m:Path>")
        << QStringLiteral(
               "Expected one of FileId, Error, ErrorString, /AddFileReply, but got Path at line 1, column 225");
    QTest::newRow("end element not expected")
        << open + "</s:Envelope>" << QStringLiteral("Expected element Header, but got /Envelope at line 1, column 75");
    QTest::newRow("wrong namespace")
        << reply("AddFileReply", "<x:FileId xmlns:x=\"urn:x\">1</x:FileId>")
        << QStringLiteral("Expected namespace http://kavro/8SP/KAVRO, but got urn:x at line 1, column 243");
    QTest::newRow("envelope in the service namespace")
        << QByteArray("<m:Envelope xmlns:m=\"http://kavro/8SP/KAVRO\"/>")
        << QStringLiteral("Expected namespace http://www.w3.org/2003/05/soap-envelope, but got http://kavro/8SP/KAVRO "
                          "at line 1, column 46");
    QTest::newRow("text where an element belongs")
        << reply("DeleteFileReply", "  stray   words <m:Error>1</m:Error>")
        << QStringLiteral("Unexpected text stray words at line 1, column 237");
    QTest::newRow("cut short, several expected")
        << reply("DeleteFileReply", "<m:Error>1</m:Error>").left(250)
        << QStringLiteral(
               "Expected one of Error, ErrorString, /DeleteFileReply, but got end of document at line 1, column 250");
    QTest::newRow("cut short, one expected")
        << open + "<s:Header><s:RequestId>x</s:RequestId></s:Header>"
        << QStringLiteral("Expected element Body, but got end of document at line 1, column 111");
    QTest::newRow("element inside a text field") << reply("DeleteFileReply", "<m:Error><m:x/></m:Error>")
                                                 << QStringLiteral("Expected character data. at line 1, column 235");
    QTest::newRow("not well-formed") << open + "<s:Header></s:Head>"
                                     << QStringLiteral("Opening and ending tag mismatch. at line 1, column 81");
    QTest::newRow("empty body") << open + "<s:Header/><s:Body></s:Body></s:Envelope>"
                                << QStringLiteral(
                                       "Expected one of CreateFileGroupReply, AddFileReply, DeleteFileReply, "
                                       "RequestFileReply, CloseFileReply, MoveToNasReply, AddReferenceReply, "
                                       "RemoveReferenceReply, RemoveAllReferencesReply, QueryMetaDataReply, "
                                       "GetApplicationListReply, GetFileListReply, GetUserListReply, "
                                       "QueryFileGroupsReply, GetBasePathReply, ExportArchiveReply, "
                                       "ImportArchiveReply, CreateRovecFileGroupReply, RegisterConverterReply, "
                                       "DeleteFileGroupReply, QueryLocationStateProgressReply, "
                                       "CheckFileGroupExistsReply, CopyForeignFileGroupProgress, "
                                       "ConvertFileGroup, but got /Body at line 1, column 90");
    QTest::newRow("error that is not a number")
        << reply("DeleteFileReply", "<m:Error>none</m:Error>")
        << QStringLiteral("Expected a number, but got none at line 1, column 243");
    QTest::newRow("unbound prefix") << QByteArray("<s:Envelope/>")
                                    << QStringLiteral("Namespace prefix 's' not declared at line 1, column 13");
}

void tst_SoapMessage::readErrors()
{
    QFETCH(QByteArray, document);
    QFETCH(QString, readError);

    QCOMPARE(readSoapMessage(document, SoapSender::Server).readError, readError);
}

// Every request and reply of the protocol table, filled in every element,
// reads back as it was written, at the other end.
void tst_SoapMessage::writtenAsRead_data()
{
    QTest::addColumn<SoapMessage>("message");
    QTest::addColumn<SoapSender>("sender");

    FileGroupData group;
    group.setGuid(QStringLiteral("g1"));
    group.addFile(QStringLiteral("a.txt"), 1);
    const QStringList texts{QStringLiteral("a"), QString(), QStringLiteral("c")};
    const QStringList range{QStringLiteral("2026-01-01 00:00:00.000"), QString()};
    for (const SoapCommand &command : soapCommands()) {
        for (const bool reply : {false, true}) {
            if (reply && !command.hasReply())
                continue;
            SoapMessage message;
            message.requestId = QStringLiteral("R-1");
            message.element = reply ? command.replyName() : QLatin1String(command.name);
            for (const SoapElement &element : reply ? command.reply : command.request) {
                const QString name = QLatin1String(element.name);
                switch (element.kind) {
                case SoapKind::Text:
                case SoapKind::Number:
                    message.values.insert(name,
                                          element.kind == SoapKind::Number ? QStringLiteral("42")
                                                                           : QStringLiteral("<%1 & more>").arg(name));
                    break;
                case SoapKind::Boolean:
                    message.setBoolean(name, true);
                    break;
                case SoapKind::Time:
                    message.setTime(name, QDateTime(QDate(2026, 11, 23), QTime(10, 11, 12, 13), Qt::UTC));
                    break;
                case SoapKind::Texts:
                case SoapKind::TextList:
                case SoapKind::TimeRange:
                    message.lists.insert(name, element.kind == SoapKind::TimeRange ? range : texts);
                    break;
                case SoapKind::Entries:
                    message.entries.insert(name,
                                           {{QStringLiteral("1"), QStringLiteral("a.txt")},
                                            {QStringLiteral("2"), QStringLiteral("b.txt")}});
                    break;
                case SoapKind::Record:
                case SoapKind::Records:
                    message.groups = {group};
                    if (element.kind == SoapKind::Records)
                        message.groups << FileGroupData();
                    break;
                }
            }
            const bool fromClient = (command.sender == SoapSender::Client) != reply;
            QTest::addRow("%s", qPrintable(message.element))
                << message << (fromClient ? SoapSender::Client : SoapSender::Server);
        }
    }
}

void tst_SoapMessage::writtenAsRead()
{
    QFETCH(SoapMessage, message);
    QFETCH(SoapSender, sender);

    const SoapMessage read = readSoapMessage(writeSoapMessage(message), sender);
    QCOMPARE(read.readError, QString());
    QVERIFY(read.known);
    QCOMPARE(read.requestId, message.requestId);
    QCOMPARE(read.element, message.element);
    QCOMPARE(read.values, message.values);
    QCOMPARE(read.lists, message.lists);
    QCOMPARE(read.entries, message.entries);
    QCOMPARE(read.groups, message.groups);
    // The other end does not take it.
    const SoapSender other = sender == SoapSender::Client ? SoapSender::Server : SoapSender::Client;
    QVERIFY(!readSoapMessage(writeSoapMessage(message), other).known);
}

// The protocol's documentation holds the table as the code defines it.
void tst_SoapMessage::documentedAsDefined()
{
    QFile document(QStringLiteral(QT_TESTCASE_SOURCEDIR "/../docs/protocol.md"));
    QVERIFY(document.open(QIODevice::ReadOnly | QIODevice::Text));
    const QString text = QString::fromUtf8(document.readAll());
    const QString table = soapCommandsMarkdown();
    if (!text.contains(table))
        qWarning().noquote() << "docs/protocol.md should hold this table:\n" << table;
    QVERIFY(text.contains(table));
}

QTEST_GUILESS_MAIN(tst_SoapMessage)
#include "tst_soapmessage.moc"
