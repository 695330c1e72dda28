// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "commandsender_p.h"
#include "errorhandler_p.h"
#include "fakeserver.h"
#include "soapmessage_p.h"
#include "temporarysettings.h"
#include "tracecapture.h"

#include <kavro/filequery.h>

#include <QSignalSpy>
#include <QTest>
#include <QXmlStreamWriter>

#include <functional>
#include <memory>

using namespace Kavro;

using Request = std::function<QString(CommandSender &)>;
Q_DECLARE_METATYPE(Request)

namespace
{
const QString s_id = QStringLiteral("R-1");

QByteArray errorFields(int error, const char *text = "x")
{
    return "<m:Error>" + QByteArray::number(error) + "</m:Error><m:ErrorString>" + text + "</m:ErrorString>";
}

QByteArray groupXml(const FileGroupData &group)
{
    QByteArray xml;
    QXmlStreamWriter writer(&xml);
    writer.writeStartElement(QStringLiteral("m:Wrapper"));
    writer.writeNamespace(QStringLiteral("http://kavro/8SP/KAVRO"), QStringLiteral("m"));
    group.ToHtml(writer, true, false);
    writer.writeEndElement();
    return xml.mid(xml.indexOf("<m:FileGroup>"), xml.lastIndexOf("</m:Wrapper>") - xml.indexOf("<m:FileGroup>"));
}

FileGroupData sampleGroup(const char *guid)
{
    FileGroupData group;
    group.setGuid(QLatin1String(guid));
    group.setName(QStringLiteral("name"));
    group.setFileType(FileTypeImage);
    group.addFile(QStringLiteral("a.png"), 1);
    return group;
}

// Remembers what it was told, on the dispatcher's thread.
class RecordingWaiter : public RequestWaiter
{
public:
    bool requestHandled(const SoapMessage &reply, int code, const QString &text) override
    {
        command = reply.element;
        error = code;
        errorString = text;
        handled = true;
        return true;
    }
    void requestFailed(int code) override { failedWith = code; }

    QString command;
    int error = -100;
    QString errorString;
    bool handled = false;
    int failedWith = 0;
};
} // namespace

class tst_CommandSender : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void connectedOnceAfterBasePath_data();
    void connectedOnceAfterBasePath();
    void reconnectAnnouncesConnectedAgain();
    void notConnected();
    void requests_data();
    void requests();
    void replies_data();
    void replies();
    void unknownCommand();
    void waiters_data();
    void waiters();
    void waiterReleasedByDisconnect();
    void xmlErrorKeepsTheConnection();
    void conversionAnswerDoesNotTakeTheLine();

private:
    bool startConnected();

    std::unique_ptr<TemporarySettings> m_settings;
    std::unique_ptr<FakeServer> m_server;
    std::unique_ptr<CommandSender> m_sender;
    int m_basePathError = 0;
    QByteArray m_replyTo; // empty: answer requests with their own reply
};

void tst_CommandSender::init()
{
    ErrorHandler::instance().setTraceMask(ErrorHandler::TraceInfo | ErrorHandler::TraceWarning);
    m_settings = std::make_unique<TemporarySettings>("[KAVRO]\nReconnectIntervalMs=20\n", true);
    m_server = std::make_unique<FakeServer>();
    QVERIFY(m_server->listen());
    m_basePathError = 0;
    m_server->setResponder([this](const QByteArray &request) {
        const QString id = FakeServer::requestIdOf(request);
        const QString command = FakeServer::commandOf(request);
        if (command == QLatin1String("GetBasePath"))
            return QList<QByteArray>{FakeServer::soapReply(id, "GetBasePathReply",
                                                           "<m:Path>/store</m:Path>" + errorFields(m_basePathError))};
        if (command == QLatin1String("ConvertFileGroupReply"))
            return QList<QByteArray>();
        const QByteArray name = m_replyTo.isEmpty() ? (command + QStringLiteral("Reply")).toLatin1() : m_replyTo;
        return QList<QByteArray>{FakeServer::soapReply(id, name.constData(), errorFields(0, ""))};
    });
    m_sender = std::make_unique<CommandSender>(QStringLiteral("127.0.0.1"), m_server->port(), QStringLiteral("app"),
                                               QStringLiteral("user"), QStringLiteral("team"));
}

