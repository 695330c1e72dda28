// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_TESTS_ARCHIVEFIXTURE_H
#define KAVRO_TESTS_ARCHIVEFIXTURE_H

#include "serverprocess.h"
#include "temporarysettings.h"

#include <kavro/kavroclient.h>

#include <QDateTime>
#include <QDir>
#include <QTemporaryDir>

#include <memory>

/*!
 * The real archive server on a temporary store with a client connected to it as alice of the team "blue", and
 * groups made for a test. The configuration file is a temporary one of the fixture's own, so what dialogs
 * remember stays with the test.
 */
class ArchiveFixture
{
public:
    //! Starts the server and connects the client; false (with the reason written) when either fails.
    bool start()
    {
        if (!m_server.start(m_store.path()))
            return false;
        m_client =
            std::make_unique<Kavro::KavroClient>(QStringLiteral("127.0.0.1"), m_server.port(), QStringLiteral("viewer"),
                                                 QStringLiteral("alice"), QStringLiteral("blue"));
        return m_client->waitForConnected(20000);
    }

    Kavro::KavroClient *client() const { return m_client.get(); }

    //! A new group with one file per name in \a fileNames (each holding its own name); its guid, empty on failure.
    QString addGroup(const QString &name, Kavro::FileType type, const QStringList &fileNames,
                     const QString &comment = QString(), quint64 reservedStorage = 0)
    {
        QString localPath;
        const QString guid = m_client->CreateFileGroup(QStringLiteral("1"), QDateTime::currentDateTimeUtc().addDays(30),
                                                       QStringLiteral("detail of ") + name, comment, type,
                                                       reservedStorage, name, localPath);
        for (const QString &fileName : fileNames) {
            const QString path = QDir(localPath).filePath(fileName); // a file is added from the group's directory
            if (!writeFile(path, fileName.toUtf8()) || m_client->AddFile(path, guid) == 0)
                return QString();
        }
        return guid;
    }

private:
    TemporarySettings m_settings{QByteArray(), true};
    QTemporaryDir m_store;
    ServerProcess m_server;
    std::unique_ptr<Kavro::KavroClient> m_client;
};

#endif
