// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_SERVER_ARCHIVETRANSFER_H
#define KAVRO_SERVER_ARCHIVETRANSFER_H

#include "storefiles.h"

#include <kavro/filegroupdata.h>
#include <kavro/kavrotypes.h>

#include <QStringList>

#include <functional>

namespace Kavro::Server
{

class ArchiveStore;
struct StorePaths;

//! The prefix of the directories copies are assembled in before they are renamed into place.
extern const QLatin1String partialCopyPrefix;

//! Asked between blocks of a copy: true stops it, and the transfer fails, leaving nothing behind.
using StopRequested = std::function<bool()>;

/*!
 * The storage directory or network storage that \a groupPath lies in (not
 * being either itself); empty when neither.
 */
QString storageRootOf(const StorePaths &paths, const QString &groupPath);

//! A group's directory, opened without following a link; invalid when it does not open so.
FileDescriptor openGroupDirectory(const StorePaths &paths, const QString &groupPath);

/*!
 * Writes into \a target, inside the archive root, each group's description
 * file "<name>_<guid>.fgdesc" and a directory of the same name holding its
 * files; earlier ones of the same names are replaced once the new ones are
 * whole. Everything is checked before anything is copied. ErrorExportArchive
 * for a target outside the archive root, a group whose files are not all
 * regular files in its directory, or a failed write; ErrorGuidNotFound for an
 * unknown group.
 */
KavroError exportGroups(ArchiveStore &store, const StorePaths &paths, const QString &target, const QStringList &guids,
                        const StopRequested &stop);

/*!
 * Reads back every description file in each of \a directories, inside the
 * archive root, with the files beside it: the records are stored again, in
 * state Central, their files copied to "data/imported/<guid>". Nothing is
 * stored or copied unless every group can be: ErrorImportArchive for a
 * directory outside the archive root, ErrorImportArchiveIncomplete for one
 * without descriptions, ErrorImportFileGroup for a description that cannot be
 * read, ErrorAddFileGroup for a guid already stored, and
 * ErrorImportFileGroupIncomplete for files that are missing or cannot be copied.
 */
KavroError importArchives(ArchiveStore &store, const StorePaths &paths, const QStringList &directories,
                          const StopRequested &stop);

/*!
 * Copies the files of \a guid, which is in state "Central not moved" and
 * claimed by \a server, to "nas/<guid>" and makes it Remote there,
 * reporting after each file but the last the share of the bytes copied so
 * far, in percent. The old directory goes once the new one is the group's.
 * A failed copy leaves the group Central where it was: ErrorMoveFileGroup.
 * So does a move that another server put back meanwhile, taking \a server
 * for gone; its copy is removed and the group left as that server left it.
 */
KavroError moveGroup(ArchiveStore &store, const StorePaths &paths, const QString &guid, const QString &server,
                     const std::function<void(double)> &progress, const StopRequested &stop);

/*!
 * Puts back in their place the groups in the middle of a move whose server
 * is gone (ArchiveStore::abandonedMoves() at \a now): Central, in their old
 * directory; a copy already made is removed. Returns how many there were.
 */
int rollBackInterruptedMoves(ArchiveStore &store, const StorePaths &paths, qint64 now);

//! Removes a group's directory, and the directories above it that it leaves empty.
void removeGroupDirectory(const StorePaths &paths, const QString &directory);

} // namespace Kavro::Server

#endif