void tst_CommandSender::cleanup()
{
    m_sender.reset();
    m_server.reset();
    m_settings.reset();
    m_replyTo.clear();
}

bool tst_CommandSender::startConnected()
{
    QSignalSpy connected(m_sender.get(), &CommandSender::connected);
    m_sender->start();
    return connected.wait(10000) && m_sender->CheckIsConnected();
}

void tst_CommandSender::connectedOnceAfterBasePath_data()
{
    QTest::addColumn<int>("basePathError");
    QTest::newRow("base path answered") << 0;
    QTest::newRow("base path answered with an error") << 47;
}

void tst_CommandSender::connectedOnceAfterBasePath()
{
    QFETCH(int, basePathError);
    m_basePathError = basePathError;
    m_sender->setCheckInterval(30);
    QSignalSpy connected(m_sender.get(), &CommandSender::connected);
    m_sender->start();
    m_sender->start(); // a second start changes nothing (and frees nothing twice)
    QVERIFY(connected.wait());
    QCOMPARE(connected.at(0).at(0).toString(), QStringLiteral("/store"));
    QCOMPARE(FakeServer::commandOf(m_server->frames().first()), QStringLiteral("GetBasePath"));

    // The keep-alive asks again; its answers announce nothing.
    QVERIFY(m_server->waitForFrames(3));
    for (const QByteArray &frame : m_server->frames())
        QCOMPARE(FakeServer::commandOf(frame), QStringLiteral("GetBasePath"));
    QCOMPARE(connected.size(), 1);
}

void tst_CommandSender::reconnectAnnouncesConnectedAgain()
{
    QVERIFY(startConnected());
    QSignalSpy connected(m_sender.get(), &CommandSender::connected);
    QSignalSpy disconnected(m_sender.get(), &CommandSender::disconnected);

    m_server->dropClient();
    QVERIFY(disconnected.wait());
    QVERIFY(!m_sender->CheckIsConnected());
    QVERIFY(connected.wait());
    QCOMPARE(connected.size(), 1);
    QVERIFY(m_sender->CheckIsConnected());
}

void tst_CommandSender::notConnected()
{
    m_server->close();
    m_sender->start();
    const TraceCapture capture;
    QCOMPARE(m_sender->GetUserList(), QString());
    QCOMPARE(m_sender->GetLastError(), int(ErrorNotConnected));
    QCOMPARE(capture.texts(),
             QStringList{QStringLiteral("CommandSender::CheckIsConnected: Client is not connected to server")});
}

