// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_SERVER_ARCHIVETRANSFER_H
#define KAVRO_SERVER_ARCHIVETRANSFER_H

#include <kavro/filegroupdata.h>
#include <kavro/kavrotypes.h>

#include <QStringList>

#include <functional>

namespace Kavro::Server
{

class ArchiveStore;
struct StorePaths;

/*!
 * Writes into \a target, inside the archive root, each group's description
 * file "<name>_<guid>.fgdesc" and a directory of the same name holding its
 * files. ErrorExportArchive for a target outside the archive root or a
 * failed write, ErrorGuidNotFound for an unknown group.
 */
KavroError exportGroups(ArchiveStore &store, const StorePaths &paths, const QString &target, const QStringList &guids);

/*!
 * Reads back every description file in each of \a directories, inside the
 * archive root, with the files beside it: the records are stored again and
 * their files copied under the storage directory. ErrorImportArchive for a
 * directory outside the archive root.
 */
KavroError importArchives(ArchiveStore &store, const StorePaths &paths, const QStringList &directories);

/*!
 * Copies the files of \a group into \a target, reporting after each file
 * the share of the bytes copied so far, in percent. False when a file could
 * not be copied.
 */
bool copyGroupFiles(const FileGroupData &group, const QString &target, const std::function<void(double)> &progress);

//! Removes a group's directory when it lies inside the storage directory or network storage.
void removeGroupDirectory(const StorePaths &paths, const QString &directory);

} // namespace Kavro::Server

#endif
