// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_SERVER_STOREPATHS_H
#define KAVRO_SERVER_STOREPATHS_H

#include <QString>

namespace Kavro::Server
{

/*!
 * \brief Where a server keeps what: its database, its storage directory, its
 * network storage and its archive root. Every path a client names is checked
 * against these before it is used.
 */
struct StorePaths {
    /*!
     * Creates the directories of a store in \a storeDirectory; false with \a error when one cannot be made. The
     * catalogue is \a database (see ArchiveStore::open()), else the store's SQLite file kavro.sqlite.
     */
    bool create(const QString &storeDirectory, const QString &archiveRootDirectory, const QString &database,
                QString *error);

    QString database; //!< the catalogue: a postgresql:// URL or an SQLite file
    QString data; //!< the storage directory clients lay their file groups out in
    QString nas; //!< network storage: where MoveToNas copies to
    QString archiveRoot; //!< the only place archives are exported to and imported from
};

//! True for a name that can stand as one path component: no separators, not "." or "..", not empty.
bool isPlainName(const QString &name);

//! The longest guid a group may have.
constexpr int maxGuidLength = 255;
//! True for a guid a group may have: a plain name of at most maxGuidLength characters.
bool isGuid(const QString &guid);

} // namespace Kavro::Server

#endif
