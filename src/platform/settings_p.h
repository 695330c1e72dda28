// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_SETTINGS_P_H
#define KAVRO_SETTINGS_P_H

#include <kavro/kavro_export.h>

#include <QSettings>
#include <QString>

namespace Kavro
{

/*!
 * \brief One section of the Kavro configuration file.
 *
 * The configuration is an INI file: the path in the environment variable
 * KAVRO_CONFIG where set, else kavro/kavro.ini under the generic
 * configuration location (~/.config/kavro/kavro.ini). The section "KAVRO"
 * holds the client settings, "ADMIN" the administrative ones.
 *
 * Exported for Kavro::Widgets, whose dialogs keep their state in the section
 * "Dialogs"; the header is not installed.
 */
class KAVRO_EXPORT Settings
{
public:
    static QString kavroSection();
    static QString adminSection();
    static QString defaultFilePath();

    explicit Settings(const QString &section, const QString &filePath = defaultFilePath());
    Q_DISABLE_COPY_MOVE(Settings)

    QString filePath() const;
    bool contains(const QString &key) const;
    QString stringValue(const QString &key, const QString &defaultValue) const;
    //! The value read as a decimal integer; \a defaultValue when absent or not a number.
    int intValue(const QString &key, int defaultValue) const;
    //! The value read as a boolean ("true"/"false", "1"/"0"); \a defaultValue when absent.
    bool boolValue(const QString &key, bool defaultValue) const;
    //! Writes \a value under \a key and flushes the file.
    void setIntValue(const QString &key, int value);
    //! Writes \a value under \a key and flushes the file.
    void setStringValue(const QString &key, const QString &value);

private:
    QString key(const QString &name) const;

    const QString m_section;
    mutable QSettings m_settings;
};

} // namespace Kavro

#endif
