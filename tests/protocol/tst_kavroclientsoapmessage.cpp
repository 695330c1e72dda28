// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "fakeserver.h"
#include "messages_p.h"

#include <kavro/filequery.h>

#include <QTest>
#include <QTimeZone>

#include <memory>

using namespace Kavro;

using Message = std::shared_ptr<KavroClientSOAPMessage>;
Q_DECLARE_METATYPE(Message)

namespace
{
// The whole request document: framed like a reply, with the encoding declared; nothing between the elements.
QByteArray document(const QString &requestId, const char *command, const QByteArray &fields)
{
    return FakeServer::soapReply(requestId, command, fields)
        .replace("<?xml version=\"1.0\"?>", "<?xml version=\"1.0\" encoding=\"UTF-8\"?>");
}

// One text element per "Name=text" of a '|'-separated list.
QByteArray fields(const char *list)
{
    QByteArray xml;
    for (const QByteArray &field : QByteArray(list).split('|')) {
        const QByteArray name = field.left(field.indexOf('='));
        if (!name.isEmpty())
            xml += "<m:" + name + '>' + field.mid(name.size() + 1) + "</m:" + name + '>';
    }
    return xml;
}

QByteArray container(const char *name, const QByteArray &children)
{
    const QByteArray element = QByteArray("m:") + name;
    return '<' + element + '>' + children + "</" + element + '>';
}

QByteArray range(const char *name, const QByteArray &minimum, const QByteArray &maximum)
{
    return container(name, "<m:Min>" + minimum + "</m:Min><m:Max>" + maximum + "</m:Max>");
}

QDateTime utc(int year, int month, int day, int hour = 0, int minute = 0, int second = 0, int ms = 0)
{
    return QDateTime(QDate(year, month, day), QTime(hour, minute, second, ms), Qt::UTC);
}

// Distinct values everywhere, so a getter wired to the wrong field shows on the wire.
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
    query.SetBackupTimeMax(utc(2020, 1, 3));
    query.SetCreationTimeMin(utc(2020, 2, 1));
    query.SetCreationTimeMax(QDateTime(QDate(2021, 6, 1), QTime(12, 0), QTimeZone(3600)));
    query.SetLifeCycleTimeMin(utc(2030, 1, 1));
    query.SetLifeCycleTimeMax(utc(2031, 1, 1));
    query.SetModificationTimeMin(utc(2020, 3, 1));
    query.SetModificationTimeMax(utc(2020, 3, 2));
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
    void requestIds();
};

void tst_KavroClientSOAPMessage::requestDocument_data()
{
    QTest::addColumn<Message>("message");
    QTest::addColumn<QByteArray>("command");
    QTest::addColumn<QByteArray>("fields");

    // The command is the tag's first word.
    const auto row = [](const char *tag, KavroClientSOAPMessage *message, const QByteArray &fields) {
        QTest::newRow(tag) << Message(message) << QByteArray(tag).split(' ').constFirst().split(',').constFirst()
                           << fields;
    };
    const auto t = [](const char *text) {
        return QString::fromUtf8(text);
    };
    const QString G = t("g-1");

    row("AddFile escapes its texts", new AddFileMessage(G, t("a&b <c>.txt"), 7),
        fields("Guid=g-1|FileName=a&amp;b &lt;c&gt;.txt|FileId=7"));
    row("CloseFile with the largest id", new CloseFileMessage(G, 4294967295u, t("bob")),
        fields("Guid=g-1|FileId=4294967295|UserName=bob"));
    row("CreateFileGroup, life cycle in UTC",
        new CreateFileGroupMessage(t("com"), G, t("det"), t("name"), FileTypeAudioRecording,
                                   QDateTime(QDate(2030, 5, 6), QTime(7, 8, 9, 10), QTimeZone(-7200)), 5000000000ull,
                                   t("team"), t("user"), t("1.0"), t("/store/x/")),
        fields("Comment=com|Guid=g-1|Detail=det|FileGroupName=name|FileType=10|LifeCycle=2030-05-06 09:08:09.010|"
               "ReservedStorage=5000000000|TeamMembership=team|UserName=user|FileGroupVersion=1.0|Path=/store/x/"));
    row("CreateRovecFileGroup",
        new CreateRovecFileGroupMessage(t("rv"), t("IpAddress"), t("rec"), QString(), t("det"), t("com"),
                                        FileTypeRovecIqRecording, t("team"), t("user"), G, t("/p")),
        fields("RovecId=rv|SubSystemName=IpAddress|RecordId=rec|FileGroupVersion=|Detail=det|Comment=com|"
               "FileType=19|TeamMembership=team|UserName=user|Guid=g-1|Path=/p"));
    row("DeleteFileGroup", new DeleteFileGroupMessage(G, true), fields("Guid=g-1|ShallowDelete=true"));
    row("ExportArchive", new ExportArchiveMessage(t("/out"), {t("a"), t("b")}), fields("Path=/out|Guid=a|Guid=b"));
    row("GetFileList", new GetFileListMessage(G), fields("Guid=g-1"));
    row("ImportArchive", new ImportArchiveMessage({t("/a.zip"), t("/b.zip")}), fields("Path=/a.zip|Path=/b.zip"));
    row("QueryFileGroups, times in UTC, no creator", new QueryFileGroupsMessage(fullQuery(), t("app"), t("me")),
        fields("Application=app|CommentSearchText=c|DetailSearchText=d|FileGroupNameSearchText=n")
            + container("FileTypeList", fields("FileType=11|FileType=17"))
            + fields("LocationState=2|LockState=3|LockUser=lu")
            + range("BackupTime", "2020-01-02 03:04:05.006", "2020-01-03 00:00:00.000")
            + range("CreationTime", "2020-02-01 00:00:00.000", "2021-06-01 11:00:00.000")
            + range("LifeCycle", "2030-01-01 00:00:00.000", "2031-01-01 00:00:00.000")
            + range("ModificationTime", "2020-03-01 00:00:00.000", "2020-03-02 00:00:00.000")
            + fields("ReferencingApplication=ra|TeamSearchText=t|User=me|VersionSearchText=v"));
    row("RegisterConverter", new RegisterConverterMessage(t("conv"), {FileTypeImage, FileTypePck}),
        fields("ConverterId=conv|FileType=11|FileType=16"));
}

void tst_KavroClientSOAPMessage::requestDocument()
{
    QFETCH(Message, message);
    QFETCH(QByteArray, command);
    QFETCH(QByteArray, fields);

    QCOMPARE(message->writeRequest(), document(message->requestId(), command.constData(), fields));
}

void tst_KavroClientSOAPMessage::requestIds()
{
    const GetBasePathMessage first;
    QCOMPARE(first.requestId().size(), 36);
    QVERIFY(!first.requestId().contains(QLatin1Char('{')));
    QVERIFY(first.requestId() != GetBasePathMessage().requestId());
    QCOMPARE(GetBasePathMessage(QStringLiteral("mine")).requestId(), QStringLiteral("mine"));
}

QTEST_GUILESS_MAIN(tst_KavroClientSOAPMessage)
#include "tst_kavroclientsoapmessage.moc"
