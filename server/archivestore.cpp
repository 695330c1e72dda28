// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "archivestore.h"

#include "trace_p.h"

#include <kavro/filequery.h>

#include <QSqlDatabase>
#include <QSqlDriver>
#include <QSqlError>
#include <QSqlQuery>
#include <QUrl>
#include <QVariant>

#include <atomic>
#include <iterator>
#include <limits>
#include <utility>

namespace Kavro
{
namespace Server
{

namespace
{
// Numbers the connections of all instances, whichever thread opens them.
std::atomic<quint64> s_connectionCounter{0};

// The schema, one migration step per version. Standard SQL only, so that
// another server-class database can hold the same tables. The *_lower
// columns keep the searchable texts lowered by Qt: SQLite's LOWER() folds
// ASCII letters only, which would miss "Ä" against "ä".
const char *const s_schemaStep1[] = {
    "CREATE TABLE file_groups ("
    " guid VARCHAR(255) NOT NULL PRIMARY KEY,"
    " name TEXT, name_lower TEXT,"
    " file_type INTEGER NOT NULL,"
    " location_state INTEGER NOT NULL,"
    " progress DOUBLE PRECISION NOT NULL,"
    " backup_time BIGINT, creation_time BIGINT, modification_time BIGINT, life_cycle BIGINT,"
    " comment TEXT, comment_lower TEXT,"
    " creator TEXT, creator_lower TEXT,"
    " detail TEXT, detail_lower TEXT,"
    " path TEXT,"
    " team TEXT, team_lower TEXT,"
    " version TEXT, version_lower TEXT,"
    " reserved_storage BIGINT NOT NULL)",
    "CREATE TABLE files ("
    " guid VARCHAR(255) NOT NULL REFERENCES file_groups (guid) ON DELETE CASCADE,"
    " file_id BIGINT NOT NULL,"
    " name TEXT,"
    " PRIMARY KEY (guid, file_id))",
    "CREATE TABLE locks ("
    " guid VARCHAR(255) NOT NULL,"
    " file_id BIGINT NOT NULL,"
    " user_name VARCHAR(255) NOT NULL,"
    " write_lock INTEGER NOT NULL,"
    " PRIMARY KEY (guid, file_id, user_name),"
    " FOREIGN KEY (guid, file_id) REFERENCES files (guid, file_id) ON DELETE CASCADE)",
    "CREATE TABLE file_references ("
    " guid VARCHAR(255) NOT NULL REFERENCES file_groups (guid) ON DELETE CASCADE,"
    " application VARCHAR(255) NOT NULL,"
    " reference_count INTEGER NOT NULL,"
    " PRIMARY KEY (guid, application))",
    "CREATE TABLE users (name VARCHAR(255) NOT NULL PRIMARY KEY)",
    "CREATE TABLE applications (name VARCHAR(255) NOT NULL PRIMARY KEY)",
    "CREATE INDEX file_groups_file_type ON file_groups (file_type)",
    "CREATE INDEX file_groups_location_state ON file_groups (location_state)",
    "CREATE INDEX file_groups_backup_time ON file_groups (backup_time)",
    "CREATE INDEX file_groups_creation_time ON file_groups (creation_time)",
    "CREATE INDEX file_groups_modification_time ON file_groups (modification_time)",
    "CREATE INDEX file_groups_life_cycle ON file_groups (life_cycle)",
    "CREATE INDEX file_groups_creator ON file_groups (creator)",
    "CREATE INDEX locks_user_name ON locks (user_name)",
    "CREATE INDEX file_references_application ON file_references (application)",
};

// Times as records carry them, in whole seconds; guids compared without regard to case, so kept lowered; an
// index for the paths, which are checked against each other whenever a group is created.
const char *const s_schemaStep2[] = {
    "UPDATE file_groups SET backup_time = backup_time - ((backup_time % 1000) + 1000) % 1000,"
    " creation_time = creation_time - ((creation_time % 1000) + 1000) % 1000,"
    " modification_time = modification_time - ((modification_time % 1000) + 1000) % 1000,"
    " life_cycle = life_cycle - ((life_cycle % 1000) + 1000) % 1000",
    "UPDATE file_groups SET guid = LOWER(guid)",
    "UPDATE files SET guid = LOWER(guid)",
    "UPDATE locks SET guid = LOWER(guid)",
    "UPDATE file_references SET guid = LOWER(guid)",
    "CREATE INDEX file_groups_path ON file_groups (path)",
};

// Several servers on one archive: each says until when it is alive, and a move belongs to the server that
// started it, so that only the moves of servers that are gone are put back.
const char *const s_schemaStep3[] = {
    "CREATE TABLE servers (id VARCHAR(64) NOT NULL PRIMARY KEY, alive_until BIGINT NOT NULL)",
    "CREATE TABLE moves ("
    " guid VARCHAR(255) NOT NULL PRIMARY KEY REFERENCES file_groups (guid) ON DELETE CASCADE,"
    " server_id VARCHAR(64) NOT NULL)",
    "CREATE TABLE converters ("
    " server_id VARCHAR(64) NOT NULL, connection_id BIGINT NOT NULL, file_type INTEGER NOT NULL,"
    " PRIMARY KEY (server_id, connection_id, file_type))",
    "CREATE TABLE conversions ("
    " guid VARCHAR(255) NOT NULL PRIMARY KEY REFERENCES file_groups (guid) ON DELETE CASCADE,"
    " server_id VARCHAR(64) NOT NULL, connection_id BIGINT NOT NULL)",
};

struct MigrationStep {
    const char *const *begin;
    const char *const *end;
};

// What differs between the databases the store runs on; every other statement is the same standard SQL on both.
struct Dialect {
    const char *driver;
    //! Statements that prepare a new connection.
    std::initializer_list<const char *> setUp;
    const char *beginRead;
    const char *beginWrite;
    //! Appended to the SELECT of a group's row in a write transaction: locks the row against other connections'
    //! changes until the transaction ends (SQLite's write transaction already excludes every other writer).
    const char *lockRow;
    //! Lets a migration step change keys that others refer to, checked when the step ends; null where none is.
    const char *deferForeignKeys;
    //! Sends a payload (the second value) to the connections listening on a channel (the first) once the
    //! transaction commits; null where the database has no such notifications.
    const char *notify = nullptr;
};

const Dialect s_sqlite{
    "QSQLITE",
    // several connections share the file: wait for each other's writes instead of failing;
    // paths are compared with LIKE, which must not fold case as SQLite's does by default
    {"PRAGMA busy_timeout=5000", "PRAGMA journal_mode=WAL", "PRAGMA foreign_keys=ON", "PRAGMA case_sensitive_like=ON"},
    // a writer takes the write lock up front: a deferred read lock cannot always be upgraded
    "BEGIN",
    "BEGIN IMMEDIATE",
    "",
    "PRAGMA defer_foreign_keys=ON"};
const Dialect s_postgresql{"QPSQL",
                           {"SET client_min_messages TO WARNING"},
                           "BEGIN TRANSACTION READ ONLY",
                           "BEGIN",
                           " FOR UPDATE",
                           nullptr,
                           "SELECT pg_notify(?, ?)"};

// Step n brings a database of version n - 1 to version n.
const MigrationStep s_migrationSteps[] = {
    {std::begin(s_schemaStep1), std::end(s_schemaStep1)},
    {std::begin(s_schemaStep2), std::end(s_schemaStep2)},
    {std::begin(s_schemaStep3), std::end(s_schemaStep3)},
};

// The columns of a record as fileGroup() and query() read them, the group aliased as g.
const QLatin1String s_recordColumns(
    "g.guid, g.name, g.file_type, g.location_state, g.backup_time, g.creation_time, g.modification_time,"
    " g.life_cycle, g.comment, g.creator, g.detail, g.path, g.team, g.version, g.reserved_storage,"
    " (SELECT COUNT(*) FROM locks l WHERE l.guid = g.guid),"
    " (SELECT COALESCE(SUM(r.reference_count), 0) FROM file_references r WHERE r.guid = g.guid)");

// Times are kept in whole seconds, as records carry them, so that a record's own time finds it again.
qint64 wholeSeconds(qint64 msecs)
{
    return msecs - ((msecs % 1000) + 1000) % 1000;
}

QVariant timeValue(const QDateTime &time)
{
    return time.isValid() ? QVariant(wholeSeconds(time.toMSecsSinceEpoch())) : QVariant(QMetaType::fromType<qint64>());
}

QDateTime timeFrom(const QVariant &value)
{
    return value.isNull() ? QDateTime() : QDateTime::fromMSecsSinceEpoch(value.toLongLong(), Qt::UTC);
}

QVariant nowValue()
{
    return wholeSeconds(QDateTime::currentMSecsSinceEpoch());
}

FileGroupData recordFrom(const QSqlQuery &query)
{
    FileGroupData record;
    record.setGuid(query.value(0).toString());
    record.setName(query.value(1).toString());
    record.setFileType(static_cast<FileType>(query.value(2).toInt()));
    record.setLocationState(static_cast<LocationState>(query.value(3).toInt()));
    record.setBackupTime(timeFrom(query.value(4)));
    record.setCreationTime(timeFrom(query.value(5)));
    record.setModificationTime(timeFrom(query.value(6)));
    record.setLifeCycle(timeFrom(query.value(7)));
    record.setComment(query.value(8).toString());
    record.setCreator(query.value(9).toString());
    record.setDetail(query.value(10).toString());
    record.setPath(query.value(11).toString());
    record.setTeam(query.value(12).toString());
    record.setVersion(query.value(13).toString());
    record.setReservedStorage(query.value(14).toLongLong());
    record.setLockCount(query.value(15).toInt());
    record.setReferenceCount(query.value(16).toInt());
    return record;
}

// \a text for LIKE ... ESCAPE '\', its wildcards taken literally.
QString likeLiteral(const QString &text)
{
    QString escaped = text;
    escaped.replace(QLatin1Char('\\'), QLatin1String("\\\\"));
    escaped.replace(QLatin1Char('%'), QLatin1String("\\%"));
    escaped.replace(QLatin1Char('_'), QLatin1String("\\_"));
    return escaped;
}

// "%text%", lowered.
QString containsPattern(const QString &text)
{
    return QLatin1Char('%') + likeLiteral(text.toLower()) + QLatin1Char('%');
}
} // namespace

class ArchiveStore::Private
{
public:
    bool run(QSqlQuery &query, const QString &sql, const QVariantList &values = {});
    bool statement(const QString &sql);
    bool begin(ArchiveStore::Access access = ArchiveStore::Access::Write);
    bool end(bool commit);
    void close();
    bool migrate(QString *error);
    bool readVersion(int *version, QString *error);
    KavroError checkGroup(const QString &guid);
    KavroError checkFile(const QString &guid, quint32 id, KavroError missing);
    KavroError touch(const QString &guid);
    KavroError transaction(const std::function<KavroError()> &work,
                           ArchiveStore::Access access = ArchiveStore::Access::Write);
    //! Runs \a work in a transaction when the group \a guid exists; ErrorGuidNotFound otherwise.
    KavroError onGroup(const QString &guid, const std::function<KavroError()> &work);
    void noteName(const QLatin1String &table, const QString &name);
    QStringList names(const QLatin1String &table);
    bool readFiles(const QString &guid, QList<StoredFile> *files);
    //! The records, without their files, of the groups g that \a clauses (WHERE, ORDER BY) select.
    QList<FileGroupData> records(const QString &clauses, const QVariantList &values);

