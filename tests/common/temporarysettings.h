// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_TESTS_TEMPORARYSETTINGS_H
#define KAVRO_TESTS_TEMPORARYSETTINGS_H

#include <QByteArray>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

//! Writes \a bytes to the file at \a path, replacing what was there; true when all were written.
inline bool writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

//! The content of the file at \a path; empty when it cannot be read.
inline QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/*!
 * A configuration file in a temporary directory, removed with the object.
 * With \a useAsDefault it becomes the process's configuration (KAVRO_CONFIG)
 * until the object goes away.
 */
class TemporarySettings
{
public:
    explicit TemporarySettings(const QByteArray &iniText = QByteArray(), bool useAsDefault = false)
        : m_previous(qgetenv("KAVRO_CONFIG"))
        , m_useAsDefault(useAsDefault)
    {
        write(iniText);
        if (m_useAsDefault)
            qputenv("KAVRO_CONFIG", path().toLocal8Bit());
    }
    ~TemporarySettings()
    {
        if (m_useAsDefault)
            qputenv("KAVRO_CONFIG", m_previous);
    }
    Q_DISABLE_COPY_MOVE(TemporarySettings)

    QString path() const { return m_dir.filePath(QStringLiteral("kavro.ini")); }

    void write(const QByteArray &iniText) { QVERIFY(writeFile(path(), iniText)); }

private:
    QTemporaryDir m_dir;
    const QByteArray m_previous;
    const bool m_useAsDefault;
};

#endif
