// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "messages_p.h"

#include <kavro/filequery.h>

#include <QRegularExpression>
#include <QTest>
#include <QTimeZone>
#include <QXmlStreamReader>

#include <memory>

using namespace Kavro;

using Message = std::shared_ptr<KavroClientSOAPMessage>;
Q_DECLARE_METATYPE(Message)

namespace
{
const QString s_envelope = QStringLiteral("http://www.w3.org/2003/05/soap-envelope");
const QString s_service = QStringLiteral("http://kavro/8SP/KAVRO");

// What a request document says: its header and the fields of its command, as
// "Name=text" in document order, "Container/Name=text" inside containers.
struct Request {
    QString version;
    QString requestId;
    QString command;
    QStringList fields;
    QStringList faults;
};

void readFields(QXmlStreamReader &reader, const QString &path, Request *request)
{
    while (reader.readNextStartElement()) {
        if (reader.namespaceUri() != s_service || reader.prefix() != QLatin1String("m"))
            request->faults << QStringLiteral("field %1 not in m:").arg(reader.qualifiedName());
        const QString name = path + reader.name().toString();
        const bool container = name.endsWith(QLatin1String("TypeList")) || name.endsWith(QLatin1String("Time"))
            || name.endsWith(QLatin1String("LifeCycle"));
        const int before = request->fields.size();
        if (container && request->command == QLatin1String("QueryFileGroups"))
            readFields(reader, name + QLatin1Char('/'), request);
        if (request->fields.size() == before) // a text, or an empty container
            request->fields << name + QLatin1Char('=') + reader.readElementText();
    }
}

Request parse(const QByteArray &document)
{
    Request request;
    QXmlStreamReader reader(document);
    const auto expect = [&](const char *name, const QString &ns) {
        if (!reader.readNextStartElement() || reader.name() != QLatin1String(name) || reader.namespaceUri() != ns)
            request.faults << QStringLiteral("expected %1, got %2").arg(QLatin1String(name), reader.qualifiedName());
    };
    expect("Envelope", s_envelope);
    expect("Header", s_envelope);
    expect("Version", s_envelope);
    request.version = reader.readElementText();
    expect("RequestId", s_envelope);
    request.requestId = reader.readElementText();
    if (reader.readNextStartElement())
        request.faults << QStringLiteral("extra header field %1").arg(reader.name());
    expect("Body", s_envelope);
    if (reader.readNextStartElement() && reader.namespaceUri() == s_service)
        request.command = reader.name().toString();
    readFields(reader, QString(), &request);
    if (reader.hasError())
        request.faults << reader.errorString();
    return request;
}

QDateTime utc(int year, int month, int day, int hour, int minute, int second, int ms = 0)
{
    return QDateTime(QDate(year, month, day), QTime(hour, minute, second, ms), Qt::UTC);
}

FileQuery fullQuery()
{
    FileQuery query;
    query.SetCommentSearchText(QStringLiteral("c"));
    query.SetCreatorSearchText(QStringLiteral("never sent"));
    query.SetDetailSearchText(QStringLiteral("d"));
    query.SetFileGroupSearchText(QStringLiteral("n"));
    query.AddFileType(FileTypeImage);
    query.AddFileType(FileTypeRad);
    query.SetLocationState(LocationCentral);
    query.SetLockState(LockWrite);
    query.SetLockUser(QStringLiteral("lu"));
    query.SetBackupTimeMin(utc(2020, 1, 2, 3, 4, 5, 6));
    query.SetCreationTimeMax(QDateTime(QDate(2021, 6, 1), QTime(12, 0), QTimeZone(3600)));
    query.SetLifeCycleTimeMin(utc(2030, 1, 1, 0, 0, 0));
    query.SetLifeCycleTimeMax(utc(2031, 1, 1, 0, 0, 0));
    query.SetReferencingApplication(QStringLiteral("ra"));
    query.SetTeamMembershipSearchText(QStringLiteral("t"));
    query.SetVersionSearchText(QStringLiteral("v"));
    return query;
}
} // namespace

class tst_KavroClientSOAPMessage : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void requestDocument_data();
    void requestDocument();
    void exactEnvelope();
    void requestIds();
};