    //! Connects to the database \a name names: a postgresql:// URL, else an SQLite file.
    bool connect(const QString &name, QString *error);

    const Dialect *dialect = &s_sqlite;
    QString connectionName;
    QSqlDatabase db;
    int depth = 0; // open transaction levels; the inner ones are savepoints
    bool writing = false; // the open transaction is a write transaction
};

// Prepares and runs one statement with its values bound in order. A failure is traced with the driver's text.
bool ArchiveStore::Private::run(QSqlQuery &query, const QString &sql, const QVariantList &values)
{
    query.setForwardOnly(true);
    // Statements without values run as they are: some (BEGIN, CREATE) cannot be prepared everywhere.
    if (values.isEmpty()) {
        const bool ran = query.exec(sql);
        if (!ran)
            KAVRO_TRACE_WARNING(QStringLiteral("SQL failed: %1: %2").arg(sql, query.lastError().text()));
        return ran;
    }
    bool ok = query.prepare(sql);
    // A null text is stored as an empty one: texts are never NULL in the schema.
    for (int i = 0; ok && i < values.size(); ++i) {
        const QVariant &value = values.at(i);
        const bool nullText = value.typeId() == QMetaType::QString && value.toString().isNull();
        query.addBindValue(nullText ? QVariant(QStringLiteral("")) : value);
    }
    ok = ok && query.exec();
    if (!ok)
        KAVRO_TRACE_WARNING(QStringLiteral("SQL failed: %1: %2").arg(sql, query.lastError().text()));
    return ok;
}

bool ArchiveStore::Private::statement(const QString &sql)
{
    QSqlQuery query(db);
    return run(query, sql);
}

bool ArchiveStore::Private::begin(ArchiveStore::Access access)
{
    bool ok;
    if (depth > 0) {
        ok = statement(QStringLiteral("SAVEPOINT kavro_") + QString::number(depth));
    } else {
        writing = access == ArchiveStore::Access::Write;
        ok = statement(QLatin1String(writing ? dialect->beginWrite : dialect->beginRead));
    }
    if (ok)
        ++depth;
    return ok;
}

// Ends the innermost level: keeps its work when \a commit is set and that succeeds, else undoes it.
bool ArchiveStore::Private::end(bool commit)
{
    const int level = --depth;
    if (level > 0) {
        const QString name = QStringLiteral("kavro_") + QString::number(level);
        if (commit && statement(QStringLiteral("RELEASE SAVEPOINT ") + name))
            return true;
        statement(QStringLiteral("ROLLBACK TO SAVEPOINT ") + name);
        statement(QStringLiteral("RELEASE SAVEPOINT ") + name);
        return false;
    }
    writing = false;
    if (commit && statement(QStringLiteral("COMMIT")))
        return true;
    statement(QStringLiteral("ROLLBACK"));
    return false;
}

void ArchiveStore::Private::close()
{
    if (connectionName.isEmpty())
        return;
    db.close();
    db = QSqlDatabase(); // the last handle must be gone before the connection is removed
    QSqlDatabase::removeDatabase(connectionName);
    connectionName.clear();
    depth = 0;
}

// Reads the stored schema version inside the open transaction; a new database starts at 0.
bool ArchiveStore::Private::readVersion(int *version, QString *error)
{
    if (!db.tables().contains(QLatin1String("schema_version"))
        && !statement(QStringLiteral("CREATE TABLE schema_version (version INTEGER NOT NULL)"))) {
        *error = QStringLiteral("Cannot create the schema version table");
        return false;
    }
    QSqlQuery query(db);
    if (!run(query, QStringLiteral("SELECT version FROM schema_version"))) {
        *error = QStringLiteral("Cannot read the schema version: ") + query.lastError().text();
        return false;
    }
    if (query.next()) {
        *version = query.value(0).toInt();
        return true;
    }
    *version = 0;
    if (run(query, QStringLiteral("INSERT INTO schema_version (version) VALUES (0)")))
        return true;
    *error = QStringLiteral("Cannot store the schema version: ") + query.lastError().text();
    return false;
}

// Applies the migration steps above the stored version, each in its own transaction. The version is read
// again inside each one, so that two servers opening a new database at once do not both apply a step.
bool ArchiveStore::Private::migrate(QString *error)
{
    for (;;) {
        if (!begin()) {
            *error = QStringLiteral("Cannot begin a transaction: ") + db.lastError().text();
            return false;
        }
        int version = 0;
        if (!readVersion(&version, error)) {
            end(false);
            return false;
        }
        if (version > ArchiveStore::schemaVersion()) {
            end(false);
            *error = QStringLiteral("The database has schema version %1; this server knows versions up to %2")
                         .arg(version)
                         .arg(ArchiveStore::schemaVersion());
            return false;
        }
        // A step may change keys that others refer to: they are checked at the end of the step.
        bool ok = !dialect->deferForeignKeys || statement(QLatin1String(dialect->deferForeignKeys));
        if (ok && version < ArchiveStore::schemaVersion()) {
            const MigrationStep &step = s_migrationSteps[version];
            for (const char *const *sql = step.begin; ok && sql != step.end; ++sql)
                ok = statement(QLatin1String(*sql));
            QSqlQuery query(db);
            ok = ok && run(query, QStringLiteral("UPDATE schema_version SET version = ?"), {version + 1});
        }
        if (!end(ok)) {
            *error = QStringLiteral("Cannot update the schema from version %1").arg(version);
            return false;
        }
        if (version == ArchiveStore::schemaVersion())
            return true;
    }
}

// In a write transaction the group's row stays locked to the transaction, so that what is checked holds until
// the change is written, whichever server of the archive writes alongside.
KavroError ArchiveStore::Private::checkGroup(const QString &guid)
{
    QSqlQuery query(db);
    const QString sql = QStringLiteral("SELECT 1 FROM file_groups WHERE guid = ?")
        + (writing ? QLatin1String(dialect->lockRow) : QLatin1String());
    if (!run(query, sql, {guid}))
        return ErrorReadFileGroupFromDb;
    return query.next() ? NoError : ErrorGuidNotFound;
}

// NoError when the file exists; else ErrorGuidNotFound for an unknown group, or \a missing.
KavroError ArchiveStore::Private::checkFile(const QString &guid, quint32 id, KavroError missing)
{
    if (const KavroError group = checkGroup(guid); group != NoError)
        return group;
    QSqlQuery query(db);
    if (!run(query, QStringLiteral("SELECT 1 FROM files WHERE guid = ? AND file_id = ?"), {guid, qint64(id)}))
        return ErrorReadFileFromDb;
    return query.next() ? NoError : missing;
}

KavroError ArchiveStore::Private::touch(const QString &guid)
{
    QSqlQuery query(db);
    return run(query, QStringLiteral("UPDATE file_groups SET modification_time = ? WHERE guid = ?"), {nowValue(), guid})
        ? NoError
        : ErrorUpdateFileGroupInDb;
}

// Runs \a work in a transaction, or in a savepoint when one is open, so that a method's statements stay
// together whether or not the caller groups them.
KavroError ArchiveStore::Private::onGroup(const QString &guid, const std::function<KavroError()> &work)
{
    return transaction([&] {
        const KavroError group = checkGroup(guid);
        return group != NoError ? group : work();
    });
}

KavroError ArchiveStore::Private::transaction(const std::function<KavroError()> &work, ArchiveStore::Access access)
{
    if (!begin(access))
        return ErrorDatabaseUnavailable;
    const KavroError result = work();
    if (result != NoError) {
        end(false);
        return result;
    }
    return end(true) ? NoError : ErrorDatabaseUnavailable;
}

// Records \a name in \a table unless it is there. Only a new name takes the write lock; a failed insert
// (another connection was quicker) is undone on its own, so that it cannot spoil the caller's transaction.
void ArchiveStore::Private::noteName(const QLatin1String &table, const QString &name)
{
    if (name.isEmpty())
        return;
    const QString known = QLatin1String("SELECT 1 FROM ") + table + QLatin1String(" WHERE name = ?");
    QSqlQuery query(db);
    if (!run(query, known, {name}) || query.next())
        return;
    transaction([&] {
        if (!run(query, known, {name}))
            return ErrorUnknown;
        if (query.next())
            return NoError;
        return run(query, QLatin1String("INSERT INTO ") + table + QLatin1String(" (name) VALUES (?)"), {name})
            ? NoError
            : ErrorUnknown;
    });
}

// Sorted here rather than in SQL, so that the order does not depend on the database's collation.
QStringList ArchiveStore::Private::names(const QLatin1String &table)
{
    QStringList result;
    QSqlQuery query(db);
    if (run(query, QLatin1String("SELECT name FROM ") + table)) {
        while (query.next())
            result.append(query.value(0).toString());
    }
    result.sort();
    return result;
}

QList<FileGroupData> ArchiveStore::Private::records(const QString &clauses, const QVariantList &values)
{
    QList<FileGroupData> result;
    QSqlQuery query(db);
    if (run(query, QLatin1String("SELECT ") + s_recordColumns + QLatin1String(" FROM file_groups g") + clauses,
            values)) {
        while (query.next())
            result.append(recordFrom(query));
    }
    return result;
}

bool ArchiveStore::Private::readFiles(const QString &guid, QList<StoredFile> *files)
{
    QSqlQuery query(db);
    if (!run(query, QStringLiteral("SELECT file_id, name FROM files WHERE guid = ? ORDER BY file_id"), {guid}))
        return false;
    while (query.next())
        files->append({quint32(query.value(0).toLongLong()), query.value(1).toString()});
    return true;
}

ArchiveStore::ArchiveStore()
    : d(new Private)
{
}

ArchiveStore::~ArchiveStore()
{
    d->close();
    delete d;
}

int ArchiveStore::schemaVersion()
{
    return int(std::size(s_migrationSteps));
}

bool ArchiveStore::Private::connect(const QString &name, QString *error)
{
    const QUrl url(name);
    const bool postgresql = url.scheme() == QLatin1String("postgresql") || url.scheme() == QLatin1String("postgres");
    dialect = postgresql ? &s_postgresql : &s_sqlite;
    connectionName = QStringLiteral("kavro-store-") + QString::number(++s_connectionCounter);
    db = QSqlDatabase::addDatabase(QLatin1String(dialect->driver), connectionName);
    if (!db.isValid()) {
        *error = QStringLiteral("The SQL driver %1 is not available").arg(QLatin1String(dialect->driver));
        return false;
    }
    if (postgresql) {
        // The password comes from PGPASSWORD or ~/.pgpass, as libpq finds it: never from a command line.
        if (!url.password().isEmpty()) {
            *error = QStringLiteral("Give the database's password in PGPASSWORD or ~/.pgpass, not in the URL");
            return false;
        }
        db.setHostName(url.host());
        db.setPort(url.port(5432));
        db.setUserName(url.userName());
        db.setDatabaseName(url.path().mid(1));
    } else {
        db.setDatabaseName(name);
    }
    const QString shown = postgresql ? url.toDisplayString() : name;
    if (!db.open()) {
        *error = QStringLiteral("Cannot open %1: %2").arg(shown, db.lastError().text());
        return false;
    }
    for (const char *sql : dialect->setUp) {
        if (!statement(QLatin1String(sql))) {
            *error = QStringLiteral("Cannot configure %1: %2").arg(shown, db.lastError().text());
            return false;
        }
    }
    return true;
}

bool ArchiveStore::open(const QString &database, QString *error, Schema schema)
{
    QString reason;
    d->close();
    if (d->connect(database, &reason) && (schema == Schema::AsItIs || d->migrate(&reason)))
        return true;
    KAVRO_TRACE_WARNING(reason);
    if (error)
        *error = reason;
    d->close();
    return false;
}

QStringList ArchiveStore::integrityProblems()
{
    QStringList problems;
    QSqlQuery query(d->db);
    const int version = d->run(query, QStringLiteral("SELECT version FROM schema_version")) && query.next()
        ? query.value(0).toInt()
        : 0;
    if (version != schemaVersion())
        problems.append(QStringLiteral("the schema has version %1, this server's has version %2%3")
                            .arg(version)
                            .arg(schemaVersion())
                            .arg(version < schemaVersion() ? QStringLiteral(" (the server brings it up to date when "
                                                                            "it starts)")
                                                           : QString()));
    const QStringList tables = d->db.tables();
    for (const char *table : {"file_groups", "files", "locks", "file_references", "users", "applications"}) {
        if (!tables.contains(QLatin1String(table)))
            problems.append(QStringLiteral("the table %1 is missing").arg(QLatin1String(table)));
    }
    if (d->dialect == &s_sqlite) {
        if (d->run(query, QStringLiteral("PRAGMA integrity_check"))) {
            while (query.next()) {
                if (const QString line = query.value(0).toString(); line != QLatin1String("ok"))
                    problems.append(QStringLiteral("integrity: ") + line);
            }
        }
        if (d->run(query, QStringLiteral("PRAGMA foreign_key_check"))) {
            while (query.next())
                problems.append(QStringLiteral("a row of %1 refers to a missing row of %2")
                                    .arg(query.value(0).toString(), query.value(2).toString()));
        }
    }
    return problems;
}

KavroError ArchiveStore::inTransaction(const std::function<KavroError()> &work, Access access)
{
    return d->transaction(work, access);
}

KavroError ArchiveStore::createFileGroup(const FileGroupData &record)
{
    return d->transaction([&] {
        const KavroError existing = d->checkGroup(record.getGuid());
        if (existing != ErrorGuidNotFound)
            return existing == NoError ? ErrorAddFileGroup : existing;
        QSqlQuery query(d->db);
        if (!d->run(
                query,
                QStringLiteral("INSERT INTO file_groups (guid, name, name_lower, file_type, location_state, progress,"
                               " backup_time, creation_time, modification_time, life_cycle, comment, comment_lower,"
                               " creator, creator_lower, detail, detail_lower, path, team, team_lower, version,"
                               " version_lower, reserved_storage)"
                               " VALUES (?, ?, ?, ?, ?, 0, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"),
                {record.getGuid(),
                 record.getName(),
                 record.getName().toLower(),
                 int(record.getFileType()),
                 int(record.getLocationState()),
                 timeValue(record.getBackupTime()),
                 timeValue(record.getCreationTime()),
                 timeValue(record.getModificationTime()),
                 timeValue(record.getLifeCycle()),
                 record.getComment(),
                 record.getComment().toLower(),
                 record.getCreator(),
                 record.getCreator().toLower(),
                 record.getDetail(),
                 record.getDetail().toLower(),
                 record.getPath(),
                 record.getTeam(),
                 record.getTeam().toLower(),
                 record.getVersion(),
                 record.getVersion().toLower(),
                 qint64(record.getReservedStorage())}))
            return ErrorInsertFileGroupInDb;
        for (const auto &file : record.getFileList()) {
            if (!d->run(query, QStringLiteral("INSERT INTO files (guid, file_id, name) VALUES (?, ?, ?)"),
                        {record.getGuid(), qint64(file.second), file.first}))
                return ErrorInsertFileInDb;
        }
        return NoError;
    });
}

KavroError ArchiveStore::fileGroup(const QString &guid, FileGroupData *record)
{
    // A change reads the record it changes with the group's row locked.
    if (d->writing) {
        if (const KavroError group = d->checkGroup(guid); group != NoError)
            return group;
    }
    QSqlQuery query(d->db);
    if (!d->run(query,
                QLatin1String("SELECT ") + s_recordColumns + QLatin1String(" FROM file_groups g WHERE g.guid = ?"),
                {guid}))
        return ErrorReadFileGroupFromDb;
    if (!query.next())
        return ErrorGuidNotFound;
    if (!record)
        return NoError;
    FileGroupData result = recordFrom(query);
    QList<StoredFile> stored;
    if (!d->readFiles(guid, &stored))
        return ErrorReadFileFromDb;
    FileGroupData::FileList fileList;
    for (const StoredFile &file : std::as_const(stored))
        fileList.append({file.name, file.id});
    result.setFileList(fileList);
    *record = result;
    return NoError;
}

bool ArchiveStore::fileGroupExists(const QString &guid)
{
    return d->checkGroup(guid) == NoError;
}

KavroError ArchiveStore::deleteFileGroup(const QString &guid)
{
    return d->onGroup(guid, [&] {
        QSqlQuery query(d->db);
        if (!d->run(query, QStringLiteral("SELECT COUNT(*) FROM locks WHERE guid = ?"), {guid}) || !query.next())
            return ErrorReadLockFromDb;
        if (query.value(0).toInt() > 0)
            return ErrorFileGroupLocked;
        // files and references go with the group (ON DELETE CASCADE)
        return d->run(query, QStringLiteral("DELETE FROM file_groups WHERE guid = ?"), {guid})
            ? NoError
            : ErrorDeleteFileGroupFromDb;
    });
}

// A group that leaves the state "being moved" is no server's move any longer.
KavroError ArchiveStore::setLocationState(const QString &guid, LocationState state, double progress)
{
    QSqlQuery query(d->db);
    if (!d->run(query,
                QStringLiteral("UPDATE file_groups SET location_state = ?, progress = ?, modification_time = ?"
                               " WHERE guid = ?"),
                {int(state), progress, nowValue(), guid}))
        return ErrorUpdateFileGroupInDb;
    if (query.numRowsAffected() == 0)
        return ErrorGuidNotFound;
    if (state != LocationCentralNotMoved && !d->run(query, QStringLiteral("DELETE FROM moves WHERE guid = ?"), {guid}))
        return ErrorUpdateFileGroupInDb;
    return NoError;
}

KavroError ArchiveStore::locationState(const QString &guid, LocationState *state, double *progress)
{
    QSqlQuery query(d->db);
    if (!d->run(query, QStringLiteral("SELECT location_state, progress FROM file_groups WHERE guid = ?"), {guid}))
        return ErrorReadFileGroupFromDb;
    if (!query.next())
        return ErrorGuidNotFound;
    if (state)
        *state = static_cast<LocationState>(query.value(0).toInt());
    if (progress)
        *progress = query.value(1).toDouble();
    return NoError;
}

KavroError ArchiveStore::setPath(const QString &guid, const QString &path)
{
    QSqlQuery query(d->db);
    if (!d->run(query, QStringLiteral("UPDATE file_groups SET path = ? WHERE guid = ?"), {path, guid}))
        return ErrorUpdateFileGroupInDb;
    return query.numRowsAffected() > 0 ? NoError : ErrorGuidNotFound;
}

QString ArchiveStore::groupUsingPath(const QString &path, const QString &exceptGuid)
{
    // The directories above the path, as the paths another group could have.
    QVariantList values = {exceptGuid, path, QString(likeLiteral(path) + QLatin1String("/%"))};
    QString above;
    for (qsizetype cut = path.indexOf(QLatin1Char('/'), 1); cut > 0; cut = path.indexOf(QLatin1Char('/'), cut + 1)) {
        above += QLatin1String(", ?");
        values.append(path.left(cut));
    }
    QSqlQuery query(d->db);
    if (!d->run(query,
                QLatin1String("SELECT guid FROM file_groups WHERE guid <> ? AND (path = ? OR path LIKE ? ESCAPE '\\'"
                              " OR path IN ('/'")
                    + above + QLatin1String("))"),
                values))
        return exceptGuid.isEmpty() ? QStringLiteral("?") : exceptGuid; // unknown counts as taken
    return query.next() ? query.value(0).toString() : QString();
}

QList<FileGroupData> ArchiveStore::abandonedMoves(qint64 now)
{
    return d->records(QStringLiteral(" WHERE g.location_state = ? AND NOT EXISTS (SELECT 1 FROM moves m"
                                     " JOIN servers s ON s.id = m.server_id WHERE m.guid = g.guid"
                                     " AND s.alive_until >= ?)"),
                      {int(LocationCentralNotMoved), now});
}

KavroError ArchiveStore::claimMove(const QString &guid, const QString &server)
{
    return d->onGroup(guid, [&] {
        QSqlQuery query(d->db);
        return d->run(query, QStringLiteral("DELETE FROM moves WHERE guid = ?"), {guid})
                && d->run(query, QStringLiteral("INSERT INTO moves (guid, server_id) VALUES (?, ?)"), {guid, server})
            ? NoError
            : ErrorUpdateFileGroupInDb;
    });
}

bool ArchiveStore::ownsMove(const QString &guid, const QString &server)
{
    QSqlQuery query(d->db);
    return d->checkGroup(guid) == NoError
        && d->run(query, QStringLiteral("SELECT 1 FROM moves WHERE guid = ? AND server_id = ?"), {guid, server})
        && query.next();
}

KavroError ArchiveStore::beat(const QString &server, qint64 aliveUntil)
{
    return d->transaction([&] {
        QSqlQuery query(d->db);
        if (!d->run(query, QStringLiteral("UPDATE servers SET alive_until = ? WHERE id = ?"), {aliveUntil, server}))
            return ErrorUpdateFileGroupInDb;
        if (query.numRowsAffected() > 0)
            return NoError;
        return d->run(query, QStringLiteral("INSERT INTO servers (id, alive_until) VALUES (?, ?)"),
                      {server, aliveUntil})
            ? NoError
            : ErrorUpdateFileGroupInDb;
    });
}

void ArchiveStore::forgetServer(const QString &server)
{
    d->transaction([&] {
        QSqlQuery query(d->db);
        return d->run(query, QStringLiteral("DELETE FROM servers WHERE id = ?"), {server})
                && d->run(query, QStringLiteral("DELETE FROM converters WHERE server_id = ?"), {server})
            ? NoError
            : ErrorUpdateFileGroupInDb;
    });
}

KavroError ArchiveStore::registerConverter(const ConverterAddress &at, const QList<FileType> &types)
{
    return d->transaction([&] {
        QSqlQuery query(d->db);
        if (!d->run(query, QStringLiteral("DELETE FROM converters WHERE server_id = ? AND connection_id = ?"),
                    {at.server, qint64(at.connection)}))
            return ErrorUnknown;
        for (const FileType type : types) {
            if (!d->run(query,
                        QStringLiteral("INSERT INTO converters (server_id, connection_id, file_type) VALUES (?, ?, ?)"),
                        {at.server, qint64(at.connection), int(type)}))
                return ErrorUnknown;
        }
        return NoError;
    });
}

void ArchiveStore::dropConverters(const ConverterAddress &at)
{
    d->transaction([&] {
        QSqlQuery query(d->db);
        return d->run(query, QStringLiteral("DELETE FROM converters WHERE server_id = ? AND connection_id = ?"),
                      {at.server, qint64(at.connection)})
            ? NoError
            : ErrorUnknown;
    });
}

// A converter of this server first; another live server's only where a notification can reach it.
std::optional<ConverterAddress> ArchiveStore::converterFor(FileType type, const QString &server, qint64 now)
{
    QSqlQuery query(d->db);
    const bool others = d->dialect->notify != nullptr;
    if (!d->run(
            query,
            QStringLiteral("SELECT c.server_id, c.connection_id FROM converters c JOIN servers s ON s.id = c.server_id"
                           " WHERE c.file_type = ? AND (c.server_id = ? OR (? = 1 AND s.alive_until >= ?))"
                           " ORDER BY CASE WHEN c.server_id = ? THEN 0 ELSE 1 END, c.connection_id"),
            {int(type), server, others ? 1 : 0, now, server})
        || !query.next())
        return std::nullopt;
    return ConverterAddress{query.value(0).toString(), quint64(query.value(1).toLongLong())};
}

KavroError ArchiveStore::askConversion(const QString &guid, const ConverterAddress &at)
{
    return d->onGroup(guid, [&] {
        QSqlQuery query(d->db);
        return d->run(query, QStringLiteral("DELETE FROM conversions WHERE guid = ?"), {guid})
                && d->run(query,
                          QStringLiteral("INSERT INTO conversions (guid, server_id, connection_id) VALUES (?, ?, ?)"),
                          {guid, at.server, qint64(at.connection)})
            ? NoError
            : ErrorUpdateFileGroupInDb;
    });
}

bool ArchiveStore::answersConversion(const QString &guid, const ConverterAddress &at, bool finished)
{
    QSqlQuery query(d->db);
    const QVariantList key{guid, at.server, qint64(at.connection)};
    if (!d->run(query,
                QStringLiteral("SELECT 1 FROM conversions WHERE guid = ? AND server_id = ? AND connection_id = ?"), key)
        || !query.next())
        return false;
    return !finished
        || d->run(query,
                  QStringLiteral("DELETE FROM conversions WHERE guid = ? AND server_id = ? AND connection_id = ?"),
                  key);
}

bool ArchiveStore::notify(const QString &channel, const QString &payload)
{
    if (!d->dialect->notify)
        return false;
    QSqlQuery query(d->db);
    return d->run(query, QLatin1String(d->dialect->notify), {channel, payload});
}

bool ArchiveStore::listen(const QString &channel, const std::function<void(const QString &)> &received)
{
    QSqlDriver *driver = d->db.driver();
    if (!d->dialect->notify || !driver->subscribeToNotification(channel))
        return false;
    QObject::connect(driver, &QSqlDriver::notification, driver,
                     [channel, received](const QString &name, QSqlDriver::NotificationSource, const QVariant &payload) {
                         if (name == channel)
                             received(payload.toString());
                     });
    return true;
}

QList<FileGroupData> ArchiveStore::allFileGroups()
{
    QList<FileGroupData> result = d->records(QString(), {});
    for (FileGroupData &record : result) {
        QList<StoredFile> stored;
        d->readFiles(record.getGuid(), &stored);
        for (const StoredFile &file : std::as_const(stored))
            record.addFile(file.name, file.id);
    }
    return result;
}

KavroError ArchiveStore::addFile(const QString &guid, const QString &name, quint32 wantedId, quint32 *id)
{
    return d->onGroup(guid, [&] {
        QSqlQuery query(d->db);
        quint32 newId = wantedId;
        if (wantedId == 0) {
            const std::optional<quint32> next = nextFreeFileId(guid);
            if (!next)
                return ErrorAddFile;
            newId = *next;
        } else {
            if (!d->run(query, QStringLiteral("SELECT 1 FROM files WHERE guid = ? AND file_id = ?"),
                        {guid, qint64(wantedId)}))
                return ErrorReadFileFromDb;
            if (query.next())
                return ErrorAddFile;
        }
        if (!d->run(query, QStringLiteral("INSERT INTO files (guid, file_id, name) VALUES (?, ?, ?)"),
                    {guid, qint64(newId), name}))
            return ErrorInsertFileInDb;
        const KavroError touched = d->touch(guid);
        if (touched == NoError && id)
            *id = newId;
        return touched;
    });
}

std::optional<quint32> ArchiveStore::nextFreeFileId(const QString &guid)
{
    constexpr qint64 highest = std::numeric_limits<quint32>::max();
    QSqlQuery query(d->db);
    if (!d->run(query, QStringLiteral("SELECT COALESCE(MAX(file_id), 0) FROM files WHERE guid = ?"), {guid})
        || !query.next())
        return std::nullopt;
    if (const qint64 top = query.value(0).toLongLong(); top < highest)
        return quint32(top + 1);
    // The top id is taken: the lowest free one, 1 or one above an id whose successor is free.
    if (!d->run(query,
                QStringLiteral("SELECT CASE WHEN NOT EXISTS (SELECT 1 FROM files WHERE guid = ? AND file_id = 1)"
                               " THEN 1 ELSE (SELECT MIN(f.file_id) + 1 FROM files f WHERE f.guid = ? AND NOT EXISTS"
                               " (SELECT 1 FROM files n WHERE n.guid = f.guid AND n.file_id = f.file_id + 1)) END"),
                {guid, guid})
        || !query.next())
        return std::nullopt;
    const qint64 free = query.value(0).toLongLong();
    return free >= 1 && free <= highest ? std::optional<quint32>(quint32(free)) : std::nullopt;
}

KavroError ArchiveStore::fileName(const QString &guid, quint32 id, QString *name)
{
    QSqlQuery query(d->db);
    if (!d->run(query, QStringLiteral("SELECT name FROM files WHERE guid = ? AND file_id = ?"), {guid, qint64(id)}))
        return ErrorReadFileFromDb;
    if (!query.next())
        return d->checkGroup(guid) == ErrorGuidNotFound ? ErrorGuidNotFound : ErrorOpenFile;
    if (name)
        *name = query.value(0).toString();
    return NoError;
}

QList<StoredFile> ArchiveStore::files(const QString &guid)
{
    QList<StoredFile> result;
    d->readFiles(guid, &result);
    return result;
}

KavroError ArchiveStore::deleteFile(const QString &guid, quint32 id)
{
    return d->transaction([&] {
        const KavroError file = d->checkFile(guid, id, ErrorRemoveFile);
        if (file != NoError)
            return file;
        QSqlQuery query(d->db);
        if (!d->run(query, QStringLiteral("SELECT COUNT(*) FROM locks WHERE guid = ? AND file_id = ?"),
                    {guid, qint64(id)})
            || !query.next())
            return ErrorReadLockFromDb;
        if (query.value(0).toInt() > 0)
            return ErrorFileGroupLocked;
        if (!d->run(query, QStringLiteral("DELETE FROM files WHERE guid = ? AND file_id = ?"), {guid, qint64(id)}))
            return ErrorDeleteFileFromDb;
        return d->touch(guid);
    });
}

KavroError ArchiveStore::lockFile(const QString &guid, quint32 id, const QString &user, bool write)
{
    return d->transaction([&] {
        const KavroError file = d->checkFile(guid, id, ErrorOpenFile);
        if (file != NoError)
            return file;
        QSqlQuery query(d->db);
        if (!d->run(query,
                    QStringLiteral("SELECT write_lock FROM locks WHERE guid = ? AND file_id = ? AND user_name <> ?"),
                    {guid, qint64(id), user}))
            return ErrorReadLockFromDb;
        bool othersLock = false;
        bool othersWrite = false;
        while (query.next()) {
            othersLock = true;
            othersWrite = othersWrite || query.value(0).toInt() != 0;
        }
        if (write && othersLock)
            return ErrorFileGroupLocked;
        if (!write && othersWrite)
            return ErrorFileGroupWriteLocked;
        // the user's own earlier lock is replaced
        if (!d->run(query, QStringLiteral("DELETE FROM locks WHERE guid = ? AND file_id = ? AND user_name = ?"),
                    {guid, qint64(id), user}))
            return ErrorDeleteLockFromDb;
        if (!d->run(query,
                    QStringLiteral("INSERT INTO locks (guid, file_id, user_name, write_lock) VALUES (?, ?, ?, ?)"),
                    {guid, qint64(id), user, write ? 1 : 0}))
            return ErrorInsertLockInDb;
        return NoError;
    });
}

KavroError ArchiveStore::unlockFile(const QString &guid, quint32 id, const QString &user)
{
    QSqlQuery query(d->db);
    if (!d->run(query, QStringLiteral("DELETE FROM locks WHERE guid = ? AND file_id = ? AND user_name = ?"),
                {guid, qint64(id), user}))
        return ErrorDeleteLockFromDb;
    if (query.numRowsAffected() > 0)
        return NoError;
    return d->checkGroup(guid) == ErrorGuidNotFound ? ErrorGuidNotFound : ErrorDeleteLock;
}

KavroError ArchiveStore::addReference(const QString &guid, const QString &application)
{
    return d->onGroup(guid, [&] {
        QSqlQuery query(d->db);
        if (!d->run(query,
                    QStringLiteral("UPDATE file_references SET reference_count = reference_count + 1"
                                   " WHERE guid = ? AND application = ?"),
                    {guid, application}))
            return ErrorInsertReferenceInDb;
        if (query.numRowsAffected() > 0)
            return NoError;
        return d->run(
                   query,
                   QStringLiteral("INSERT INTO file_references (guid, application, reference_count) VALUES (?, ?, 1)"),
                   {guid, application})
            ? NoError
            : ErrorInsertReferenceInDb;
    });
}

KavroError ArchiveStore::removeReference(const QString &guid, const QString &application)
{
    return d->onGroup(guid, [&] {
        QSqlQuery query(d->db);
        if (!d->run(query,
                    QStringLiteral("SELECT reference_count FROM file_references WHERE guid = ? AND application = ?"),
                    {guid, application}))
            return ErrorReadReferenceFromDb;
        const int count = query.next() ? query.value(0).toInt() : 0;
        if (count <= 0)
            return ErrorDeleteReference;
        const QString sql = count == 1
            ? QStringLiteral("DELETE FROM file_references WHERE guid = ? AND application = ?")
            : QStringLiteral("UPDATE file_references SET reference_count = reference_count - 1"
                             " WHERE guid = ? AND application = ?");
        return d->run(query, sql, {guid, application}) ? NoError : ErrorDeleteReferenceFromDb;
    });
}

KavroError ArchiveStore::removeAllReferences(const QString &guid, const QString &application)
{
    return d->onGroup(guid, [&] {
        QSqlQuery query(d->db);
        return d->run(query, QStringLiteral("DELETE FROM file_references WHERE guid = ? AND application = ?"),
                      {guid, application})
            ? NoError
            : ErrorDeleteReferenceFromDb;
    });
}

void ArchiveStore::noteUser(const QString &user)
{
    d->noteName(QLatin1String("users"), user);
}

void ArchiveStore::noteApplication(const QString &application)
{
    d->noteName(QLatin1String("applications"), application);
}

QStringList ArchiveStore::users()
{
    return d->names(QLatin1String("users"));
}

QStringList ArchiveStore::applications()
{
    return d->names(QLatin1String("applications"));
}

QList<FileGroupData> ArchiveStore::query(const FileQuery &query)
{
    QString where;
    QVariantList values;
    const auto require = [&](const QString &condition) {
        where += (where.isEmpty() ? QLatin1String(" WHERE ") : QLatin1String(" AND ")) + condition;
    };
    const auto contains = [&](const char *column, const QString &text) {
        if (text.isEmpty())
            return;
        require(QLatin1String(column) + QLatin1String(" LIKE ? ESCAPE '\\'"));
        values.append(containsPattern(text));
    };
    // A bound compared with a NULL column is not true, so a group without that time never matches a bound.
    const auto within = [&](const char *column, const QDateTime &minimum, const QDateTime &maximum) {
        if (minimum.isValid()) {
            require(QLatin1String(column) + QLatin1String(" >= ?"));
            values.append(minimum.toMSecsSinceEpoch());
        }
        if (maximum.isValid()) {
            require(QLatin1String(column) + QLatin1String(" <= ?"));
            values.append(maximum.toMSecsSinceEpoch());
        }
    };

    contains("g.name_lower", query.GetFileGroupSearchText());
    contains("g.comment_lower", query.GetCommentSearchText());
    contains("g.creator_lower", query.GetCreatorSearchText());
    contains("g.detail_lower", query.GetDetailSearchText());
    contains("g.team_lower", query.GetTeamMembershipSearchText());
    contains("g.version_lower", query.GetVersionSearchText());
    within("g.backup_time", query.GetBackupTimeMin(), query.GetBackupTimeMax());
    within("g.creation_time", query.GetCreationTimeMin(), query.GetCreationTimeMax());
    within("g.modification_time", query.GetModificationTimeMin(), query.GetModificationTimeMax());
    within("g.life_cycle", query.GetLifeCycleTimeMin(), query.GetLifeCycleTimeMax());

    if (query.GetFileTypeListSize() > 0) {
        QString placeholders;
        for (int i = 0; i < query.GetFileTypeListSize(); ++i) {
            placeholders += i == 0 ? QLatin1String("?") : QLatin1String(", ?");
            values.append(int(query.GetFileTypeAt(i)));
        }
        require(QLatin1String("g.file_type IN (") + placeholders + QLatin1Char(')'));
    }
    if (query.GetLocationState() != LocationUndefined) {
        require(QStringLiteral("g.location_state = ?"));
        values.append(int(query.GetLocationState()));
    }
    switch (query.GetLockState()) {
    case LockFree:
        require(QStringLiteral("NOT EXISTS (SELECT 1 FROM locks l WHERE l.guid = g.guid)"));
        break;
    case LockRead:
        require(QStringLiteral("EXISTS (SELECT 1 FROM locks l WHERE l.guid = g.guid AND l.write_lock = 0)"));
        break;
    case LockWrite:
        require(QStringLiteral("EXISTS (SELECT 1 FROM locks l WHERE l.guid = g.guid AND l.write_lock <> 0)"));
        break;
    case LockUndefined:
        break;
    }
    if (!query.GetLockUser().isEmpty()) {
        require(QStringLiteral("EXISTS (SELECT 1 FROM locks l WHERE l.guid = g.guid AND l.user_name = ?)"));
        values.append(query.GetLockUser());
    }
    if (!query.GetReferencingApplication().isEmpty()) {
        require(QStringLiteral("EXISTS (SELECT 1 FROM file_references r WHERE r.guid = g.guid"
                               " AND r.application = ? AND r.reference_count > 0)"));
        values.append(query.GetReferencingApplication());
    }

    // NULL creation times first, whatever the database's own NULL ordering
    return d->records(where
                          + QLatin1String(" ORDER BY CASE WHEN g.creation_time IS NULL THEN 0 ELSE 1 END,"
                                          " g.creation_time, g.guid"),
                      values);
}

} // namespace Server
} // namespace Kavro
