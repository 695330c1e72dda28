// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "serverprocess.h"
#include "testcertificates.h"

#include <kavro/kavroclient.h>

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRandomGenerator>
#include <QSignalSpy>
#include <QSslConfiguration>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>

using namespace Kavro;

namespace
{
struct Run {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
    QJsonObject json() const { return QJsonDocument::fromJson(out).object(); }
};

Run run(const QStringList &arguments, const QString &workingDirectory = QString())
{
    QProcess process;
    process.setWorkingDirectory(workingDirectory);
    process.start(QStringLiteral(KAVRO_CLI_BINARY), arguments);
    process.closeWriteChannel();
    if (!process.waitForFinished(60000))
        qWarning("kavro did not finish");
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1, process.readAllStandardOutput(),
            process.readAllStandardError()};
}

QByteArray randomBytes(qsizetype size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    QRandomGenerator generator(7);
    for (char &byte : bytes)
        byte = char(generator.bounded(256));
    return bytes;
}
} // namespace

// The kavro tool as a process against the real server.
class tst_KavroCli : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase() { QVERIFY(m_server.stop() && m_tlsServer.stop()); }
    void commands_data();
    void commands();
    void putThenGetKeepsTheBytes();
    void noServerWithinTheConnectTimeout();
    void progressBarOnATerminal();
    void converter();
    void locksOfOthersThroughTls();

private:
    //! Runs kavro with the server's port and \a arguments, where "{guid}", "{url}" and "{new}" (a fresh group) are
    //! filled in.
    Run kavro(QStringList arguments, const QString &workingDirectory = QString());
    //! Runs kavro with \a arguments against the TLS server, as \a user by that user's certificate.
    Run kavroWithCertificate(const QString &user, const QStringList &arguments);
    QString newGroup();
    //! Leaves a read lock of \a user on \a url, as a client that went away without closing the file does.
    bool leaveReadLock(const QString &user, const KavroUrl &url);

    QTemporaryDir m_store;
    QTemporaryDir m_files;
    ServerProcess m_server;
    QString m_guid;
    // A server that takes users by their client certificates only, and "admin" as its administrator.
    TestCertificates m_certificates;
    QTemporaryDir m_tlsStore;
    ServerProcess m_tlsServer;
};

void tst_KavroCli::initTestCase()
{
    QVERIFY(m_server.start(m_store.path()));
    QVERIFY(QDir().mkpath(m_store.filePath(QStringLiteral("archives/empty"))));
    QFile content(m_files.filePath(QStringLiteral("content.bin")));
    QVERIFY(content.open(QIODevice::WriteOnly) && content.write(randomBytes(200000)) == 200000);
    content.close();
    const Run put = kavro({QStringLiteral("--json"), QStringLiteral("put"), content.fileName(),
                           QStringLiteral("--name"), QStringLiteral("clitest")});
    QCOMPARE(put.exitCode, 0);
    m_guid = put.json().value(QStringLiteral("guid")).toString();
    QCOMPARE(m_guid.size(), 36);
    QVERIFY(m_certificates.make());
    QVERIFY(m_tlsServer.start(m_tlsStore.path(), m_certificates.serverArguments()));
}

Run tst_KavroCli::kavro(QStringList arguments, const QString &workingDirectory)
{
    for (QString &argument : arguments) {
        argument.replace(QLatin1String("{guid}"), m_guid);
        argument.replace(QLatin1String("{url}"), QStringLiteral("kavro:///%1/1").arg(m_guid));
        if (argument.contains(QLatin1String("{new}")))
            argument.replace(QLatin1String("{new}"), newGroup());
    }
    return run(QStringList{QStringLiteral("--port"), QString::number(m_server.port()), QStringLiteral("--user"),
                           QStringLiteral("tester")}
                   + arguments,
               workingDirectory);
}

Run tst_KavroCli::kavroWithCertificate(const QString &user, const QStringList &arguments)
{
    return run(QStringList{QStringLiteral("--port"), QString::number(m_tlsServer.port()), QStringLiteral("--cacert"),
                           m_certificates.certificate(QStringLiteral("ca")), QStringLiteral("--cert"),
                           m_certificates.certificate(user), QStringLiteral("--key"), m_certificates.key(user)}
               + arguments);
}

QString tst_KavroCli::newGroup()
{
    const Run put =
        kavro({QStringLiteral("--json"), QStringLiteral("put"), m_files.filePath(QStringLiteral("content.bin"))});
    return put.json().value(QStringLiteral("guid")).toString();
}

