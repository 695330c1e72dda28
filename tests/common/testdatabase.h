// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_TESTS_TESTDATABASE_H
#define KAVRO_TESTS_TESTDATABASE_H

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSqlDatabase>
#include <QUrl>
#include <QtDebug>

/*!
 * The catalogue a test's store uses. Where KAVRO_TEST_POSTGRESQL names the state file of the cluster
 * scripts/test-postgresql.sh started, a database of its own in that cluster, made on first use (the same store
 * directory gives the same database, so a restarted server finds its records); else the store's SQLite file.
 * Empty when the database cannot be made.
 */
inline QString testDatabase(const QString &storeDirectory)
{
    const QString state = qEnvironmentVariable("KAVRO_TEST_POSTGRESQL");
    if (state.isEmpty())
        return QDir(storeDirectory).filePath(QStringLiteral("kavro.sqlite"));
    QFile file(state);
    if (!file.open(QIODevice::ReadOnly)) {
        qWarning() << "no PostgreSQL cluster for the tests:" << state;
        return QString();
    }
    const QString cluster = QString::fromUtf8(file.readLine()).trimmed();
    const QString name = QLatin1String("kavro_")
        + QString::fromLatin1(QCryptographicHash::hash(QDir(storeDirectory).absolutePath().toUtf8(),
                                                       QCryptographicHash::Sha1)
                                  .toHex()
                                  .left(20));
    const auto psql = [&](const QString &sql) {
        QProcess process;
        process.start(QStringLiteral("psql"), {cluster + QLatin1String("postgres"), QStringLiteral("-qAtc"), sql});
        process.waitForFinished(30000);
        if (process.exitCode() != 0)
            qWarning().noquote() << "psql:" << process.readAllStandardError();
        return process.readAllStandardOutput().trimmed();
    };
    if (psql(QStringLiteral("SELECT 1 FROM pg_database WHERE datname = '%1'").arg(name)).isEmpty())
        psql(QStringLiteral("CREATE DATABASE %1").arg(name));
    return cluster + name;
}

//! A connection of the test's own to \a database (as testDatabase() names it), named \a connection.
inline QSqlDatabase openTestDatabase(const QString &database, const QString &connection)
{
    const QUrl url(database);
    if (url.scheme() != QLatin1String("postgresql")) {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), connection);
        db.setDatabaseName(database);
        db.open();
        return db;
    }
    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QPSQL"), connection);
    db.setHostName(url.host());
    db.setPort(url.port());
    db.setUserName(url.userName());
    db.setDatabaseName(url.path().mid(1));
    db.open();
    return db;
}

#endif
