// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_KAVROFILE_H
#define KAVRO_KAVROFILE_H

#include <kavro/kavrotypes.h>

#include <QFile>

#include <memory>

namespace Kavro
{

class KavroClient;
class KavroFilePrivate;

/*!
 * \brief An archived file opened like a local one.
 *
 * open() fetches the file through the client, locked for writing when the
 * mode writes and for reading otherwise, and opens the local copy; close()
 * releases the lock. Constructed for a new file, it creates a file group and
 * adds the file to it. When the archive service is not available the object
 * is a plain local file.
 *
 * \code
 * Kavro::KavroFile file(&client, guid, fileId);
 * if (file.open(QIODevice::ReadOnly))
 *     process(file.readAll());
 * else
 *     qWarning() << file.GetErrorString();
 * \endcode
 */
class KAVRO_EXPORT KavroFile : public QFile
{
    Q_OBJECT

public:
    explicit KavroFile(KavroClient *client);
    //! The file \a fileId of the group \a name; with file id 0, or without service, \a name is a local path.
    KavroFile(KavroClient *client, const QString &name, unsigned int fileId);
    /*!
     * Archives the local file \a name: creates a group named after it (without
     * extension) that lives \a lifecycleDays days, copies the file into the
     * group's directory and adds it. A \a name without '.', '/' or '\\' is
     * taken as the guid of an existing group instead.
     */
    KavroFile(KavroClient *client, const QString &name, const QString &version, unsigned int &lifecycleDays,
              const QString &detail, const QString &comment, FileType fileType, quint64 reservedStorage);
    ~KavroFile() override;
    Q_DISABLE_COPY_MOVE(KavroFile)

    //! Fetches and locks the archived file when needed, then opens the local copy.
    bool open(QIODevice::OpenMode mode) override;
    //! Closes the local copy and releases the archived file.
    void close() override;

    //! "kavro:///<guid>/<fileId>" for an archived file, else the local path.
    QString GetName();
    bool IsEmpty() const;
    QString GetGuid();
    unsigned int GetFileId();
    KavroError GetError() const;
    QString GetErrorString() const;

    /*!
     * Kept for existing callers: a file waits for no AddFileAsync() answer (it
     * adds itself with the blocking AddFile()), so this does nothing and
     * fileSuccessfullyAdded() is not emitted.
     */
    void handleAddFileSignal(const QString &requestId, unsigned int fileId);

Q_SIGNALS:
    void fileSuccessfullyAdded(unsigned int fileId);

private:
    bool IsFileName(const QString &text) const;

    const std::unique_ptr<KavroFilePrivate> d;
};

} // namespace Kavro

#endif