void tst_CommandSender::requests_data()
{
    QTest::addColumn<Request>("request");
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("trace"); // empty: none
    QTest::addColumn<QStringList>("contains");

    const auto G = QStringLiteral("G");
    QTest::newRow("CreateFileGroup")
        << Request([G](CommandSender &s) {
               return s.CreateFileGroup(QStringLiteral("1.0"), QDateTime(), QStringLiteral("det"),
                                        QStringLiteral("com"), FileTypeImage, 10, QStringLiteral("grp"), G,
                                        QStringLiteral("/p/"));
           })
        << QStringLiteral("CreateFileGroup")
        << QStringLiteral("KavroClient::CreateFG: guid='G' group='grp' path='/p/' detail='det' comment='com' "
                          "user='user' type='11'")
        << QStringList{QStringLiteral("<m:TeamMembership>team</m:TeamMembership><m:UserName>user</m:UserName>")};
    QTest::newRow("CreateRovecFileGroup")
        << Request([G](CommandSender &s) {
               return s.CreateRovecFileGroup(QStringLiteral("IpAddress"), QStringLiteral("rv"), QStringLiteral("rec"),
                                             QStringLiteral("det"), QStringLiteral("com"), QString(),
                                             FileTypeRovecIqRecording, QStringLiteral("/p/"), G);
           })
        << QStringLiteral("CreateRovecFileGroup")
        << QStringLiteral("KavroClient::CreateRovecFG: guid='G' rovec='rv' record='rec' detail='det' comment='com' "
                          "user='user' subsystem='IpAddress' type='19' filepath='/p/'")
        << QStringList{QStringLiteral("<m:SubSystemName>IpAddress</m:SubSystemName>")};
    QTest::newRow("DeleteFileGroup") << Request([G](CommandSender &s) {
        return s.DeleteFileGroup(G, false);
    }) << QStringLiteral("DeleteFileGroup")
                                     << QStringLiteral("KavroClient::DeleteFG: guid='G' shallow='false'")
                                     << QStringList{QStringLiteral("<m:ShallowDelete>false</m:ShallowDelete>")};
    QTest::newRow("CheckFileGroupExists") << Request([G](CommandSender &s) {
        return s.CheckFileGroupExists(G);
    }) << QStringLiteral("CheckFileGroupExists")
                                          << QString() << QStringList();
    QTest::newRow("QueryMetaData") << Request([G](CommandSender &s) {
        return s.QueryMetaData(G, QStringLiteral("other"));
    }) << QStringLiteral("QueryMetaData")
                                   << QStringLiteral("KavroClient::QueryMetaData: guid='G' app='other'")
                                   << QStringList{QStringLiteral("<m:Application>other</m:Application>")};
    QTest::newRow("QueryLocationStateProgress") << Request([G](CommandSender &s) {
        return s.QueryLocationStateProgress(G);
    }) << QStringLiteral("QueryLocationStateProgress")
                                                << QString() << QStringList();
    QTest::newRow("AddFile") << Request([G](CommandSender &s) {
        return s.AddFile(G, QStringLiteral("x.bin"), 0);
    }) << QStringLiteral("AddFile")
                             << QStringLiteral("KavroClient::AddFile: guid='G' fileid='0' filename='x.bin'")
                             << QStringList();
    QTest::newRow("DeleteFile") << Request([G](CommandSender &s) {
        return s.DeleteFile(G, 4);
    }) << QStringLiteral("DeleteFile")
                                << QStringLiteral("KavroClient::DeleteFile: guid='G' fileid='4'") << QStringList();
    QTest::newRow("RequestFile") << Request([G](CommandSender &s) {
        return s.RequestFile(G, 4, LockWrite);
    }) << QStringLiteral("RequestFile")
                                 << QStringLiteral(
                                        "KavroClient::RequestFile: guid='G' fileid='4' lock='3' lockid='G|4|user'")
                                 << QStringList{
                                        QStringLiteral("<m:WriteLock>true</m:WriteLock><m:UserName>user</m:UserName>")};
    QTest::newRow("RequestFile to read") << Request([G](CommandSender &s) {
        return s.RequestFile(G, 4, LockRead);
    }) << QStringLiteral("RequestFile")
                                         << QStringLiteral("KavroClient::RequestFile: guid='G' fileid='4' lock='2' "
                                                           "lockid='G|4|user'")
                                         << QStringList{QStringLiteral("<m:WriteLock>false</m:WriteLock>")};
    QTest::newRow("CloseFile") << Request([G](CommandSender &s) {
        return s.CloseFile(G, 4);
    }) << QStringLiteral("CloseFile")
                               << QStringLiteral("KavroClient::CloseFile: guid='G' fileid='4'")
                               << QStringList{QStringLiteral("<m:UserName>user</m:UserName>")};
    QTest::newRow("MoveToNas") << Request([G](CommandSender &s) {
        return s.MoveToNas(G);
    }) << QStringLiteral("MoveToNas")
                               << QStringLiteral("KavroClient::MoveToNas: guid='G' user='user'")
                               << QStringList{QStringLiteral("<m:UserName>user</m:UserName>")};
    QTest::newRow("AddReference") << Request([G](CommandSender &s) {
        return s.AddReference(G, QStringLiteral("app"));
    }) << QStringLiteral("AddReference")
                                  << QStringLiteral("KavroClient::AddRef: guid='G' app='app'") << QStringList();
    QTest::newRow("RemoveReference") << Request([G](CommandSender &s) {
        return s.RemoveReference(G, QStringLiteral("app"));
    }) << QStringLiteral("RemoveReference")
                                     << QStringLiteral("KavroClient::RemoveReference: guid='G'") << QStringList();
    QTest::newRow("RemoveAllReferences") << Request([G](CommandSender &s) {
        return s.RemoveAllReferences(G, QStringLiteral("app"));
    }) << QStringLiteral("RemoveAllReferences")
                                         << QStringLiteral("KavroClient::RemoveAllReferences: guid='G'")
                                         << QStringList();
    QTest::newRow("GetApplicationList") << Request([](CommandSender &s) {
        return s.GetApplicationList();
    }) << QStringLiteral("GetApplicationList")
                                        << QString() << QStringList();
    QTest::newRow("GetUserList") << Request([](CommandSender &s) {
        return s.GetUserList();
    }) << QStringLiteral("GetUserList")
                                 << QString() << QStringList();
    QTest::newRow("GetFileList") << Request([G](CommandSender &s) {
        return s.GetFileList(G);
    }) << QStringLiteral("GetFileList")
                                 << QString() << QStringList();
    QTest::newRow("QueryFileGroups") << Request([](CommandSender &s) {
        return s.QueryFileGroups(FileQuery());
    }) << QStringLiteral("QueryFileGroups")
                                     << QString()
                                     << QStringList{QStringLiteral("<m:Application>app</m:Application>"),
                                                    QStringLiteral("<m:User>user</m:User>")};
    QTest::newRow("ExportArchive") << Request([G](CommandSender &s) {
        return s.ExportArchive(QStringLiteral("/out"), {G});
    }) << QStringLiteral("ExportArchive")
                                   << QString() << QStringList();
    QTest::newRow("ImportArchive") << Request([](CommandSender &s) {
        return s.ImportArchive({QStringLiteral("/a")});
    }) << QStringLiteral("ImportArchive")
                                   << QString() << QStringList();
    QTest::newRow("RegisterConverter") << Request([](CommandSender &s) {
        return s.RegisterConverter(QStringLiteral("c"), {FileTypeImage});
    }) << QStringLiteral("RegisterConverter")
                                       << QString() << QStringList();
}

