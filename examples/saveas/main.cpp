// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
// Saves a local file into the archive through the dialog of Kavro::Widgets:
//
//   kavro-saveas <host> <port> [file]
//
// Connects to the archive server and opens KavroSaveAsDlg for the file (without
// one, the user browses for it). Prints the archive URL of the saved file.
// Exits with 0 when the file was saved, 1 when the dialog was cancelled and 2
// when there is no server to save to (wrong arguments, no connection).
#include <kavro/kavroclient.h>
#include <kavro/kavrosaveasdlg.h>

#include <QApplication>
#include <QTextStream>

using namespace Kavro;

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    if (arguments.size() < 3 || arguments.size() > 4) {
        QTextStream(stderr) << "usage: kavro-saveas <host> <port> [file]\n";
        return 2;
    }
    KavroClient client(arguments.at(1), arguments.at(2).toUShort(), QStringLiteral("kavro-saveas"),
                       qEnvironmentVariable("USER"), QString());
    QObject::connect(&client, &KavroClient::errorOccurred, &app, [](KavroError, const QString &text) {
        QTextStream(stderr) << text << '\n';
    });

    // The dialog saves with blocking calls, which need a connected client.
    if (!client.waitForConnected(10000)) {
        QCoreApplication::processEvents(); // delivers errorOccurred(): why there is no connection
        QTextStream(stderr) << "no connection to " << arguments.at(1) << ':' << arguments.at(2) << '\n';
        return 2;
    }

    KavroSaveAsDlg dialog(&client, arguments.value(3));
    if (!dialog.Execute())
        return 1;
    QTextStream(stdout) << dialog.GetUrl().toString() << '\n';
    return 0;
}
