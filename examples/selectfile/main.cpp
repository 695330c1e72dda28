// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
// Lets the user choose an archived file the way a program opens a local one:
//
//   kavro-selectfile <host> <port>
//
// Connects to the archive server and opens the file-selection dialog of
// Kavro::Widgets on every file type; the user searches, opens a group and
// picks a file. Prints the chosen file's archive URL. Exits with 0 when a
// file was chosen, 1 when the dialog was cancelled and 2 when there is no
// server to choose from (wrong arguments, no connection).
#include <kavro/kavroclient.h>
#include <kavro/kavrofiledialog.h>

#include <QApplication>
#include <QTextStream>

using namespace Kavro;

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    if (arguments.size() != 3) {
        QTextStream(stderr) << "usage: kavro-selectfile <host> <port>\n";
        return 2;
    }
    KavroClient client(arguments.at(1), arguments.at(2).toUShort(), QStringLiteral("kavro-selectfile"),
                       qEnvironmentVariable("USER"), QString());
    if (!client.waitForConnected(10000)) {
        QTextStream(stderr) << "no connection to " << arguments.at(1) << ':' << arguments.at(2) << '\n';
        return 2;
    }

    const KavroUrl url = KavroFileDialog::GetOpenUrl(nullptr, QStringLiteral("Open an Archived File"), QString(),
                                                     QString(), &client, QVector<FileType>());
    if (url.isEmpty())
        return 1;
    QTextStream(stdout) << url.toString() << '\n';
    return 0;
}