void tst_CommandSender::requests()
{
    QFETCH(Request, request);
    QFETCH(QString, command);
    QFETCH(QString, trace);
    QFETCH(QStringList, contains);

    QVERIFY(startConnected());
    QSignalSpy handled(m_sender.get(), &CommandSender::si_requestHandled);
    const TraceCapture capture;
    const QString requestId = request(*m_sender);
    QCOMPARE(requestId.size(), 36);
    QCOMPARE(capture.texts(), trace.isEmpty() ? QStringList() : QStringList{trace});

    QVERIFY(m_server->waitForFrames(2));
    const QByteArray sent = m_server->frames().at(1);
    QCOMPARE(FakeServer::commandOf(sent), command);
    QCOMPARE(FakeServer::requestIdOf(sent), requestId);
    for (const QString &part : contains)
        QVERIFY2(sent.contains(part.toUtf8()), sent.constData());
    QVERIFY(handled.wait());
    QCOMPARE(handled.last().at(0).toString(), requestId);
}

void tst_CommandSender::replies_data()
{
    QTest::addColumn<QByteArray>("document");
    QTest::addColumn<QByteArray>("signal");
    QTest::addColumn<QVariantList>("arguments");
    QTest::addColumn<QString>("trace"); // empty: none
    QTest::addColumn<int>("lastError");

    // The last error is the one the signal carries, or \a lastError for signals without one.
    const auto row = [](const char *tag, const char *command, const QByteArray &fields, const char *signal,
                        const QVariantList &arguments, const QString &trace = QString(), int lastError = 0) {
        const bool carriesError =
            arguments.size() >= 3 && arguments.at(arguments.size() - 2).typeId() == QMetaType::Int;
        QTest::newRow(tag) << FakeServer::soapReply(s_id, command, fields) << QByteArray(signal) << arguments << trace
                           << (carriesError ? arguments.at(arguments.size() - 2).toInt() : lastError);
    };
    const FileGroupData first = sampleGroup("g1");
    const FileGroupData second = sampleGroup("g2");
    QStringList table;
    FileGroupData::GetHeaders(table);
    first.ToStringList(table);
    second.ToStringList(table);

    row("create", "CreateFileGroupReply", "<m:Guid>g</m:Guid><m:Path>/p</m:Path>" + errorFields(0, ""),
        "createFileGroupReply(QString,QString)", {QStringLiteral("g"), QStringLiteral("/p")});
    row("add file", "AddFileReply", "<m:FileId>9</m:FileId>" + errorFields(0, ""), "addFileReply(QString,uint)",
        {s_id, 9u});
    row("error 70 becomes 1", "DeleteFileReply", errorFields(70), "deleteFileReply(QString,int,QString)",
        {s_id, 1, QStringLiteral("x")}, QStringLiteral("Error while deleting file group: x (1)"));
    row("error 69 passes", "CloseFileReply", errorFields(69), "closeFileReply(QString,int,QString)",
        {s_id, 69, QStringLiteral("x")}, QStringLiteral("Error while closing file: x (69)"));
    row("negative error passes", "MoveToNasReply", errorFields(-4), "moveToNasReply(QString,int,QString)",
        {s_id, -4, QStringLiteral("x")}, QStringLiteral("Error while moving to NAS: x (-4)"));
    row("request file", "RequestFileReply", "<m:Path>/f</m:Path>" + errorFields(0, ""),
        "requestFileReply(QString,QString,int,QString)", {s_id, QStringLiteral("/f"), 0, QString()});
    row("add reference", "AddReferenceReply", errorFields(31), "addReferenceReply(QString,int,QString)",
        {s_id, 31, QStringLiteral("x")}, QStringLiteral("Error while adding reference: x (31)"));
    row("remove reference", "RemoveReferenceReply", errorFields(32), "removeReferenceReply(QString,int,QString)",
        {s_id, 32, QStringLiteral("x")}, QStringLiteral("Error while removing reference: x (32)"));
    row("remove all references", "RemoveAllReferencesReply", errorFields(500),
        "removeAllReferenceReply(QString,int,QString)", {s_id, 1, QStringLiteral("x")},
        QStringLiteral("Error while removing all references: x (1)"));
    row("metadata error uses the code's text", "QueryMetaDataReply", groupXml(first) + errorFields(3, "server text"),
        "queryMetaDataReply(QString,Kavro::FileGroupData,int,QString)",
        {s_id, QVariant::fromValue(first), 3, QStringLiteral("File group Id not found")},
        QStringLiteral("the filegroup meta data request returned the error: File group Id not found"));
    row("applications", "GetApplicationListReply",
        "<m:Applications><m:Application>a</m:Application></m:Applications>" + errorFields(0, ""),
        "getApplicationListReply(QString,QStringList,int,QString)",
        {s_id, QStringList{QStringLiteral("a")}, 0, QString()});
    row("files", "GetFileListReply",
        "<m:Files><m:File><m:FileId>7</m:FileId><m:FileName>f</m:FileName></m:File></m:Files>" + errorFields(19),
        "getFileListReply(QString,QStringList,int,QString)",
        {s_id, QStringList{QStringLiteral("7"), QStringLiteral("f")}, 19, QStringLiteral("x")},
        QStringLiteral("Error while getting file list: x (19)"));
    row("users", "GetUserListReply", "<m:Users><m:User>u</m:User></m:Users>" + errorFields(0, ""),
        "getUserListReply(QString,QStringList,int,QString)", {s_id, QStringList{QStringLiteral("u")}, 0, QString()});
    row("query shares the user-list text", "QueryFileGroupsReply", groupXml(first) + groupXml(second) + errorFields(19),
        "queryFileGroupsReply(QString,QStringList,int,int,QString)", {s_id, table, 16, 19, QStringLiteral("x")},
        QStringLiteral("Error while getting user list: x (19)"));
    row("export", "ExportArchiveReply", errorFields(52), "exportArchiveReply(QString,int,QString)",
        {s_id, 52, QStringLiteral("x")}, QStringLiteral("Error while exporting archive: x (52)"));
    row("import", "ImportArchiveReply", errorFields(50), "importArchiveReply(QString,int,QString)",
        {s_id, 50, QStringLiteral("x")}, QStringLiteral("Error while importing archive: x (50)"));
    row("rovec", "CreateRovecFileGroupReply", "<m:Guid>g</m:Guid><m:Path>/r</m:Path>" + errorFields(36),
        "createRovecFileGroupReply(QString,QString,int,QString)",
        {QStringLiteral("g"), QStringLiteral("/r"), 36, QStringLiteral("x")},
        QStringLiteral("Error while creating file group: x (36)"));
    row("converter has no limit", "RegisterConverterReply", errorFields(75),
        "registerConverterReply(QString,int,QString)", {s_id, 75, QStringLiteral("x")},
        QStringLiteral("Error while getting register converter reply: x (75)"));
    row("delete group", "DeleteFileGroupReply", errorFields(14), "deleteFileGroupReply(QString,int,QString)",
        {s_id, 14, QStringLiteral("x")}, QStringLiteral("Error while getting delete filegroup reply: x (14)"));
    row("progress has no limit", "QueryLocationStateProgressReply",
        "<m:LocationState>3</m:LocationState><m:CopyProgress>42.5</m:CopyProgress>" + errorFields(71),
        "queryLocationStateProgressReply(QString,int,double,int,QString)", {s_id, 3, 42.5, 71, QStringLiteral("x")},
        QStringLiteral("Error while getting QueryLocationStateProgress reply: x (71)"));
    row("exists shares the progress text", "CheckFileGroupExistsReply", "<m:Exists>true</m:Exists>" + errorFields(99),
        "checkFileGroupExistsReply(QString,bool,int,QString)", {s_id, true, 99, QStringLiteral("x")},
        QStringLiteral("Error while getting QueryLocationStateProgress reply: x (99)"));
    row("exists only for the exact text", "CheckFileGroupExistsReply", "<m:Exists>TRUE</m:Exists>" + errorFields(0, ""),
        "checkFileGroupExistsReply(QString,bool,int,QString)", {s_id, false, 0, QString()});
    row("copy progress from the server", "CopyForeignFileGroupProgress",
        "<m:CopyProgress>12.5</m:CopyProgress>" + errorFields(80), "copyForeignFileGroupProgess(QString,float)",
        {s_id, 12.5f}, QStringLiteral("Error while getting progress: x (80)"), 80);
    row("conversion request", "ConvertFileGroup", "<m:Guid>g</m:Guid><m:FileType>5</m:FileType><m:Path>/in</m:Path>",
        "convertFileGroupRequested(QString,FileType,QString)",
        {QStringLiteral("g"), QVariant::fromValue(FileTypeDecodedTextXml), QStringLiteral("/in")});
    QTest::newRow("unreadable metadata keeps its reading error")
        << FakeServer::soapReply(s_id, "QueryMetaDataReply", "<m:Error>x</m:Error>")
        << QByteArray("queryMetaDataReply(QString,Kavro::FileGroupData,int,QString)")
        << QVariantList{s_id, QVariant::fromValue(FileGroupData()), 57,
                        QStringLiteral("Expected a number, but got x at line 1, column 243")}
        << QString() << 57;
    const QString cut =
        QStringLiteral("Expected one of Guid, Path, Error, ErrorString, /CreateRovecFileGroupReply, but "
                       "got end of document at line 1, column 250");
    QTest::newRow("unreadable reply still handed on")
        << FakeServer::soapReply(s_id, "CreateRovecFileGroupReply", "<m:Guid>g</m:Guid>").left(250)
        << QByteArray("createRovecFileGroupReply(QString,QString,int,QString)")
        << QVariantList{QStringLiteral("g"), QString(), 57, cut}
        << QStringLiteral("Error while creating file group: %1 (57)").arg(cut) << 57;
}

