// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "commandsender_p.h"
#include "fakearchive.h"
#include "soapmessage_p.h"
#include "tracecapture.h"

#include <kavro/filequery.h>

#include <QTest>

#include <memory>

using namespace Kavro;

namespace
{
const QString s_id = QStringLiteral("R-1");

QByteArray errorFields(int error, const char *text = "x")
{
    return "<m:Error>" + QByteArray::number(error) + "</m:Error><m:ErrorString>" + text + "</m:ErrorString>";
}

// A group named "n" of type 11 without files, as the reply holds it.
FileGroupData group(const char *guid)
{
    FileGroupData group;
    group.setGuid(QLatin1String(guid));
    group.setName(QStringLiteral("n"));
    group.setFileType(FileTypeImage);
    return group;
}

// Sends \a command with fixed arguments: group "G", file 4, application "other".
QString sendRequest(CommandSender &s, const QByteArray &command)
{
    const QString G = QStringLiteral("G");
    const QString other = QStringLiteral("other");
    if (command == "CreateFileGroup")
        return s.CreateFileGroup(QStringLiteral("1.0"), QDateTime(), QStringLiteral("det"), QStringLiteral("com"),
                                 FileTypeImage, 10, QStringLiteral("grp"), G, QStringLiteral("/p/"));
    if (command == "CreateRovecFileGroup")
        return s.CreateRovecFileGroup(QStringLiteral("IpAddress"), QStringLiteral("rv"), QStringLiteral("rec"),
                                      QStringLiteral("det"), QStringLiteral("com"), QString(), FileTypeRovecIqRecording,
                                      QStringLiteral("/p/"), G);
    if (command == "DeleteFileGroup")
        return s.DeleteFileGroup(G, false);
    if (command == "QueryMetaData")
        return s.QueryMetaData(G, other);
    if (command == "AddFile")
        return s.AddFile(G, QStringLiteral("x.bin"), 0);
    if (command == "DeleteFile")
        return s.DeleteFile(G, 4);
    if (command == "RequestFile")
        return s.RequestFile(G, 4, LockWrite);
    if (command == "CloseFile")
        return s.CloseFile(G, 4);
    if (command == "MoveToNas")
        return s.MoveToNas(G);
    if (command == "AddReference")
        return s.AddReference(G, other);
    if (command == "RemoveReference")
        return s.RemoveReference(G, other);
    if (command == "RemoveAllReferences")
        return s.RemoveAllReferences(G, other);
    return s.QueryFileGroups(FileQuery());
}
} // namespace

class tst_CommandSender : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup()
    {
        m_sender.reset();
        m_env.reset();
    }
    void connectedOnceAfterBasePath_data();
    void connectedOnceAfterBasePath();
    void requests_data();
    void requests();
    void replies_data();
    void replies();
    void xmlErrorKeepsTheConnection();
    void conversionAnswerDoesNotTakeTheLine();

private:
    bool startConnected()
    {
        QSignalSpy connected(m_sender.get(), &CommandSender::connected);
        m_sender->start();
        return connected.wait(10000) && m_sender->CheckIsConnected();
    }

    std::unique_ptr<FakeArchive> m_env;
    std::unique_ptr<CommandSender> m_sender;
};

void tst_CommandSender::init()
{
    m_env = std::make_unique<FakeArchive>();
    m_env->server.setSilent(QStringLiteral("ConvertFileGroupReply")); // an answer, not a request
    m_sender = std::make_unique<CommandSender>(QStringLiteral("127.0.0.1"), m_env->server.port(), QStringLiteral("app"),
                                               QStringLiteral("user"), QStringLiteral("team"));
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
    m_env->server.setReplyFields(QStringLiteral("GetBasePath"), "<m:Path>/store</m:Path>" + errorFields(basePathError));
    m_sender->setCheckInterval(30);
    QSignalSpy connected(m_sender.get(), &CommandSender::connected);
    m_sender->start();
    m_sender->start(); // a second start changes nothing (and frees nothing twice)
    QVERIFY(connected.wait());
    QCOMPARE(connected.at(0).at(0).toString(), QStringLiteral("/store"));
    QCOMPARE(FakeServer::commandOf(m_env->server.frames().first()), QStringLiteral("GetBasePath"));

    // The keep-alive asks again; its answers announce nothing.
    QVERIFY(m_env->server.waitForFrames(3));
    for (const QByteArray &frame : m_env->server.frames())
        QCOMPARE(FakeServer::commandOf(frame), QStringLiteral("GetBasePath"));
    QCOMPARE(connected.size(), 1);
}

