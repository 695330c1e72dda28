// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "archivetransfer.h"

#include "archivestore.h"
#include "storepaths.h"

#include <QSet>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>

#include <optional>

namespace Kavro::Server
{

const QLatin1String partialCopyPrefix(".kavro-partial-");

namespace
{
const QLatin1String s_descriptionExtension(".fgdesc");
constexpr qint64 s_maxDescriptionSize = 16 << 20;

QStringList fileNames(const FileGroupData &group)
{
    QStringList names;
    for (const auto &file : group.getFileList())
        names.append(file.first);
    return names;
}

// The total size of \a names in \a directory when each is a plain name of a regular file there.
std::optional<qint64> regularFilesSize(int directory, const QStringList &names)
{
    qint64 total = 0;
    for (const QString &name : names) {
        const qint64 size = isPlainName(name) ? regularFileSize(directory, name) : -1;
        if (size < 0)
            return std::nullopt;
        total += size;
    }
    return total;
}

/*!
 * Copies \a names from \a source into the new directory \a name of \a parent. The files are assembled in a
 * temporary directory that is renamed into place when they are all there, so the target is whole or absent.
 * An existing target fails the copy, unless \a replace is set: then it goes once the new one is in place.
 */
bool copyFilesInto(int source, const QStringList &names, int parent, const QString &name, bool replace,
                   const StopRequested &stop, const std::function<void(const QString &, qint64)> &copied = {})
{
    const QString partial = makeTemporaryDirectory(parent, partialCopyPrefix);
    if (partial.isEmpty())
        return false;
    const FileDescriptor target = openSubdirectory(parent, partial);
    bool ok = target.isValid();
    for (qsizetype i = 0; ok && i < names.size(); ++i) {
        ok = copyRegularFile(source, target.get(), names.at(i), [&](qint64 bytes) {
            if (copied)
                copied(names.at(i), bytes);
            return !stop || !stop();
        });
    }
    ok = ok && (replace ? replaceEntry(parent, partial, name) : renameNew(parent, partial, name));
    if (!ok)
        removeEntry(parent, partial);
    return ok;
}

QByteArray descriptionOf(const FileGroupData &group)
{
    QByteArray document;
    QXmlStreamWriter writer(&document);
    group.ToHtml(writer, true, true);
    return document;
}

// Writes a group's description file, replacing an earlier one only once the new one is whole.
bool writeDescription(int directory, const QString &name, const FileGroupData &group)
{
    const QString partial = partialCopyPrefix + name;
    removeEntry(directory, partial);
    if (writeNewFile(directory, partial, descriptionOf(group)) && replaceEntry(directory, partial, name))
        return true;
    removeEntry(directory, partial);
    return false;
}

// One group of an archive being imported: its record, and where its files are.
struct ImportedGroup {
    FileGroupData record;
    FileDescriptor files;
};

// The description files \a directory holds, and the one beside it when \a besideAllowed.
struct Descriptions {
    FileDescriptor directory;
    QStringList names;
};

std::vector<Descriptions> descriptionsAt(const StorePaths &paths, const QString &path, KavroError *error)
{
    const QString inside = pathBeneath(paths.archiveRoot, path, true);
    FileDescriptor directory = openDirectory(paths.archiveRoot, inside);
    if (!directory.isValid()) {
        *error = ErrorImportArchive;
        return {};
    }
    std::vector<Descriptions> found;
    // The files directory of one exported group has its description beside it; the archive root has no beside.
    if (inside != paths.archiveRoot) {
        const qsizetype cut = inside.lastIndexOf(QLatin1Char('/'));
        FileDescriptor parent = openDirectory(paths.archiveRoot, inside.left(cut));
        const QString beside = inside.mid(cut + 1) + s_descriptionExtension;
        if (parent.isValid() && entryType(parent.get(), beside) == EntryType::RegularFile)
            found.push_back({std::move(parent), {beside}});
    }
    QStringList inDirectory;
    for (const QString &name : entryNames(directory.get())) {
        if (name.endsWith(s_descriptionExtension) && entryType(directory.get(), name) == EntryType::RegularFile)
            inDirectory.append(name);
    }
    inDirectory.sort();
    if (!inDirectory.isEmpty())
        found.push_back({std::move(directory), inDirectory});
    if (found.empty())
        *error = ErrorImportArchiveIncomplete;
    return found;
}

bool isValidRecord(const FileGroupData &record)
{
    QSet<quint64> ids;
    for (const auto &file : record.getFileList()) {
        if (!isPlainName(file.first) || file.second == 0 || ids.contains(quint64(file.second)))
            return false;
        ids.insert(quint64(file.second));
    }
    return isGuid(record.getGuid()) && record.getFileType() >= FileTypeUnknown
        && record.getFileType() <= FileTypeTechnicalParameters;
}

KavroError readGroup(int directory, const QString &description, ImportedGroup *group)
{
    QByteArray content;
    if (!readRegularFile(directory, description, s_maxDescriptionSize, &content))
        return ErrorImportFileGroup;
    QXmlStreamReader reader(content);
    if (group->record.FromHtml(reader) != NoError)
        return ErrorImportFileGroup;
    group->record.setGuid(group->record.getGuid().toLower());
    if (!isValidRecord(group->record))
        return ErrorImportFileGroup;
    const QString filesDirectory = description.chopped(s_descriptionExtension.size());
    group->files = openSubdirectory(directory, filesDirectory);
    const QStringList names = fileNames(group->record);
    if (names.isEmpty())
        return NoError;
    return group->files.isValid() && regularFilesSize(group->files.get(), names) ? NoError
                                                                                 : ErrorImportFileGroupIncomplete;
}

// Every group the import would store, checked: readable, with all their files, under guids not taken.
KavroError readImport(ArchiveStore &store, const StorePaths &paths, const QStringList &directories,
                      std::vector<ImportedGroup> *groups)
{
    QSet<QString> guids;
    for (const QString &path : directories) {
        KavroError error = NoError;
        const std::vector<Descriptions> found = descriptionsAt(paths, path, &error);
        if (error != NoError)
            return error;
        for (const Descriptions &descriptions : found) {
            for (const QString &description : descriptions.names) {
                ImportedGroup group;
                error = readGroup(descriptions.directory.get(), description, &group);
                if (error != NoError)
                    return error;
                const QString guid = group.record.getGuid();
                if (guids.contains(guid) || store.fileGroupExists(guid))
                    return ErrorAddFileGroup;
                guids.insert(guid);
                groups->push_back(std::move(group));
            }
        }
    }
    return NoError;
}
} // namespace

QString storageRootOf(const StorePaths &paths, const QString &groupPath)
{
    for (const QString &root : {paths.data, paths.nas}) {
        if (!pathBeneath(root, groupPath).isEmpty())
            return root;
    }
    return QString();
}

FileDescriptor openGroupDirectory(const StorePaths &paths, const QString &groupPath)
{
    const QString root = storageRootOf(paths, groupPath);
    return root.isEmpty() ? FileDescriptor() : openDirectory(root, groupPath);
}

void removeGroupDirectory(const StorePaths &paths, const QString &directory)
{
    const QString root = storageRootOf(paths, directory);
    if (root.isEmpty())
        return;
    removeDirectory(root, directory);
    removeEmptyParents(root, directory);
}

KavroError exportGroups(ArchiveStore &store, const StorePaths &paths, const QString &target, const QStringList &guids,
                        const StopRequested &stop)
{
    const QString targetPath = pathBeneath(paths.archiveRoot, target, true);
    if (targetPath.isEmpty())
        return ErrorExportArchive;
    QList<FileGroupData> groups;
    const KavroError read = store.inTransaction(
        [&] {
            for (const QString &guid : guids) {
                FileGroupData group;
                if (const KavroError error = store.fileGroup(guid, &group); error != NoError)
                    return error;
                groups.append(group);
            }
            return NoError;
        },
        ArchiveStore::Access::Read);
    if (read != NoError)
        return read;
    // Everything is checked before anything is written: names that stay one name inside the target,
    // and files that are regular files in their own group's directory.
    std::vector<FileDescriptor> sources;
    for (const FileGroupData &group : std::as_const(groups)) {
        FileDescriptor source = openGroupDirectory(paths, group.getPath());
        if (!isPlainName(group.getName() + QLatin1Char('_') + group.getGuid()) || !source.isValid()
            || !regularFilesSize(source.get(), fileNames(group)))
            return ErrorExportArchive;
        sources.push_back(std::move(source));
    }
    const FileDescriptor directory = makeDirectory(paths.archiveRoot, targetPath);
    if (!directory.isValid())
        return ErrorExportArchive;
    for (qsizetype i = 0; i < groups.size(); ++i) {
        const FileGroupData &group = groups.at(i);
        const QString base = group.getName() + QLatin1Char('_') + group.getGuid();
        if (!copyFilesInto(sources.at(size_t(i)).get(), fileNames(group), directory.get(), base, true, stop)
            || !writeDescription(directory.get(), base + s_descriptionExtension, group))
            return ErrorExportArchive;
    }
    return NoError;
}

KavroError importArchives(ArchiveStore &store, const StorePaths &paths, const QStringList &directories,
                          const StopRequested &stop)
{
    std::vector<ImportedGroup> groups;
    if (const KavroError error = readImport(store, paths, directories, &groups); error != NoError)
        return error;
    const QString importedPath = paths.data + QLatin1String("/imported");
    const FileDescriptor imported = makeDirectory(paths.data, importedPath);
    QStringList copied;
    const auto undoCopies = [&] {
        for (const QString &guid : std::as_const(copied))
            removeEntry(imported.get(), guid);
        removeEmptyParents(paths.data, importedPath);
    };
    for (ImportedGroup &group : groups) {
        const QString guid = group.record.getGuid();
        if (!imported.isValid()
            || !copyFilesInto(group.files.get(), fileNames(group.record), imported.get(), guid, false, stop)) {
            undoCopies();
            return ErrorImportFileGroupIncomplete;
        }
        copied.append(guid);
        group.record.setPath(importedPath + QLatin1Char('/') + guid);
        group.record.setLocationState(LocationCentral);
    }
    const KavroError stored = store.inTransaction([&] {
        for (const ImportedGroup &group : groups) {
            if (const KavroError error = store.createFileGroup(group.record); error != NoError)
                return error;
        }
        return NoError;
    });
    if (stored != NoError)
        undoCopies();
    return stored;
}

KavroError moveGroup(ArchiveStore &store, const StorePaths &paths, const QString &guid, const QString &server,
                     const std::function<void(double)> &progress, const StopRequested &stop)
{
    FileGroupData group;
    const QString target = paths.nas + QLatin1Char('/') + guid;
    bool copied = store.fileGroup(guid, &group) == NoError && storageRootOf(paths, group.getPath()) == paths.data;
    const FileDescriptor source = openGroupDirectory(paths, group.getPath());
    const FileDescriptor nas = openDirectory(paths.nas, paths.nas);
    const QStringList names = fileNames(group);
    const std::optional<qint64> total =
        copied && source.isValid() ? regularFilesSize(source.get(), names) : std::nullopt;
    if (copied && total && nas.isValid()) {
        qint64 done = 0;
        copied =
            copyFilesInto(source.get(), names, nas.get(), guid, false, stop, [&](const QString &name, qint64 bytes) {
                done += bytes;
                // The last file's share is told with the outcome.
                if (name != names.constLast() && *total > 0)
                    progress(100.0 * double(done) / double(*total));
            });
    } else {
        copied = false;
    }
    bool owner = true;
    const KavroError outcome = store.inTransaction([&] {
        owner = store.ownsMove(guid, server);
        if (!copied || !owner)
            return ErrorMoveFileGroup;
        const KavroError moved = store.setPath(guid, target);
        return moved != NoError ? moved : store.setLocationState(guid, LocationRemote, 100);
    });
    if (outcome == NoError) {
        if (store.groupUsingPath(group.getPath(), guid).isEmpty())
            removeGroupDirectory(paths, group.getPath());
        return NoError;
    }
    if (copied)
        removeEntry(nas.get(), guid);
    if (owner) {
        store.inTransaction([&] {
            return store.setLocationState(guid, LocationCentral, 0);
        });
    }
    return ErrorMoveFileGroup;
}

int rollBackInterruptedMoves(ArchiveStore &store, const StorePaths &paths, qint64 now)
{
    const QList<FileGroupData> interrupted = store.abandonedMoves(now);
    for (const FileGroupData &group : interrupted) {
        const QString copy = paths.nas + QLatin1Char('/') + group.getGuid();
        if (group.getPath() != copy && store.groupUsingPath(copy, group.getGuid()).isEmpty())
            removeDirectory(paths.nas, copy);
        store.inTransaction([&] {
            return store.setLocationState(group.getGuid(), LocationCentral, 0);
        });
    }
    return int(interrupted.size());
}

} // namespace Kavro::Server
