// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_SERVER_ARCHIVESTORE_H
#define KAVRO_SERVER_ARCHIVESTORE_H

#include <kavro/filegroupdata.h>
#include <kavro/kavrotypes.h>

#include <QList>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

namespace Kavro
{
class FileQuery;

namespace Server
{

//! A converter: a connection to one of the servers of the archive.
struct ConverterAddress {
    QString server;
    quint64 connection = 0;
};

//! One registered file of a group.
struct StoredFile {
    quint32 id = 0;
    QString name;
    bool operator==(const StoredFile &other) const { return id == other.id && name == other.name; }
};

/*!
 * \brief The server's durable state: file groups, files, locks, references,
 * users and applications, in SQL.
 *
 * The only class that holds SQL, the same standard SQL on SQLite and on
 * PostgreSQL; what differs between them is kept in one table of the source.
 * One instance serves one thread: each has its own database connection. The
 * methods run plain statements; callers group the statements of one request
 * with inTransaction(). In a write transaction a group's row is locked from
 * its first check on, so that several servers can share one PostgreSQL
 * database: what a change checked still holds when it writes.
 */
class ArchiveStore
{
public:
    ArchiveStore();
    ~ArchiveStore();
    ArchiveStore(const ArchiveStore &) = delete;
    ArchiveStore &operator=(const ArchiveStore &) = delete;

    //! Whether opening brings the schema up to date, or leaves it to be checked.
    enum class Schema { Migrate, AsItIs };

    /*!
     * Opens \a database: a URL postgresql://USER@HOST:PORT/NAME (the
     * password from PGPASSWORD or ~/.pgpass), else the path of an SQLite
     * file, created when missing. Brings its schema to the current version
     * unless told not to. On failure returns false with the reason in \a error.
     */
    bool open(const QString &database, QString *error, Schema schema = Schema::Migrate);
    /*!
     * What is wrong with the database itself: a schema of another version,
     * missing tables, damage the database finds in itself; empty when nothing.
     */
    QStringList integrityProblems();
    //! The schema version this build creates and expects.
    static int schemaVersion();

    //! What a transaction may do: a reader never waits for writers.
    enum class Access { Read, Write };

    /*!
     * Runs \a work in one transaction: committed when it returns NoError,
     * rolled back otherwise. A failure to begin or commit gives
     * ErrorDatabaseUnavailable.
     */
    KavroError inTransaction(const std::function<KavroError()> &work, Access access = Access::Write);

    // File groups. An unknown guid gives ErrorGuidNotFound throughout.

    //! Stores \a record with its file list; a guid already stored gives ErrorAddFileGroup (36).
    KavroError createFileGroup(const FileGroupData &record);
    //! The record with its files, path, lock count, reference count and location state.
    KavroError fileGroup(const QString &guid, FileGroupData *record);
    bool fileGroupExists(const QString &guid);
    //! Removes the record with its files, references and locks; ErrorFileGroupLocked while a file is locked.
    KavroError deleteFileGroup(const QString &guid);
    //! Sets the location state and the progress in percent of its change, and the modification time to now.
    KavroError setLocationState(const QString &guid, LocationState state, double progress);
    KavroError locationState(const QString &guid, LocationState *state, double *progress);
    KavroError setPath(const QString &guid, const QString &path);
    /*!
     * The guid of a group other than \a exceptGuid whose directory is \a path,
     * lies inside it or contains it; empty when there is none.
     */
    QString groupUsingPath(const QString &path, const QString &exceptGuid = QString());
    /*!
     * The groups being moved whose server is gone: it has said it is alive
     * until before \a now (milliseconds since the epoch), or no server claims
     * the move at all. Without their files.
     */
    QList<FileGroupData> abandonedMoves(qint64 now);
    //! Records that \a server moves the group \a guid; leaving the state "being moved" ends the claim.
    KavroError claimMove(const QString &guid, const QString &server);
    //! True while \a server is the one that moves \a guid; in a write transaction the group's row stays locked.
    bool ownsMove(const QString &guid, const QString &server);