void tst_CommandSender::requests_data()
{
    QTest::addColumn<QByteArray>("command");
    QTest::addColumn<QString>("trace"); // empty: none
    QTest::addColumn<QByteArrayList>("sent"); // parts of the request

    const auto row = [](const char *command, const char *trace, const QByteArrayList &sent = {}) {
        QTest::newRow(command) << QByteArray(command) << QString::fromLatin1(trace) << sent;
    };
    row("CreateFileGroup",
        "KavroClient::CreateFG: guid='G' group='grp' path='/p/' detail='det' comment='com' user='user' type='11'",
        {"<m:TeamMembership>team</m:TeamMembership><m:UserName>user</m:UserName>"});
    row("CreateRovecFileGroup",
        "KavroClient::CreateRovecFG: guid='G' rovec='rv' record='rec' detail='det' comment='com' user='user' "
        "subsystem='IpAddress' type='19' filepath='/p/'",
        {"<m:TeamMembership>team</m:TeamMembership><m:UserName>user</m:UserName>"});
    row("DeleteFileGroup", "KavroClient::DeleteFG: guid='G' shallow='false'",
        {"<m:ShallowDelete>false</m:ShallowDelete>"});
    const QByteArray other = "<m:Guid>G</m:Guid><m:Application>other</m:Application>";
    row("QueryMetaData", "KavroClient::QueryMetaData: guid='G' app='other'", {other});
    row("AddFile", "KavroClient::AddFile: guid='G' fileid='0' filename='x.bin'");
    row("DeleteFile", "KavroClient::DeleteFile: guid='G' fileid='4'", {"<m:Guid>G</m:Guid><m:FileId>4</m:FileId>"});
    row("RequestFile", "KavroClient::RequestFile: guid='G' fileid='4' lock='3' lockid='G|4|user'",
        {"<m:Guid>G</m:Guid><m:FileId>4</m:FileId><m:WriteLock>true</m:WriteLock><m:UserName>user</m:UserName>"});
    row("CloseFile", "KavroClient::CloseFile: guid='G' fileid='4'", {"<m:UserName>user</m:UserName>"});
    row("MoveToNas", "KavroClient::MoveToNas: guid='G' user='user'", {"<m:UserName>user</m:UserName>"});
    row("AddReference", "KavroClient::AddRef: guid='G' app='other'", {other});
    row("RemoveReference", "KavroClient::RemoveReference: guid='G'", {other});
    row("RemoveAllReferences", "KavroClient::RemoveAllReferences: guid='G'", {other});
    row("QueryFileGroups", "", {"<m:Application>app</m:Application>", "<m:User>user</m:User>"});
}

void tst_CommandSender::requests()
{
    QFETCH(QByteArray, command);
    QFETCH(QString, trace);
    QFETCH(QByteArrayList, sent);

    QVERIFY(startConnected());
    QSignalSpy handled(m_sender.get(), &CommandSender::si_requestHandled);
    const TraceCapture capture;
    const QString requestId = sendRequest(*m_sender, command);
    QCOMPARE(capture.texts(), trace.isEmpty() ? QStringList() : QStringList{trace});

    QVERIFY(m_env->server.waitForFrames(2));
    const QByteArray request = m_env->server.frames().at(1);
    QCOMPARE(FakeServer::commandOf(request), QString::fromLatin1(command));
    QCOMPARE(FakeServer::requestIdOf(request), requestId);
    for (const QByteArray &part : sent)
        QVERIFY2(request.contains(part), request.constData());
    QVERIFY(handled.wait());
    QCOMPARE(handled.last().at(0).toString(), requestId);
}

