// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
// Uses one class of each kind from the installed headers and library.
#include <kavro/filetypemanager.h>
#include <kavro/kavroclient.h>
#include <kavro/kavroerrorstring.h>
#include <kavro/kavrofile.h>
#include <kavro/kavrourl.h>

#include <QCoreApplication>
#include <cstdio>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const Kavro::KavroUrl url(Kavro::KavroUrl::fromKavroIds(QStringLiteral("G"), 5));
    // Without a configured server the client stays unavailable; its meta-object and signals link all the same.
    Kavro::KavroClient client;
    bool connected = false;
    QObject::connect(&client, &Kavro::KavroClient::connected, [&connected] {
        connected = true;
    });
    Kavro::KavroFile file(&client);
    const bool ok = url.toString() == QLatin1String("kavro:///G/5") && !Kavro::KavroClient::IsKavroAvailable()
        && file.IsEmpty() && client.GetUserList().isEmpty() && !connected
        && Kavro::KavroErrorString::Get(Kavro::ErrorNotConnected) == QLatin1String("Client is not connected to server")
        && Kavro::FileTypeManager::Instance()->GetCount() > 0;
    std::puts(ok ? "consumer ok" : "consumer FAILED");
    return ok ? 0 : 1;
}
