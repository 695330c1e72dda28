// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "archivetransfer.h"

#include "archivestore.h"
#include "storepaths.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace Kavro::Server
{

namespace
{
QString fileOf(const QString &directory, const QString &name)
{
    return directory + QLatin1Char('/') + name;
}

// Copies over an existing file, as a retried transfer must.
bool copyFile(const QString &from, const QString &to)
{
    QFile::remove(to);
    return QFile::copy(from, to);
}
} // namespace

bool copyGroupFiles(const FileGroupData &group, const QString &target, const std::function<void(double)> &progress)
{
    if (!QDir().mkpath(target))
        return false;
    qint64 total = 0;
    for (const auto &file : group.getFileList())
        total += QFileInfo(fileOf(group.getPath(), file.first)).size();
    qint64 copied = 0;
    for (const auto &file : group.getFileList()) {
        const QString from = fileOf(group.getPath(), file.first);
        if (!isPlainName(file.first) || !copyFile(from, fileOf(target, file.first)))
            return false;
        copied += QFileInfo(from).size();
        if (progress)
            progress(total > 0 ? 100.0 * double(copied) / double(total) : 100.0);
    }
    return true;
}

KavroError exportGroups(ArchiveStore &store, const StorePaths &paths, const QString &target, const QStringList &guids)
{
    const QString directory = containedPath(paths.archiveRoot, target);
    if (directory.isEmpty() || !QDir().mkpath(directory))
        return ErrorExportArchive;
    for (const QString &guid : guids) {
        FileGroupData group;
        const KavroError error = store.fileGroup(guid, &group);
        if (error != NoError)
            return error;
        // The description's name comes from the group: it must stay one name inside the target,
        // and a description from an earlier export is replaced rather than numbered beside it.
        const QString base = group.getName() + QLatin1Char('_') + group.getGuid();
        if (!isPlainName(base))
            return ErrorExportArchive;
        QFile::remove(fileOf(directory, base + QLatin1String(".fgdesc")));
        const QString description = group.toXmlFileForExport(directory);
        if (!QFileInfo::exists(fileOf(directory, description)))
            return ErrorExportArchive;
        const QString files = fileOf(directory, description.chopped(int(qstrlen(".fgdesc"))));
        if (!copyGroupFiles(group, files, nullptr))
            return ErrorExportArchive;
    }
    return NoError;
}

namespace
{
// The description files a path names: those in it, or the one beside it when
// the path is the files directory of an exported group.
QStringList descriptionsAt(const QString &path, bool besideAllowed)
{
    QStringList descriptions;
    const QString beside = path + QLatin1String(".fgdesc");
    if (besideAllowed && QFileInfo(beside).isFile())
        descriptions << beside;
    const QDir directory(path);
    for (const QString &name : directory.entryList({QStringLiteral("*.fgdesc")}, QDir::Files))
        descriptions << directory.filePath(name);
    return descriptions;
}

KavroError importGroup(ArchiveStore &store, const StorePaths &paths, const QString &description)
{
    FileGroupData group;
    if (!group.fromXmlforImport(description) || !isPlainName(group.getGuid()))
        return ErrorImportFileGroup;
    group.setPath(description.chopped(int(qstrlen(".fgdesc"))));
    const QString target = fileOf(paths.data + QLatin1String("/imported"), group.getGuid());
    if (!copyGroupFiles(group, target, nullptr))
        return ErrorImportFileGroupIncomplete;
    group.setPath(target);
    group.setLocationState(LocationCentral);
    return store.createFileGroup(group);
}
} // namespace

KavroError importArchives(ArchiveStore &store, const StorePaths &paths, const QStringList &directories)
{
    for (const QString &path : directories) {
        const QString directory = containedPath(paths.archiveRoot, path);
        if (directory.isEmpty() || !QFileInfo(directory).isDir())
            return ErrorImportArchive;
        // The archive root's own neighbour lies outside it.
        const QStringList descriptions = descriptionsAt(directory, directory != paths.archiveRoot);
        if (descriptions.isEmpty())
            return ErrorImportArchiveIncomplete;
        for (const QString &description : descriptions) {
            const KavroError error = importGroup(store, paths, description);
            if (error != NoError)
                return error;
        }
    }
    return NoError;
}

void removeGroupDirectory(const StorePaths &paths, const QString &directory)
{
    for (const QString &root : {paths.data, paths.nas}) {
        const QString contained = containedPath(root, directory);
        if (!contained.isEmpty() && contained != root) {
            QDir(contained).removeRecursively();
            return;
        }
    }
}

} // namespace Kavro::Server
