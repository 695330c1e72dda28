// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "storefiles.h"

#include "storepaths.h"

#include <QDir>
#include <QFile>
#include <QRandomGenerator>

#include <cerrno>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Kavro::Server
{

namespace
{
constexpr int s_directoryFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr mode_t s_directoryMode = 0755;
constexpr mode_t s_fileMode = 0644;
constexpr qint64 s_copyBlock = 1 << 20;

QByteArray encoded(const QString &name)
{
    return QFile::encodeName(name);
}

int retried(const std::function<int()> &call)
{
    int result;
    do {
        result = call();
    } while (result < 0 && errno == EINTR);
    return result;
}

bool writeAll(int descriptor, const char *data, qint64 size)
{
    while (size > 0) {
        const ssize_t written = ::write(descriptor, data, size_t(size));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        data += written;
        size -= written;
    }
    return true;
}

// Walks from \a root to \a path, component by component, creating missing ones when \a create is set.
FileDescriptor walk(const QString &root, const QString &path, bool create, QString *created)
{
    const QString inside = pathBeneath(root, path, true);
    if (inside.isEmpty())
        return FileDescriptor();
    FileDescriptor current(::open(encoded(root).constData(), s_directoryFlags));
    QString reached = root;
    const QStringList components = inside.mid(root.size()).split(QLatin1Char('/'), Qt::SkipEmptyParts);
    for (const QString &component : components) {
        if (!current.isValid())
            return current;
        const QByteArray name = encoded(component);
        reached += QLatin1Char('/') + component;
        if (create && ::mkdirat(current.get(), name.constData(), s_directoryMode) == 0 && created && created->isEmpty())
            *created = reached;
        current = FileDescriptor(::openat(current.get(), name.constData(), s_directoryFlags));
    }
    return current;
}

bool removeContents(int directory)
{
    bool removed = true;
    for (const QString &name : entryNames(directory))
        removed = removeEntry(directory, name) && removed;
    return removed;
}
} // namespace

FileDescriptor::~FileDescriptor()
{
    if (m_descriptor >= 0)
        ::close(m_descriptor);
}

FileDescriptor::FileDescriptor(FileDescriptor &&other) noexcept
    : m_descriptor(std::exchange(other.m_descriptor, -1))
{
}

FileDescriptor &FileDescriptor::operator=(FileDescriptor &&other) noexcept
{
    if (this != &other) {
        if (m_descriptor >= 0)
            ::close(m_descriptor);
        m_descriptor = std::exchange(other.m_descriptor, -1);
    }
    return *this;
}

QString pathBeneath(const QString &root, const QString &path, bool rootAllowed)
{
    if (path.isEmpty() || path.contains(QChar(0)))
        return QString();
    const QString cleaned = QDir::cleanPath(QDir(root).absoluteFilePath(path));
    if (cleaned == root)
        return rootAllowed ? cleaned : QString();
    return cleaned.startsWith(root + QLatin1Char('/')) ? cleaned : QString();
}

FileDescriptor openDirectory(const QString &root, const QString &path)
{
    return walk(root, path, false, nullptr);
}

FileDescriptor makeDirectory(const QString &root, const QString &path, QString *created)
{
    return walk(root, path, true, created);
}

FileDescriptor openSubdirectory(int directory, const QString &name)
{
    return isPlainName(name) ? FileDescriptor(::openat(directory, encoded(name).constData(), s_directoryFlags))
                             : FileDescriptor();
}

EntryType entryType(int directory, const QString &name)
{
    struct stat status = {};
    if (!isPlainName(name) || ::fstatat(directory, encoded(name).constData(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        return EntryType::Missing;
    if (S_ISDIR(status.st_mode))
        return EntryType::Directory;
    if (S_ISREG(status.st_mode))
        return EntryType::RegularFile;
    return S_ISLNK(status.st_mode) ? EntryType::Link : EntryType::Other;
}

QStringList entryNames(int directory)
{
    QStringList names;
    // fdopendir takes over the descriptor it is given, so it gets a copy.
    DIR *stream = ::fdopendir(::fcntl(directory, F_DUPFD_CLOEXEC, 0));
    if (!stream)
        return names;
    ::rewinddir(stream);
    while (const dirent *entry = ::readdir(stream)) {
        const QString name = QFile::decodeName(entry->d_name);
        if (name != QLatin1String(".") && name != QLatin1String(".."))
            names.append(name);
    }
    ::closedir(stream);
    return names;
}

FileDescriptor openRegularFile(int directory, const QString &name)
{
    if (!isPlainName(name))
        return FileDescriptor();
    // Non-blocking, so that a named pipe cannot hold the open; the type is checked on what was opened.
    FileDescriptor file(retried([&] {
        return ::openat(directory, encoded(name).constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    }));
    struct stat status = {};
    if (!file.isValid() || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode))
        return FileDescriptor();
    ::fcntl(file.get(), F_SETFL, ::fcntl(file.get(), F_GETFL) & ~O_NONBLOCK);
    return file;
}

qint64 regularFileSize(int directory, const QString &name)
{
    struct stat status = {};
    if (!isPlainName(name) || ::fstatat(directory, encoded(name).constData(), &status, AT_SYMLINK_NOFOLLOW) != 0
        || !S_ISREG(status.st_mode))
        return -1;
    return status.st_size;
}

bool readRegularFile(int directory, const QString &name, qint64 maxSize, QByteArray *content)
{
    const FileDescriptor file = openRegularFile(directory, name);
    if (!file.isValid())
        return false;
    content->clear();
    char block[65536];
    for (;;) {
        const ssize_t got = retried([&] {
            return int(::read(file.get(), block, sizeof block));
        });
        if (got < 0 || content->size() + got > maxSize)
            return false;
        if (got == 0)
            return true;
        content->append(block, got);
    }
}

bool writeNewFile(int directory, const QString &name, const QByteArray &content)
{
    if (!isPlainName(name))
        return false;
    const FileDescriptor file(::openat(directory, encoded(name).constData(),
                                       O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, s_fileMode));
    return file.isValid() && writeAll(file.get(), content.constData(), content.size());
}

bool copyRegularFile(int from, int to, const QString &name, const std::function<bool(qint64)> &copied)
{
    const FileDescriptor source = openRegularFile(from, name);
    if (!source.isValid())
        return false;
    const FileDescriptor target(
        ::openat(to, encoded(name).constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, s_fileMode));
    if (!target.isValid())
        return false;
    QByteArray block(s_copyBlock, Qt::Uninitialized);
    for (;;) {
        const ssize_t got = ::read(source.get(), block.data(), size_t(block.size()));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0 || !writeAll(target.get(), block.constData(), got))
            return false;
        if (got == 0)
            return ::fsync(target.get()) == 0;
        if (copied && !copied(got))
            return false;
    }
}

QString makeTemporaryDirectory(int directory, const QString &prefix)
{
    for (int attempt = 0; attempt < 16; ++attempt) {
        const QString name = prefix + QString::number(QRandomGenerator::global()->generate64(), 36);
        if (::mkdirat(directory, encoded(name).constData(), s_directoryMode) == 0)
            return name;
        if (errno != EEXIST)
            break;
    }
    return QString();
}

bool removeEntry(int directory, const QString &name)
{
    if (!isPlainName(name))
        return false;
    const QByteArray entry = encoded(name);
    const FileDescriptor opened(::openat(directory, entry.constData(), s_directoryFlags));
    if (!opened.isValid()) // a file, a link or anything else: the entry itself goes
        return ::unlinkat(directory, entry.constData(), 0) == 0 || errno == ENOENT;
    removeContents(opened.get());
    return ::unlinkat(directory, entry.constData(), AT_REMOVEDIR) == 0 || errno == ENOENT;
}

bool removeDirectory(const QString &root, const QString &path)
{
    const QString inside = pathBeneath(root, path);
    if (inside.isEmpty())
        return false;
    const qsizetype cut = inside.lastIndexOf(QLatin1Char('/'));
    const FileDescriptor parent = openDirectory(root, inside.left(cut));
    return parent.isValid() && entryType(parent.get(), inside.mid(cut + 1)) == EntryType::Directory
        && removeEntry(parent.get(), inside.mid(cut + 1));
}

void removeEmptyParents(const QString &root, const QString &path)
{
    QString directory = pathBeneath(root, path);
    for (;;) {
        const qsizetype cut = directory.lastIndexOf(QLatin1Char('/'));
        if (cut < root.size()) // the root itself stays
            return;
        const FileDescriptor parent = openDirectory(root, directory.left(cut));
        if (!parent.isValid())
            return;
        // Only an empty directory is removed; a full one ends the climb.
        if (::unlinkat(parent.get(), encoded(directory.mid(cut + 1)).constData(), AT_REMOVEDIR) != 0 && errno != ENOENT)
            return;
        directory.truncate(cut);
    }
}

bool renameNew(int directory, const QString &from, const QString &to)
{
    return isPlainName(from) && isPlainName(to)
        && ::renameat2(directory, encoded(from).constData(), directory, encoded(to).constData(), RENAME_NOREPLACE) == 0;
}

bool replaceEntry(int directory, const QString &from, const QString &to)
{
    if (renameNew(directory, from, to))
        return true;
    if (errno != EEXIST)
        return false;
    // The old entry changes places with the new one and then goes, whatever it was.
    return ::renameat2(directory, encoded(from).constData(), directory, encoded(to).constData(), RENAME_EXCHANGE) == 0
        && removeEntry(directory, from);
}

} // namespace Kavro::Server
