// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include <kavro/kavrofile.h>

#include <kavro/kavroclient.h>
#include <kavro/kavroerrorstring.h>

#include "trace_p.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>

namespace Kavro
{

class KavroFilePrivate
{
public:
    explicit KavroFilePrivate(KavroClient *client)
        : client(client)
    {
    }

    //! Whether the archive can be used now; warns, and keeps 43 for a client not connected, when it cannot.
    bool clientReady()
    {
        if (!client) {
            KAVRO_TRACE_WARNING(QStringLiteral("KavroClient was not given to KavroFile"));
            return false;
        }
        if (!client->IsConnected()) {
            error = ErrorNotConnected;
            KAVRO_TRACE_WARNING(QStringLiteral("KavroClient not connected but available"));
            return false;
        }
        return true;
    }

    void takeError() { error = client->GetError(); }

    QString guid;
    unsigned int fileId = 0;
    QString localName;
    bool created = false;
    KavroError error = NoError;
    KavroClient *const client;
};

namespace
{
QString localPath(const QString &name)
{
    return QDir::toNativeSeparators(QDir::cleanPath(name));
}
} // namespace

KavroFile::KavroFile(KavroClient *client)
    : d(std::make_unique<KavroFilePrivate>(client))
{
    KAVRO_TRACE_INFO(QStringLiteral("KavroFile::KavroFile: Default"));
}

KavroFile::KavroFile(KavroClient *client, const QString &name, unsigned int fileId)
    : d(std::make_unique<KavroFilePrivate>(client))
{
    if (!KavroClient::IsKavroAvailable() || fileId == 0) {
        d->localName = localPath(name);
        setFileName(d->localName);
    } else {
        d->guid = name;
        d->fileId = fileId;
    }
}

KavroFile::KavroFile(KavroClient *client, const QString &name, const QString &version, unsigned int &lifecycleDays,
                     const QString &detail, const QString &comment, FileType fileType, quint64 reservedStorage)
    : d(std::make_unique<KavroFilePrivate>(client))
{
    const QString prefix = QStringLiteral("KavroFile::KavroFile: ");
    KAVRO_TRACE_INFO(prefix + QStringLiteral("Start ("));
    KAVRO_TRACE_INFO(prefix + QStringLiteral("  Name: %1").arg(name));
    KAVRO_TRACE_INFO(prefix + QStringLiteral("  Version: %1").arg(version));
    KAVRO_TRACE_INFO(prefix + QStringLiteral("  LifeCycleDays: %1").arg(lifecycleDays));
    KAVRO_TRACE_INFO(prefix + QStringLiteral("  Detail: %1").arg(detail));
    KAVRO_TRACE_INFO(prefix + QStringLiteral("  Comment: %1").arg(comment));
    KAVRO_TRACE_INFO(prefix + QStringLiteral("  FileType: %1").arg(fileType));
    KAVRO_TRACE_INFO(prefix + QStringLiteral("  ReserverStorage: %1").arg(reservedStorage));
    KAVRO_TRACE_INFO(prefix + QStringLiteral("Start )"));

    if (!KavroClient::IsKavroAvailable()) {
        d->localName = localPath(name);
        setFileName(d->localName);
    } else if (!d->clientReady()) {
        // Warned; nothing is sent.
    } else if (!IsFileName(name)) {
        d->guid = name;
    } else {
        d->localName = localPath(name);
        setFileName(d->localName);
        const QDateTime lifeCycle = QDateTime::currentDateTime().addDays(lifecycleDays);
        const QString filePart = QFileInfo(d->localName).fileName();
        const qsizetype dot = filePart.lastIndexOf(QLatin1Char('.'));
        const QString groupName = dot < 0 ? filePart : filePart.left(dot);

        QString groupDirectory;
        d->guid = client->CreateFileGroup(version, lifeCycle, detail, comment, fileType, reservedStorage, groupName,
                                          groupDirectory, QString());
        d->takeError();
        if (d->error == Kavro::NoError) {
            d->created = true;
            // The archive keeps its files in the group's directory.
            const QString archived = QDir(groupDirectory).filePath(filePart);
            if (!QFile::exists(archived) && !QFile::copy(d->localName, archived)) {
                d->error = ErrorWriteFile;
            } else {
                d->fileId = client->AddFile(d->localName, d->guid);
                d->takeError();
            }
        }
        if (d->error != Kavro::NoError)
            KAVRO_TRACE_WARNING(prefix + KavroErrorString::Get(d->error));
    }
    KAVRO_TRACE_INFO(prefix + QStringLiteral("End"));
}

KavroFile::~KavroFile()
{
    KAVRO_TRACE_INFO(QStringLiteral("KavroFile::~KavroFile: Start"));
    // An archived file still open is released, so its lock does not outlive the object.
    if (isOpen())
        close();
    KAVRO_TRACE_INFO(QStringLiteral("KavroFile::~KavroFile: End"));
}

bool KavroFile::open(QIODevice::OpenMode mode)
{
    KAVRO_TRACE_INFO(QStringLiteral("KavroFile::open:  Start (%1)").arg(int(mode)));
    bool locked = false;
    if (KavroClient::IsKavroAvailable() && d->localName.isEmpty()) {
        if (!d->clientReady())
            return false;
        if (!d->guid.isEmpty()) {
            const LockState lock = (mode & QIODevice::WriteOnly) ? LockWrite : LockRead;
            d->localName = d->client->RequestFile(d->fileId, d->guid, lock);
            d->takeError();
            if (d->error != Kavro::NoError) {
                KAVRO_TRACE_WARNING(QStringLiteral("KavroFile::open: %1").arg(KavroErrorString::Get(d->error)));
                d->localName.clear();
                return false;
            }
            setFileName(d->localName);
            locked = true;
        }
    }
    const bool opened = QFile::open(mode);
    if (!opened && locked) {
        // The server holds a lock for a file that cannot be used here: release it again.
        d->client->CloseFile(d->fileId, d->guid);
        d->localName.clear();
        d->error = ErrorOpenFile;
        KAVRO_TRACE_WARNING(QStringLiteral("KavroFile::open: %1").arg(KavroErrorString::Get(d->error)));
    }
    KAVRO_TRACE_INFO(QStringLiteral("KavroFile::open: End"));
    return opened;
}

void KavroFile::close()
{
    KAVRO_TRACE_INFO(QStringLiteral("KavroFile::close: Start"));
    QFile::close();
    if (KavroClient::IsKavroAvailable() && d->client && !d->guid.isEmpty()) {
        d->client->CloseFile(d->fileId, d->guid);
        d->takeError();
        if (d->error != Kavro::NoError)
            KAVRO_TRACE_WARNING(QStringLiteral("KavroFile::close: %1").arg(KavroErrorString::Get(d->error)));
    }
    KAVRO_TRACE_INFO(QStringLiteral("KavroFile::close: End"));
}

QString KavroFile::GetName()
{
    return d->guid.isEmpty() ? d->localName : QStringLiteral("kavro:///%1/%2").arg(d->guid).arg(d->fileId);
}

bool KavroFile::IsEmpty() const
{
    return d->guid.isEmpty() && d->localName.isEmpty();
}

QString KavroFile::GetGuid()
{
    return d->guid;
}

unsigned int KavroFile::GetFileId()
{
    return d->fileId;
}

KavroError KavroFile::GetError() const
{
    return d->error;
}

QString KavroFile::GetErrorString() const
{
    return KavroErrorString::Get(d->error);
}

void KavroFile::handleAddFileSignal(const QString &requestId, unsigned int fileId)
{
    // A file adds itself with the blocking AddFile, so no answer of an AddFileAsync() is ever its own.
    Q_UNUSED(requestId)
    Q_UNUSED(fileId)
}

bool KavroFile::IsFileName(const QString &text) const
{
    return text.contains(QLatin1Char('.')) || text.contains(QLatin1Char('/')) || text.contains(QLatin1Char('\\'));
}

} // namespace Kavro
