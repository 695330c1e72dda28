// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "storecheck.h"

#include "archivestore.h"
#include "archivetransfer.h"
#include "storefiles.h"
#include "storepaths.h"

#include <QSet>

namespace Kavro::Server
{

namespace
{
// The directories of the records, and the directories above them.
struct RecordTree {
    QSet<QString> directories;
    QSet<QString> above;
    QHash<QString, QSet<QString>> files; // directory: the names of its registered files
};

RecordTree treeOf(const QList<FileGroupData> &groups)
{
    RecordTree tree;
    for (const FileGroupData &group : groups) {
        const QString path = group.getPath();
        tree.directories.insert(path);
        for (qsizetype cut = path.indexOf(QLatin1Char('/'), 1); cut > 0; cut = path.indexOf(QLatin1Char('/'), cut + 1))
            tree.above.insert(path.left(cut));
        for (const auto &file : group.getFileList())
            tree.files[path].insert(file.first);
    }
    return tree;
}

// Walks \a directory (at \a path) without following links: entries that are neither a record's directory nor
// above one are orphans, and so are the entries of a record's directory that are not its registered files.
void findOrphans(int directory, const QString &path, const RecordTree &tree, QStringList *orphans)
{
    const bool isGroup = tree.directories.contains(path);
    for (const QString &name : entryNames(directory)) {
        const QString entry = path + QLatin1Char('/') + name;
        if (isGroup && tree.files.value(path).contains(name))
            continue;
        const bool descend = tree.directories.contains(entry) || tree.above.contains(entry);
        const FileDescriptor child = descend ? openSubdirectory(directory, name) : FileDescriptor();
        if (child.isValid())
            findOrphans(child.get(), entry, tree, orphans);
        else
            orphans->append(entry);
    }
}

void findMissing(const StorePaths &paths, const QList<FileGroupData> &groups, QStringList *missing)
{
    for (const FileGroupData &group : groups) {
        const FileDescriptor directory = openGroupDirectory(paths, group.getPath());
        if (!directory.isValid()) {
            missing->append(QStringLiteral("%1: the directory %2 is missing, or is not a directory of the store")
                                .arg(group.getGuid(), group.getPath()));
            continue;
        }
        for (const auto &file : group.getFileList()) {
            if (entryType(directory.get(), file.first) != EntryType::RegularFile)
                missing->append(QStringLiteral("%1: file %2 \"%3\" is missing, or is not a regular file")
                                    .arg(group.getGuid())
                                    .arg(file.second)
                                    .arg(file.first));
        }
    }
}
} // namespace

StoreReport checkStore(ArchiveStore &store, const StorePaths &paths)
{
    StoreReport report;
    report.database = store.integrityProblems();
    const QList<FileGroupData> groups = store.allFileGroups();
    for (const FileGroupData &group : groups) {
        if (group.getLocationState() == LocationCentralNotMoved)
            report.database.append(
                QStringLiteral("%1: a move to network storage is under way or was cut off").arg(group.getGuid()));
    }
    const RecordTree tree = treeOf(groups);
    for (const QString &root : {paths.data, paths.nas}) {
        const FileDescriptor directory = openDirectory(root, root);
        if (directory.isValid())
            findOrphans(directory.get(), root, tree, &report.orphans);
    }
    findMissing(paths, groups, &report.missing);
    return report;
}

QStringList removeOrphans(const StorePaths &paths, const StoreReport &report)
{
    QStringList left;
    for (const QString &orphan : report.orphans) {
        const QString root = storageRootOf(paths, orphan);
        const qsizetype cut = orphan.lastIndexOf(QLatin1Char('/'));
        const FileDescriptor parent = root.isEmpty() ? FileDescriptor() : openDirectory(root, orphan.left(cut));
        if (!parent.isValid() || !removeEntry(parent.get(), orphan.mid(cut + 1)))
            left.append(orphan);
    }
    return left;
}

} // namespace Kavro::Server