void tst_CommandSender::replies()
{
    QFETCH(QByteArray, document);
    QFETCH(QByteArray, signal);
    QFETCH(QVariantList, arguments);
    QFETCH(QString, trace);
    QFETCH(int, lastError);

    QVERIFY(startConnected());
    QSignalSpy replied(m_sender.get(), QByteArray("2" + signal).constData());
    QVERIFY(replied.isValid());
    QSignalSpy handled(m_sender.get(), &CommandSender::si_requestHandled);
    const TraceCapture capture;

    m_server->send(document);
    QVERIFY(handled.wait());
    QCOMPARE(handled.at(0).at(0).toString(), s_id);
    QCOMPARE(replied.size(), 1);
    QCOMPARE(replied.at(0), arguments);
    QCOMPARE(capture.texts(), trace.isEmpty() ? QStringList() : QStringList{trace});
    QCOMPARE(m_sender->GetLastError(), lastError);
}

void tst_CommandSender::unknownCommand()
{
    QVERIFY(startConnected());
    QSignalSpy handled(m_sender.get(), &CommandSender::si_requestHandled);
    const TraceCapture capture;
    m_server->send(FakeServer::soapReply(s_id, "FutureReply", "<m:Whatever/>"));
    QVERIFY(handled.wait());
    QCOMPARE(handled.at(0).at(0).toString(), s_id);
    QCOMPARE(capture.texts(), QStringList{QStringLiteral("CommandSender::SlotHandleXmlReply: Unknown command: -1")});
}