void tst_CommandSender::replies_data()
{
    QTest::addColumn<QByteArray>("document");
    QTest::addColumn<QByteArray>("signal"); // its name
    QTest::addColumn<QVariantList>("arguments");
    QTest::addColumn<QString>("trace"); // empty: none
    QTest::addColumn<int>("lastError");

    // The signal is named after the reply unless given; the last error is the one it carries, else \a lastError.
    const auto row = [](const char *tag, const char *command, const QByteArray &fields, const QVariantList &arguments,
                        const QString &trace = QString(), int lastError = 0, const char *signal = nullptr) {
        const bool carriesError =
            arguments.size() >= 3 && arguments.at(arguments.size() - 2).typeId() == QMetaType::Int;
        QTest::newRow(tag) << FakeServer::soapReply(s_id, command, fields)
                           << (signal ? QByteArray(signal)
                                      : QByteArray(command).left(1).toLower() + QByteArray(command + 1))
                           << arguments << trace
                           << (carriesError ? arguments.at(arguments.size() - 2).toInt() : lastError);
    };
    // A reply of \a error whose signal carries the request id, the error handed on and its text.
    const auto errorRow = [&row](const char *tag, const char *command, int error, int handedOn, const char *trace,
                                 const char *signal = nullptr) {
        row(tag, command, errorFields(error), {s_id, handedOn, QStringLiteral("x")},
            QStringLiteral("%1: x (%2)").arg(QLatin1String(trace)).arg(handedOn), 0, signal);
    };
    const QByteArray ok = errorFields(0, "");
    const QString x = QStringLiteral("x");
    const FileGroupData first = group("g1");
    const FileGroupData second = group("g2");

    row("create", "CreateFileGroupReply", "<m:Guid>g</m:Guid><m:Path>/p</m:Path>" + ok,
        {QStringLiteral("g"), QStringLiteral("/p")});
    row("add file", "AddFileReply", "<m:FileId>9</m:FileId>" + ok, {s_id, 9u});
    errorRow("error 70 becomes 1", "DeleteFileReply", 70, 1, "Error while deleting file group");
    errorRow("error 69 passes", "CloseFileReply", 69, 69, "Error while closing file");
    errorRow("negative error passes", "MoveToNasReply", -4, -4, "Error while moving to NAS");
    errorRow("add reference", "AddReferenceReply", 31, 31, "Error while adding reference");
    errorRow("remove reference", "RemoveReferenceReply", 32, 32, "Error while removing reference");
    errorRow("remove all references", "RemoveAllReferencesReply", 500, 1, "Error while removing all references",
             "removeAllReferenceReply");
    errorRow("export", "ExportArchiveReply", 52, 52, "Error while exporting archive");
    errorRow("import", "ImportArchiveReply", 50, 50, "Error while importing archive");
    errorRow("converter has no limit", "RegisterConverterReply", 75, 75,
             "Error while getting register converter reply");
    errorRow("delete group", "DeleteFileGroupReply", 14, 14, "Error while getting delete filegroup reply");
    row("request file", "RequestFileReply", "<m:Path>/f</m:Path>" + ok, {s_id, QStringLiteral("/f"), 0, QString()});
    row("metadata error uses the code's text", "QueryMetaDataReply",
        FakeServer::groupXml("g1") + errorFields(3, "server text"),
        {s_id, QVariant::fromValue(first), 3, QStringLiteral("File group Id not found")},
        QStringLiteral("the filegroup meta data request returned the error: File group Id not found"));
    row("applications", "GetApplicationListReply",
        "<m:Applications><m:Application>a</m:Application></m:Applications>" + ok,
        {s_id, QStringList{QStringLiteral("a")}, 0, QString()});
    row("files", "GetFileListReply",
        "<m:Files><m:File><m:FileId>7</m:FileId><m:FileName>f</m:FileName></m:File></m:Files>" + errorFields(19),
        {s_id, QStringList{QStringLiteral("7"), QStringLiteral("f")}, 19, x},
        QStringLiteral("Error while getting file list: x (19)"));
    row("users", "GetUserListReply", "<m:Users><m:User>u</m:User></m:Users>" + ok,
        {s_id, QStringList{QStringLiteral("u")}, 0, QString()});
    row("query shares the user-list text", "QueryFileGroupsReply",
        FakeServer::groupXml("g1") + FakeServer::groupXml("g2") + errorFields(19),
        {s_id, QVariant::fromValue(QList<FileGroupData>{first, second}), 19, x},
        QStringLiteral("Error while getting user list: x (19)"), 0, "queryFileGroupRecordsReply");
    row("rovec", "CreateRovecFileGroupReply", "<m:Guid>g</m:Guid><m:Path>/r</m:Path>" + errorFields(36),
        {QStringLiteral("g"), QStringLiteral("/r"), 36, x}, QStringLiteral("Error while creating file group: x (36)"));
    row("progress has no limit", "QueryLocationStateProgressReply",
        "<m:LocationState>3</m:LocationState><m:CopyProgress>42.5</m:CopyProgress>" + errorFields(71),
        {s_id, 3, 42.5, 71, x}, QStringLiteral("Error while getting QueryLocationStateProgress reply: x (71)"));
    row("exists shares the progress text", "CheckFileGroupExistsReply", "<m:Exists>true</m:Exists>" + errorFields(99),
        {s_id, true, 99, x}, QStringLiteral("Error while getting QueryLocationStateProgress reply: x (99)"));
    row("exists only for the exact text", "CheckFileGroupExistsReply", "<m:Exists>TRUE</m:Exists>" + ok,
        {s_id, false, 0, QString()});
    row("copy progress from the server", "CopyForeignFileGroupProgress",
        "<m:CopyProgress>12.5</m:CopyProgress>" + errorFields(80), {s_id, 12.5f},
        QStringLiteral("Error while getting progress: x (80)"), 80, "copyForeignFileGroupProgess");
    row("unknown reply", "FutureReply", "<m:Whatever/>", {s_id},
        QStringLiteral("CommandSender::SlotHandleXmlReply: Unknown command: -1"), int(ErrorUnknownReplyCommand),
        "si_requestHandled");
    row("unreadable metadata keeps its reading error", "QueryMetaDataReply", "<m:Error>x</m:Error>",
        {s_id, QVariant::fromValue(FileGroupData()), 57,
         QStringLiteral("Expected a number, but got x at line 1, column 243")});
    const QString cut =
        QStringLiteral("Expected one of Guid, Path, Error, ErrorString, /CreateRovecFileGroupReply, but "
                       "got end of document at line 1, column 250");
    QTest::newRow("unreadable reply still handed on")
        << FakeServer::soapReply(s_id, "CreateRovecFileGroupReply", "<m:Guid>g</m:Guid>").left(250)
        << QByteArray("createRovecFileGroupReply") << QVariantList{QStringLiteral("g"), QString(), 57, cut}
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
    const QMetaObject &meta = CommandSender::staticMetaObject;
    QMetaMethod method;
    for (int i = 0; i < meta.methodCount() && !method.isValid(); ++i) {
        if (meta.method(i).methodType() == QMetaMethod::Signal && meta.method(i).name() == signal)
            method = meta.method(i);
    }
    QSignalSpy replied(m_sender.get(), method);
    QVERIFY(replied.isValid());
    QSignalSpy handled(m_sender.get(), &CommandSender::si_requestHandled);
    const TraceCapture capture;

    m_env->server.send(document);
    QVERIFY(handled.wait());
    QCOMPARE(handled.at(0).at(0).toString(), s_id);
    QCOMPARE(replied.size(), 1);
    QCOMPARE(replied.at(0), arguments);
    QCOMPARE(capture.texts(), trace.isEmpty() ? QStringList() : QStringList{trace});
    QCOMPARE(m_sender->GetLastError(), lastError);
}

void tst_CommandSender::xmlErrorKeepsTheConnection()
{
    QVERIFY(startConnected());
    const TraceCapture capture;
    m_sender->SlotHandleXmlError(QStringLiteral("bad token"), true);
    m_sender->SlotHandleXmlError(QStringLiteral("worse"));
    const QString peer = QStringLiteral("127.0.0.1:%1").arg(m_env->server.port());
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
    m_env->server.setResponder(nullptr); // nothing is answered from now on
    m_sender->GetUserList();
    QVERIFY(m_env->server.waitForFrames(3));
    const QByteArray answer = m_env->server.frames().at(1);
    QCOMPARE(FakeServer::commandOf(answer), QStringLiteral("ConvertFileGroupReply"));
    QVERIFY(answer.contains("<m:Guid>g</m:Guid><m:Error>66</m:Error><m:ErrorString>later</m:ErrorString>"));
    QCOMPARE(FakeServer::commandOf(m_env->server.frames().at(2)), QStringLiteral("GetUserList"));
}

QTEST_GUILESS_MAIN(tst_CommandSender)
#include "tst_commandsender.moc"