void tst_KavroClientSOAPMessage::requestDocument_data()
{
    QTest::addColumn<Message>("message");
    QTest::addColumn<QString>("command");
    QTest::addColumn<QStringList>("fields");

    const QString G = QStringLiteral("6f1c2a4e-0000-4000-8000-00000000abcd");
    const auto row = [](const char *tag, KavroClientSOAPMessage *message, const char *command, QStringList fields) {
        QTest::newRow(tag) << Message(message) << QString::fromLatin1(command) << fields;
    };
    const auto guid = [&G](const char *rest) -> QString {
        return QStringLiteral("Guid=") + G + QLatin1String(rest);
    };

    row("AddFile", new AddFileMessage(G, QStringLiteral("a b.txt"), 7), "AddFile",
        {QStringLiteral("Guid=") + G, QStringLiteral("FileName=a b.txt"), QStringLiteral("FileId=7")});
    row("AddFile with empty fields", new AddFileMessage(QString(), QString(), 0), "AddFile",
        {QStringLiteral("Guid="), QStringLiteral("FileName="), QStringLiteral("FileId=0")});
    row("AddReference", new AddReferenceMessage(G, QStringLiteral("viewer")), "AddReference",
        {guid(""), QStringLiteral("Application=viewer")});
    row("CheckFileGroupExists", new CheckFileGroupExistsMessage(G), "CheckFileGroupExists", {guid("")});
    row("CloseFile", new CloseFileMessage(G, 4294967295u, QStringLiteral("bob")), "CloseFile",
        {guid(""), QStringLiteral("FileId=4294967295"), QStringLiteral("UserName=bob")});
    row("ConvertFileGroupReply", new ConvertFileGroupReplyMessage(G, 66, QStringLiteral("not yet")),
        "ConvertFileGroupReply", {guid(""), QStringLiteral("Error=66"), QStringLiteral("ErrorString=not yet")});
    row("CreateFileGroup",
        new CreateFileGroupMessage(
            QStringLiteral("com"), G, QStringLiteral("det"), QStringLiteral("name"), FileTypeAudioRecording,
            QDateTime(QDate(2030, 5, 6), QTime(7, 8, 9, 10), QTimeZone(-7200)), 5000000000ull, QStringLiteral("team"),
            QStringLiteral("user"), QStringLiteral("1.0"), QStringLiteral("/store/x/")),
        "CreateFileGroup",
        {QStringLiteral("Comment=com"), guid(""), QStringLiteral("Detail=det"), QStringLiteral("FileGroupName=name"),
         QStringLiteral("FileType=10"), QStringLiteral("LifeCycle=2030-05-06 09:08:09.010"),
         QStringLiteral("ReservedStorage=5000000000"), QStringLiteral("TeamMembership=team"),
         QStringLiteral("UserName=user"), QStringLiteral("FileGroupVersion=1.0"), QStringLiteral("Path=/store/x/")});
    row("CreateRovecFileGroup",
        new CreateRovecFileGroupMessage(QStringLiteral("rv"), QStringLiteral("IpAddress"), QStringLiteral("rec"),
                                        QString(), QStringLiteral("det"), QStringLiteral("com"),
                                        FileTypeRovecIqRecording, QStringLiteral("team"), QStringLiteral("user"), G,
                                        QStringLiteral("/p")),
        "CreateRovecFileGroup",
        {QStringLiteral("RovecId=rv"), QStringLiteral("SubSystemName=IpAddress"), QStringLiteral("RecordId=rec"),
         QStringLiteral("FileGroupVersion="), QStringLiteral("Detail=det"), QStringLiteral("Comment=com"),
         QStringLiteral("FileType=19"), QStringLiteral("TeamMembership=team"), QStringLiteral("UserName=user"),
         guid(""), QStringLiteral("Path=/p")});
    row("DeleteFileGroup", new DeleteFileGroupMessage(G, true), "DeleteFileGroup",
        {guid(""), QStringLiteral("ShallowDelete=true")});
    row("DeleteFile", new DeleteFileMessage(G, 3), "DeleteFile", {guid(""), QStringLiteral("FileId=3")});
    row("ExportArchive", new ExportArchiveMessage(QStringLiteral("/out"), {QStringLiteral("a"), QStringLiteral("b")}),
        "ExportArchive", {QStringLiteral("Path=/out"), QStringLiteral("Guid=a"), QStringLiteral("Guid=b")});
    row("GetApplicationList", new GetApplicationListMessage, "GetApplicationList", {});
    row("GetBasePath", new GetBasePathMessage, "GetBasePath", {});
    row("GetFileList", new GetFileListMessage(G), "GetFileList", {guid("")});
    row("GetUserList", new GetUserListMessage, "GetUserList", {});
    row("ImportArchive", new ImportArchiveMessage({QStringLiteral("/a.zip"), QStringLiteral("/b.zip")}),
        "ImportArchive", {QStringLiteral("Path=/a.zip"), QStringLiteral("Path=/b.zip")});
    row("MoveToNas", new MoveToNasMessage(G, QStringLiteral("bob")), "MoveToNas",
        {guid(""), QStringLiteral("UserName=bob")});
    row("QueryFileGroups", new QueryFileGroupsMessage(fullQuery(), QStringLiteral("app"), QStringLiteral("me")),
        "QueryFileGroups",
        {QStringLiteral("Application=app"),
         QStringLiteral("CommentSearchText=c"),
         QStringLiteral("DetailSearchText=d"),
         QStringLiteral("FileGroupNameSearchText=n"),
         QStringLiteral("FileTypeList/FileType=11"),
         QStringLiteral("FileTypeList/FileType=17"),
         QStringLiteral("LocationState=2"),
         QStringLiteral("LockState=3"),
         QStringLiteral("LockUser=lu"),
         QStringLiteral("BackupTime/Min=2020-01-02 03:04:05.006"),
         QStringLiteral("BackupTime/Max="),
         QStringLiteral("CreationTime/Min="),
         QStringLiteral("CreationTime/Max=2021-06-01 11:00:00.000"),
         QStringLiteral("LifeCycle/Min=2030-01-01 00:00:00.000"),
         QStringLiteral("LifeCycle/Max=2031-01-01 00:00:00.000"),
         QStringLiteral("ModificationTime/Min="),
         QStringLiteral("ModificationTime/Max="),
         QStringLiteral("ReferencingApplication=ra"),
         QStringLiteral("TeamSearchText=t"),
         QStringLiteral("User=me"),
         QStringLiteral("VersionSearchText=v")});
    row("QueryFileGroups with an empty query", new QueryFileGroupsMessage(FileQuery(), QString(), QString()),
        "QueryFileGroups",
        {QStringLiteral("Application="),
         QStringLiteral("CommentSearchText="),
         QStringLiteral("DetailSearchText="),
         QStringLiteral("FileGroupNameSearchText="),
         QStringLiteral("FileTypeList="),
         QStringLiteral("LocationState=0"),
         QStringLiteral("LockState=0"),
         QStringLiteral("LockUser="),
         QStringLiteral("BackupTime/Min="),
         QStringLiteral("BackupTime/Max="),
         QStringLiteral("CreationTime/Min="),
         QStringLiteral("CreationTime/Max="),
         QStringLiteral("LifeCycle/Min="),
         QStringLiteral("LifeCycle/Max="),
         QStringLiteral("ModificationTime/Min="),
         QStringLiteral("ModificationTime/Max="),
         QStringLiteral("ReferencingApplication="),
         QStringLiteral("TeamSearchText="),
         QStringLiteral("User="),
         QStringLiteral("VersionSearchText=")});
    row("QueryLocationStateProgress", new QueryLocationStateProgressMessage(G), "QueryLocationStateProgress",
        {guid("")});
    row("QueryMetaData", new QueryMetaDataMessage(G, QStringLiteral("app")), "QueryMetaData",
        {guid(""), QStringLiteral("Application=app")});
    row("RegisterConverter", new RegisterConverterMessage(QStringLiteral("conv"), {FileTypeImage, FileTypePck}),
        "RegisterConverter",
        {QStringLiteral("ConverterId=conv"), QStringLiteral("FileType=11"), QStringLiteral("FileType=16")});
    row("RemoveAllReferences", new RemoveAllReferencesMessage(G, QStringLiteral("app")), "RemoveAllReferences",
        {guid(""), QStringLiteral("Application=app")});
    row("RemoveReference", new RemoveReferenceMessage(G, QStringLiteral("app")), "RemoveReference",
        {guid(""), QStringLiteral("Application=app")});
    row("RequestFile", new RequestFileMessage(G, 2, true, QStringLiteral("bob")), "RequestFile",
        {guid(""), QStringLiteral("FileId=2"), QStringLiteral("WriteLock=true"), QStringLiteral("UserName=bob")});
    row("RequestFile to read", new RequestFileMessage(G, 2, false, QString()), "RequestFile",
        {guid(""), QStringLiteral("FileId=2"), QStringLiteral("WriteLock=false"), QStringLiteral("UserName=")});
}

