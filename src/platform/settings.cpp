// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "settings_p.h"

#include <QStandardPaths>

namespace Kavro
{

QString Settings::kavroSection()
{
    return QStringLiteral("KAVRO");
}

QString Settings::adminSection()
{
    return QStringLiteral("ADMIN");
}

QString Settings::defaultFilePath()
{
    const QString fromEnvironment = qEnvironmentVariable("KAVRO_CONFIG");
    if (!fromEnvironment.isEmpty())
        return fromEnvironment;
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + QStringLiteral("/kavro/kavro.ini");
}

Settings::Settings(const QString &section, const QString &filePath)
    : m_section(section)
    , m_settings(filePath, QSettings::IniFormat)
{
}

QString Settings::filePath() const
{
    return m_settings.fileName();
}

QString Settings::key(const QString &name) const
{
    return m_section + QLatin1Char('/') + name;
}

bool Settings::contains(const QString &name) const
{
    return m_settings.contains(key(name));
}

QString Settings::stringValue(const QString &name, const QString &defaultValue) const
{
    return m_settings.value(key(name), defaultValue).toString();
}

int Settings::intValue(const QString &name, int defaultValue) const
{
    bool ok = false;
    const int value = m_settings.value(key(name)).toString().trimmed().toInt(&ok);
    return ok ? value : defaultValue;
}

bool Settings::boolValue(const QString &name, bool defaultValue) const
{
    const QVariant value = m_settings.value(key(name));
    return value.isValid() ? value.toBool() : defaultValue;
}

void Settings::setIntValue(const QString &name, int value)
{
    setStringValue(name, QString::number(value));
}

void Settings::setStringValue(const QString &name, const QString &value)
{
    m_settings.setValue(key(name), value);
    m_settings.sync();
}

} // namespace Kavro
