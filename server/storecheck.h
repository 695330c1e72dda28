// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_SERVER_STORECHECK_H
#define KAVRO_SERVER_STORECHECK_H

#include <QStringList>

namespace Kavro::Server
{

class ArchiveStore;
struct StorePaths;

/*!
 * \brief What does not match between a store's files and its database.
 */
struct StoreReport {
    //! Entries under the storage directory or network storage that no record names.
    QStringList orphans;
    //! Registered files or group directories that are not there, or not what they should be.
    QStringList missing;
    //! The database's own state: its schema version, its integrity, moves cut off.
    QStringList database;

    bool isClean() const { return orphans.isEmpty() && missing.isEmpty() && database.isEmpty(); }
};

//! Compares the files of the store in \a paths with the records of \a store.
StoreReport checkStore(ArchiveStore &store, const StorePaths &paths);

//! Removes the orphans of \a report; those that could not be removed are returned.
QStringList removeOrphans(const StorePaths &paths, const StoreReport &report);

} // namespace Kavro::Server

#endif