void tst_KavroClientSOAPMessage::requestDocument()
{
    QFETCH(Message, message);
    QFETCH(QString, command);
    QFETCH(QStringList, fields);

    const QByteArray document = message->writeRequest();
    QVERIFY(document.startsWith("<?xml version=\"1.0\""));
    QVERIFY2(!QRegularExpression(QStringLiteral(">\\s+<|\\s$")).match(QString::fromUtf8(document)).hasMatch(),
             document.constData());

    const Request request = parse(document);
    QCOMPARE(request.faults, QStringList());
    QCOMPARE(request.version, QStringLiteral("1.0"));
    QCOMPARE(request.requestId, message->requestId());
    QCOMPARE(request.command, command);
    QCOMPARE(request.fields, fields);
}

void tst_KavroClientSOAPMessage::exactEnvelope()
{
    QCOMPARE(GetUserListMessage(QStringLiteral("R-1")).writeRequest(),
             QByteArray("<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
                        "<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\">"
                        "<s:Header><s:Version>1.0</s:Version><s:RequestId>R-1</s:RequestId></s:Header>"
                        "<s:Body><m:GetUserList xmlns:m=\"http://kavro/8SP/KAVRO\"/></s:Body></s:Envelope>"));
}

void tst_KavroClientSOAPMessage::requestIds()
{
    const GetBasePathMessage first;
    const GetBasePathMessage second;
    QCOMPARE(first.requestId().size(), 36);
    QVERIFY(!first.requestId().contains(QLatin1Char('{')));
    QVERIFY(first.requestId() != second.requestId());
    QCOMPARE(GetBasePathMessage(QStringLiteral("mine")).requestId(), QStringLiteral("mine"));
}

QTEST_GUILESS_MAIN(tst_KavroClientSOAPMessage)
#include "tst_kavroclientsoapmessage.moc"