    // Servers sharing the archive.

    //! Records that \a server is alive until \a aliveUntil (milliseconds since the epoch).
    KavroError beat(const QString &server, qint64 aliveUntil);
    //! Forgets \a server, which stops, with its converters.
    void forgetServer(const QString &server);

    // Converters, of every server of the archive.

    //! Records the converter \a at for \a types, in place of what it registered before.
    KavroError registerConverter(const ConverterAddress &at, const QList<FileType> &types);
    //! Forgets the converter \a at: its connection is gone.
    void dropConverters(const ConverterAddress &at);
    /*!
     * A converter of \a type: one of \a server's own if there is one, else,
     * where notifications reach other servers, one of a server alive at
     * \a now (milliseconds since the epoch); none when there is none.
     */
    std::optional<ConverterAddress> converterFor(FileType type, const QString &server, qint64 now);
    //! Records that the converter \a at is asked to convert \a guid.
    KavroError askConversion(const QString &guid, const ConverterAddress &at);
    //! True when the converter \a at was asked to convert \a guid; when \a finished, the request is forgotten.
    bool answersConversion(const QString &guid, const ConverterAddress &at, bool finished);

    /*!
     * Sends \a payload to the connections that listen() on \a channel, once
     * the transaction commits; false where the database has no notifications
     * (SQLite: one server alone uses it).
     */
    bool notify(const QString &channel, const QString &payload);
    //! Calls \a received, on this store's thread, with every payload notified on \a channel; false where none can be.
    bool listen(const QString &channel, const std::function<void(const QString &)> &received);
    //! Every record with its files, for checking the store against the database.
    QList<FileGroupData> allFileGroups();

    // Files.

    /*!
     * Registers \a name under \a wantedId, or under the next free id (one
     * above the highest, 1 for the first) when \a wantedId is 0. A taken id
     * gives ErrorAddFile (26). Sets the group's modification time.
     */
    KavroError addFile(const QString &guid, const QString &name, quint32 wantedId, quint32 *id);
    //! The id the next file of a group gets: one above the highest, else the lowest free one; none when all are taken.
    std::optional<quint32> nextFreeFileId(const QString &guid);
    //! The name of a file; an unknown id gives ErrorOpenFile (7).
    KavroError fileName(const QString &guid, quint32 id, QString *name);
    QList<StoredFile> files(const QString &guid);
    //! Unregisters a file; an unknown id gives ErrorRemoveFile (27), a locked one ErrorFileGroupLocked (6).
    KavroError deleteFile(const QString &guid, quint32 id);

    /*!
     * Takes a lock of \a user on a file: shared for reading, exclusive for
     * writing. A read lock is refused with ErrorFileGroupWriteLocked (5)
     * while another user holds the write lock; a write lock with
     * ErrorFileGroupLocked (6) while another user holds any lock. A user's
     * second request replaces their own lock. An unknown id gives ErrorOpenFile.
     */
    KavroError lockFile(const QString &guid, quint32 id, const QString &user, bool write);
    //! Releases \a user's lock on a file; ErrorDeleteLock (22) when they hold none.
    KavroError unlockFile(const QString &guid, quint32 id, const QString &user);

    // References, counted per group and application.

    KavroError addReference(const QString &guid, const QString &application);
    //! Drops one reference; ErrorDeleteReference (32) when the application holds none.
    KavroError removeReference(const QString &guid, const QString &application);
    KavroError removeAllReferences(const QString &guid, const QString &application);

    // Who has been seen. Empty names are not recorded.

    void noteUser(const QString &user);
    void noteApplication(const QString &application);
    QStringList users();
    QStringList applications();

    /*!
     * The records that meet every criterion of \a query, ordered by creation
     * time then guid, without their file lists. Search texts match as
     * case-insensitive substrings; a location or lock state of 0 means any;
     * time ranges are inclusive and open where a bound is null.
     */
    QList<FileGroupData> query(const FileQuery &query);

private:
    class Private;
    Private *const d;
};

} // namespace Server
} // namespace Kavro

#endif