void tst_KavroCli::commands_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("printed"); // part of what people see: on stdout, or on stderr when the run fails
    QTest::addColumn<QString>("jsonKey"); // present in the one JSON object of the --json run
    QTest::addColumn<QStringList>("absent"); // in neither run's stdout

    const auto row = [](const char *tag, const QString &line, int exitCode, const char *printed, const char *jsonKey,
                        const QStringList &absent = {}) {
        QTest::newRow(tag) << line.split(QLatin1Char(' ')) << exitCode << QString::fromUtf8(printed)
                           << QString::fromLatin1(jsonKey) << absent;
    };
    row("ping", QStringLiteral("ping"), 0, "data", "storageDirectory");
    row("users", QStringLiteral("users"), 0, "tester", "users");
    row("apps", QStringLiteral("apps"), 0, "", "applications");
    row("create", QStringLiteral("create made --version 2.0 --type 1"), 0, "path", "guid");
    row("add", QStringLiteral("add {new} %1").arg(QFINDTESTDATA("tst_kavrocli.cpp")), 0, "kavro:///", "urls");
    row("files", QStringLiteral("files {url}"), 0, "content.bin", "files");
    // The record on the wire has no lock count and no path: the tool does not make them up.
    row("meta", QStringLiteral("meta {guid}"), 0, "clitest", "files",
        {QStringLiteral("locks"), QStringLiteral("path")});
    row("query", QStringLiteral("query --name clitest --user someone-else"), 0, "1 group(s)", "groups",
        {QStringLiteral("Lock count"), QStringLiteral("locks")});
    row("query with a time", QStringLiteral("query --created-from 2000-01-01T00:00:00Z --type 18"), 0, "group(s)",
        "count");
    row("exists", QStringLiteral("exists {guid}"), 0, "yes", "exists");
    row("exists not", QStringLiteral("exists no-such-group"), 0, "no", "exists");
    row("reference", QStringLiteral("--app viewer ref add {guid}"), 0, "referenced", "");
    row("progress", QStringLiteral("progress {guid}"), 0, "location 2", "locationState");
    row("move to network storage", QStringLiteral("move-to-nas {new} --wait"), 0, "done", "progress");
    row("delete a file", QStringLiteral("rm-file kavro:///{new}/1"), 0, "deleted", "");
    row("delete a group", QStringLiteral("rm {new}"), 0, "deleted", "");
    const QString archives = m_store.filePath(QStringLiteral("archives"));
    row("export", QStringLiteral("export %1/cli {guid}").arg(archives), 0, "exported", "");
    row("import, incomplete", QStringLiteral("import %1/empty").arg(archives), 1, "", "error");
    row("server error", QStringLiteral("meta no-such-group"), 1, "", "error");
    row("no such file", QStringLiteral("get kavro:///no-such-group/1"), 1, "", "error");
    row("unknown command", QStringLiteral("frobnicate"), 2, "", "error");
    row("too many arguments", QStringLiteral("users extra"), 2, "", "error");
    row("bad time", QStringLiteral("query --created-from yesterday"), 2, "", "error");
    row("certificate without its key", QStringLiteral("--cert %1 ping").arg(m_files.filePath(QStringLiteral("a.pem"))),
        2, "needs its key", "error");
    row("unreadable CA certificates",
        QStringLiteral("--cacert %1 ping").arg(m_files.filePath(QStringLiteral("no.pem"))), 2, "no.pem", "error");
    row("help", QStringLiteral("help query"), 0, "--created-from", "");
}

void tst_KavroCli::commands()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);
    QFETCH(QString, printed);
    QFETCH(QString, jsonKey);
    QFETCH(QStringList, absent);

    const Run human = kavro(arguments);
    QVERIFY2(human.exitCode == exitCode, human.err.constData());
    const QByteArray seen = exitCode == 0 ? human.out : human.err;
    QVERIFY2(QString::fromUtf8(seen).contains(printed), seen.constData());
    for (const QString &text : absent)
        QVERIFY2(!QString::fromUtf8(human.out).contains(text), human.out.constData());
    if (exitCode != 0)
        QVERIFY(human.err.startsWith(exitCode == 2 ? "kavro: " : "error "));
    if (jsonKey.isEmpty())
        return;
    const Run json = kavro(QStringList{QStringLiteral("--json")} + arguments);
    QCOMPARE(json.exitCode, exitCode);
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json.out, &error);
    QVERIFY2(error.error == QJsonParseError::NoError && document.isObject(), json.out.constData());
    QVERIFY2(document.object().contains(jsonKey), json.out.constData());
    for (const QString &text : absent)
        QVERIFY2(!QString::fromUtf8(json.out).contains(text), json.out.constData());
}

