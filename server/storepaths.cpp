// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "storepaths.h"

#include <QDir>
#include <QFileInfo>

namespace Kavro::Server
{

namespace
{
QString canonicalDirectory(const QString &path, QString *error)
{
    if (!QDir().mkpath(path)) {
        *error = QStringLiteral("cannot create the directory %1").arg(path);
        return QString();
    }
    return QFileInfo(path).canonicalFilePath();
}
} // namespace

bool StorePaths::create(const QString &storeDirectory, const QString &archiveRootDirectory, const QString &catalogue,
                        QString *error)
{
    const QString store = canonicalDirectory(storeDirectory, error);
    if (store.isEmpty())
        return false;
    database = catalogue.isEmpty() ? store + QLatin1String("/kavro.sqlite") : catalogue;
    data = canonicalDirectory(store + QLatin1String("/data"), error);
    nas = canonicalDirectory(store + QLatin1String("/nas"), error);
    archiveRoot = canonicalDirectory(
        archiveRootDirectory.isEmpty() ? store + QLatin1String("/archives") : archiveRootDirectory, error);
    return !data.isEmpty() && !nas.isEmpty() && !archiveRoot.isEmpty();
}

bool isPlainName(const QString &name)
{
    return !name.isEmpty() && name != QLatin1String(".") && name != QLatin1String("..")
        && !name.contains(QLatin1Char('/')) && !name.contains(QLatin1Char('\\')) && !name.contains(QChar(0));
}

bool isGuid(const QString &guid)
{
    return isPlainName(guid) && guid.size() <= maxGuidLength;
}

} // namespace Kavro::Server