void tst_CommandSender::waiters_data()
{
    QTest::addColumn<QByteArray>("replyName"); // empty: the request's own reply
    QTest::addColumn<int>("error");

    QTest::newRow("own reply") << QByteArray() << 0;
    QTest::newRow("reply of another command") << QByteArray("AddFileReply") << int(ErrorReplyCommandMismatch);
    QTest::newRow("unknown reply") << QByteArray("FutureReply") << int(ErrorUnknownReplyCommand);
}

void tst_CommandSender::waiters()
{
    QFETCH(QByteArray, replyName);
    QFETCH(int, error);

    QVERIFY(startConnected());
    m_replyTo = replyName;
    RecordingWaiter waiter;
    const QString id = CommandSender::newRequestId();
    m_sender->addWaiter(id, &waiter);
    QSignalSpy handled(m_sender.get(), &CommandSender::si_requestHandled);
    QCOMPARE(m_sender->GetUserList(id), id);
    QVERIFY(handled.wait());
    m_sender->removeWaiter(id);
    QVERIFY(waiter.handled);
    QCOMPARE(waiter.error, error);
}

void tst_CommandSender::waiterReleasedByDisconnect()
{
    QVERIFY(startConnected());
    RecordingWaiter waiter;
    m_sender->addWaiter(QStringLiteral("pending"), &waiter);
    QSignalSpy disconnected(m_sender.get(), &CommandSender::disconnected);
    m_server->dropClient();
    QVERIFY(disconnected.wait());
    QCOMPARE(waiter.failedWith, int(ErrorNotConnected));
    QVERIFY(!waiter.handled);
    m_sender->removeWaiter(QStringLiteral("pending"));
}

