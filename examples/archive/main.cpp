// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
// Archives a local file and reads it back:
//
//   kavro-archive <host> <port> <file>
//
// Connects to the archive server, creates a file group, puts the file into
// the group's directory, adds it, and reads it back through KavroFile.
#include <kavro/kavroclient.h>
#include <kavro/kavrofile.h>

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QTextStream>

using namespace Kavro;

namespace
{
int archive(KavroClient &client, const QString &path)
{
    QTextStream out(stdout);
    const QFileInfo local(path);

    // 1. A file group for the file; its files live in localPath.
    QString localPath;
    const QString guid = client.CreateFileGroup(QStringLiteral("1.0"), QDateTime::currentDateTimeUtc().addDays(30),
                                                QStringLiteral("example"), QStringLiteral("archived by kavro-archive"),
                                                FileTypeReportFragment, 0, local.completeBaseName(), localPath);
    if (guid.isEmpty()) {
        out << "creating the group failed: " << client.GetErrorString() << '\n';
        return 1;
    }
    out << "group " << guid << " in " << localPath << '\n';

    // 2. The file goes into the group's directory, then the server is told.
    if (!QFile::copy(path, localPath + local.fileName())) {
        out << "copying into the group failed\n";
        return 1;
    }
    const unsigned int fileId = client.AddFile(local.filePath(), guid);
    if (fileId == 0) {
        out << "adding the file failed: " << client.GetErrorString() << '\n';
        return 1;
    }
    out << "added as " << KavroUrl::fromKavroIds(guid, fileId).toString() << '\n';

    // 3. Read it back like a local file; open() fetches it with a read lock, close() releases it.
    KavroFile archived(&client, guid, fileId);
    if (!archived.open(QIODevice::ReadOnly)) {
        out << "opening failed: " << archived.GetErrorString() << '\n';
        return 1;
    }
    out << "read back " << archived.size() << " bytes from " << archived.GetName() << '\n';
    archived.close();
    return 0;
}
} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    if (arguments.size() != 4) {
        QTextStream(stderr) << "usage: kavro-archive <host> <port> <file>\n";
        return 2;
    }
    KavroClient client(arguments.at(1), arguments.at(2).toUShort(), QStringLiteral("kavro-archive"),
                       qEnvironmentVariable("USER"), QString());
    QObject::connect(&client, &KavroClient::errorOccurred, &app, [](KavroError, const QString &text) {
        QTextStream(stderr) << text << '\n';
    });

    // Blocking calls wait for replies that the client's own thread delivers, so they may run here,
    // once the client is connected.
    if (!client.waitForConnected(10000)) {
        QCoreApplication::processEvents(); // delivers errorOccurred(): why there is no connection
        QTextStream(stderr) << "no connection to " << arguments.at(1) << ':' << arguments.at(2) << '\n';
        return 3;
    }
    return archive(client, arguments.at(3));
}
