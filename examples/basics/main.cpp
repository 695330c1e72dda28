// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
// A tour of what the library offers without a server: the texts of its
// codes, the file types offered to the user, archive URLs and the storage
// layout of a new file group.
#include <kavro/createpath.h>
#include <kavro/filetypemanager.h>
#include <kavro/kavroerrorstring.h>
#include <kavro/kavrourl.h>
#include <kavro/locationstatestring.h>

#include <QCoreApplication>
#include <QDir>
#include <QTextStream>
#include <QUuid>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);

    out << "File types offered to the user:\n";
    const Kavro::FileTypeManager *types = Kavro::FileTypeManager::Instance();
    for (int index = 0; index < types->GetCount(); ++index)
        out << "  " << Kavro::FileTypeManager::GetType(index) << "  " << types->GetTextByIndex(index) << '\n';

    out << "\nA few error texts:\n";
    for (Kavro::KavroError error : {Kavro::NoError, Kavro::ErrorNotConnected, Kavro::ErrorReplyTimeout})
        out << "  " << error << "  " << Kavro::KavroErrorString::Get(error) << '\n';
    out << "  location 2: " << Kavro::LocationStateString::GetText(Kavro::LocationCentral) << '\n';
    out << "  lock 3: " << Kavro::GetLockStateText(Kavro::LockWrite) << '\n';

    const QString guid = QUuid::createUuid().toString(QUuid::WithoutBraces);
    const Kavro::KavroUrl url(Kavro::KavroUrl::fromKavroIds(guid, 5));
    out << "\nArchive URL: " << url.toString() << '\n';
    out << "  guid " << url.toKavroGuid() << ", file " << url.toKavroFileId() << '\n';

    out << "\nStorage directory of a new group named \"report\":\n  "
        << Kavro::CreatePath(QDir::tempPath() + QStringLiteral("/kavro-store"), guid, QStringLiteral("report")) << '\n';
    return 0;
}