void tst_CommandSender::xmlErrorKeepsTheConnection()
{
    QVERIFY(startConnected());
    const TraceCapture capture;
    m_sender->SlotHandleXmlError(QStringLiteral("bad token"), true);
    m_sender->SlotHandleXmlError(QStringLiteral("worse"));
    const QString peer = QStringLiteral("127.0.0.1:%1").arg(m_server->port());
    QCOMPARE(
        capture.texts(),
        QStringList({QStringLiteral("CommandSender::HandleXmlError: XML parse error from %1: bad token").arg(peer),
                     QStringLiteral("CommandSender::HandleXmlError: XML parse error from %1: worse").arg(peer),
                     QStringLiteral("CommandSender::HandleXmlError: Cannot recover from error. Closing connection.")}));
    QVERIFY(m_sender->CheckIsConnected());
}

void tst_CommandSender::conversionAnswerDoesNotTakeTheLine()
{
    QVERIFY(startConnected());
    m_sender->ConvertFileGroupReply(QStringLiteral("g"), 66, QStringLiteral("later"));
    m_server->setResponder(nullptr); // nothing is answered from now on
    m_sender->GetUserList();
    QVERIFY(m_server->waitForFrames(3));
    const QByteArray answer = m_server->frames().at(1);
    QCOMPARE(FakeServer::commandOf(answer), QStringLiteral("ConvertFileGroupReply"));
    QVERIFY(answer.contains("<m:Guid>g</m:Guid><m:Error>66</m:Error><m:ErrorString>later</m:ErrorString>"));
    QCOMPARE(FakeServer::commandOf(m_server->frames().at(2)), QStringLiteral("GetUserList"));
}

QTEST_GUILESS_MAIN(tst_CommandSender)
#include "tst_commandsender.moc"