void tst_KavroCli::putThenGetKeepsTheBytes()
{
    const QByteArray original = randomBytes(3 * 1024 * 1024 + 17);
    const QString source = m_files.filePath(QStringLiteral("original.bin"));
    QFile file(source);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(original) == original.size());
    file.close();
    const Run put = kavro({QStringLiteral("--json"), QStringLiteral("put"), source});
    QCOMPARE(put.exitCode, 0);
    const QString url = put.json().value(QStringLiteral("urls")).toArray().at(0).toString();
    const Run toStdout = kavro({QStringLiteral("get"), url});
    QCOMPARE(toStdout.exitCode, 0);
    QVERIFY(toStdout.out == original);
    // Each get releases its lock before the tool exits, or another user's write lock would be refused.
    const QString copy = m_files.filePath(QStringLiteral("copy.bin"));
    for (const QString &user : {QStringLiteral("bob"), QStringLiteral("carol")}) {
        const QStringList arguments{
            QStringLiteral("--user"), user, QStringLiteral("get"), url, QStringLiteral("--write"),
            QStringLiteral("-o"),     copy};
        QCOMPARE(kavro(arguments).exitCode, 0);
    }
    QFile copied(copy);
    QVERIFY(copied.open(QIODevice::ReadOnly) && copied.readAll() == original);
}

void tst_KavroCli::noServerWithinTheConnectTimeout()
{
    QTcpServer closed;
    QVERIFY(closed.listen(QHostAddress::LocalHost));
    const quint16 port = closed.serverPort();
    closed.close();
    QProcess process;
    process.start(QStringLiteral(KAVRO_CLI_BINARY),
                  {QStringLiteral("--json"), QStringLiteral("--port"), QString::number(port),
                   QStringLiteral("--connect-timeout"), QStringLiteral("1"), QStringLiteral("users")});
    QVERIFY(process.waitForFinished(20000));
    QCOMPARE(process.exitCode(), 3);
    const QJsonObject error = QJsonDocument::fromJson(process.readAllStandardOutput()).object();
    QCOMPARE(error.value(QStringLiteral("error")).toInt(), 43);
    QVERIFY(error.value(QStringLiteral("errorString")).toString().contains(QStringLiteral("is kavro-server running?")));
}

void tst_KavroCli::progressBarOnATerminal()
{
    const QString script = QStandardPaths::findExecutable(QStringLiteral("script"));
    if (script.isEmpty())
        QSKIP("script(1) is not installed");
    const QString source = m_files.filePath(QStringLiteral("large.bin"));
    QFile file(source);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(randomBytes(6 * 1024 * 1024)) > 0);
    file.close();
    const Run put = kavro({QStringLiteral("--json"), QStringLiteral("put"), source});
    const QString url = put.json().value(QStringLiteral("urls")).toArray().at(0).toString();
    const QString copy = m_files.filePath(QStringLiteral("large.copy"));
    // Under a pseudo-terminal the bar is drawn on stderr and its line ended; in a pipe it is not.
    QProcess terminal;
    terminal.start(script,
                   {QStringLiteral("-qec"),
                    QStringLiteral("%1 --port %2 get %3 -o %4")
                        .arg(QStringLiteral(KAVRO_CLI_BINARY))
                        .arg(m_server.port())
                        .arg(url, copy),
                    QStringLiteral("/dev/null")});
    QVERIFY(terminal.waitForFinished(60000));
    QCOMPARE(terminal.exitCode(), 0);
    const QByteArray drawn = terminal.readAllStandardOutput();
    QVERIFY2(drawn.contains("[##############################] 6.0/6.0 MB"), drawn.constData());
    QVERIFY(drawn.trimmed().endsWith("left"));
    QVERIFY(!kavro({QStringLiteral("get"), url, QStringLiteral("-o"), copy}).err.contains("MB/s"));
}

