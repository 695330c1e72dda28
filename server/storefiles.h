// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_SERVER_STOREFILES_H
#define KAVRO_SERVER_STOREFILES_H

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <functional>

namespace Kavro::Server
{

/*!
 * \brief An open file descriptor, closed with the object.
 *
 * The store's directories are shared with clients, who may swap any entry
 * for a link, a pipe or another directory at any moment. Every operation
 * here works relative to directories opened without following links, so
 * that what was checked is what is acted on.
 */
class FileDescriptor
{
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor)
        : m_descriptor(descriptor)
    {
    }
    ~FileDescriptor();
    FileDescriptor(FileDescriptor &&other) noexcept;
    FileDescriptor &operator=(FileDescriptor &&other) noexcept;
    FileDescriptor(const FileDescriptor &) = delete;
    FileDescriptor &operator=(const FileDescriptor &) = delete;

    int get() const { return m_descriptor; }
    bool isValid() const { return m_descriptor >= 0; }

private:
    int m_descriptor = -1;
};

//! What a name in a directory is, without following a link.
enum class EntryType { Missing, Directory, RegularFile, Link, Other };

/*!
 * \a path cleaned and made absolute; empty when it does not lie inside \a root
 * (or is \a root itself and \a rootAllowed is false). Lexical only: links are
 * judged when the path is opened.
 */
QString pathBeneath(const QString &root, const QString &path, bool rootAllowed = false);

/*!
 * Opens the directory \a path, inside the trusted directory \a root, one
 * component at a time and following no link: a path that leads through a
 * link, or to anything but a directory, does not open.
 */
FileDescriptor openDirectory(const QString &root, const QString &path);

/*!
 * The same, creating the directories that are missing on the way. \a created,
 * when given, receives the first directory that was created (empty when all
 * existed), so that a caller can take back what it made.
 */
FileDescriptor makeDirectory(const QString &root, const QString &path, QString *created = nullptr);

//! Opens the directory \a name of \a directory, not following a link.
FileDescriptor openSubdirectory(int directory, const QString &name);

EntryType entryType(int directory, const QString &name);
//! The names in a directory, "." and ".." left out; empty when it cannot be read.
QStringList entryNames(int directory);

//! Opens a regular file for reading; a link, pipe or device does not open (and never blocks).
FileDescriptor openRegularFile(int directory, const QString &name);
//! The size of a regular file; -1 for anything else.
qint64 regularFileSize(int directory, const QString &name);
//! The content of a regular file of at most \a maxSize bytes; false for anything else.
bool readRegularFile(int directory, const QString &name, qint64 maxSize, QByteArray *content);
//! Writes \a content into a file that must not exist yet.
bool writeNewFile(int directory, const QString &name, const QByteArray &content);

/*!
 * Copies the regular file \a name of \a from to a new file of that name in
 * \a to, calling \a copied with each block's size; the copy stops when it
 * returns false. False when the source is not a regular file, the target
 * exists or the copy was stopped.
 */
bool copyRegularFile(int from, int to, const QString &name, const std::function<bool(qint64)> &copied = {});

//! Creates a new, empty directory with a fresh name beginning with \a prefix; its name, or empty.
QString makeTemporaryDirectory(int directory, const QString &prefix);

/*!
 * Removes the entry \a name of \a directory: a directory with everything in
 * it, or a file or link (never what a link points to). True when it is gone.
 */
bool removeEntry(int directory, const QString &name);
//! Removes \a path inside \a root, when it opens as a directory below it; true when it is gone.
bool removeDirectory(const QString &root, const QString &path);
//! Removes \a path and the directories above it, up to \a root and not including it, while each is empty.
void removeEmptyParents(const QString &root, const QString &path);

//! Renames \a from to \a to in \a directory; false when \a to exists.
bool renameNew(int directory, const QString &from, const QString &to);
//! Puts \a from in the place of \a to, whatever \a to is; \a to's old entry goes.
bool replaceEntry(int directory, const QString &from, const QString &to);

} // namespace Kavro::Server

#endif