void tst_KavroCli::converter()
{
    // The converter touches files named after its arguments in its working directory.
    QTemporaryDir work;
    QProcess converter;
    converter.setWorkingDirectory(work.path());
    converter.start(QStringLiteral(KAVRO_CLI_BINARY),
                    {QStringLiteral("--port"), QString::number(m_server.port()), QStringLiteral("convert"),
                     QStringLiteral("--id"), QStringLiteral("toucher"), QStringLiteral("--type"), QStringLiteral("1"),
                     QStringLiteral("--exec"), QStringLiteral("touch")});
    QVERIFY(converter.waitForReadyRead(20000));
    QVERIFY(converter.readAllStandardOutput().contains("converting as toucher"));
    const Run put =
        kavro({QStringLiteral("--json"), QStringLiteral("put"), m_files.filePath(QStringLiteral("content.bin")),
               QStringLiteral("--type"), QStringLiteral("1")});
    const QString guid = put.json().value(QStringLiteral("guid")).toString();
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(work.filePath(guid)), 20000);
    QTRY_VERIFY_WITH_TIMEOUT(kavro({QStringLiteral("progress"), guid}).out.contains("location 2,"), 20000);
    converter.terminate();
    QVERIFY(converter.waitForFinished(20000));
    QCOMPARE(converter.exitCode(), 0);
}

bool tst_KavroCli::leaveReadLock(const QString &user, const KavroUrl &url)
{
    KavroClient client(QStringLiteral("localhost"), m_tlsServer.port(), QStringLiteral("viewer"), user, QString());
    client.setSslConfiguration(KavroClient::sslConfigurationFromFiles(
        m_certificates.certificate(QStringLiteral("ca")), m_certificates.certificate(user), m_certificates.key(user)));
    if (!client.waitForConnected(20000))
        return false;
    const std::unique_ptr<KavroReply> reply(
        client.RequestFileRequest(url.toKavroFileId(), url.toKavroGuid(), LockRead));
    QSignalSpy finished(reply.get(), &KavroReply::finished);
    return (reply->isFinished() || finished.wait(20000)) && reply->error() == NoError;
}

void tst_KavroCli::locksOfOthersThroughTls()
{
    // Without --user the tool acts as its certificate's user: the server would refuse anyone else.
    const QString content = m_files.filePath(QStringLiteral("content.bin"));
    const Run put =
        kavroWithCertificate(QStringLiteral("alice"), {QStringLiteral("--json"), QStringLiteral("put"), content});
    QVERIFY2(put.exitCode == 0, put.err.constData());
    const QString url = put.json().value(QStringLiteral("urls")).toArray().at(0).toString();
    const Run get = kavroWithCertificate(QStringLiteral("alice"), {QStringLiteral("get"), url});
    QVERIFY2(get.exitCode == 0 && get.out.size() == QFileInfo(content).size(), get.err.constData());

    // Read locks left by alice and bob: only the administrator releases another user's, and only that user's.
    QVERIFY(leaveReadLock(QStringLiteral("alice"), KavroUrl(url)));
    QVERIFY(leaveReadLock(QStringLiteral("bob"), KavroUrl(url)));
    const struct {
        const char *user;
        QStringList arguments;
        int error; // the server's error in the JSON object; 0: none
    } steps[] = {
        {"alice", {QStringLiteral("rm-file"), url}, ErrorFileGroupLocked},
        {"bob",
         {QStringLiteral("unlock"), url, QStringLiteral("--owner"), QStringLiteral("alice")},
         ErrorNoWritePermission},
        {"admin", {QStringLiteral("unlock"), url, QStringLiteral("--owner"), QStringLiteral("alice")}, NoError},
        {"alice", {QStringLiteral("rm-file"), url}, ErrorFileGroupLocked},
        {"bob", {QStringLiteral("unlock"), url}, NoError},
        {"alice", {QStringLiteral("rm-file"), url}, NoError},
    };
    for (const auto &step : steps) {
        const Run done = kavroWithCertificate(QString::fromLatin1(step.user),
                                              QStringList{QStringLiteral("--json")} + step.arguments);
        const QString what = QString::fromLatin1(step.user) + QLatin1Char(' ') + step.arguments.join(QLatin1Char(' '));
        QVERIFY2(done.exitCode == (step.error == NoError ? 0 : 1),
                 qPrintable(what + QStringLiteral(": ") + QString::fromUtf8(done.err)));
        QVERIFY2(done.json().value(QStringLiteral("error")).toInt() == step.error,
                 qPrintable(what + QStringLiteral(": ") + QString::fromUtf8(done.out)));
    }
}

QTEST_GUILESS_MAIN(tst_KavroCli)
#include "tst_kavrocli.moc"
