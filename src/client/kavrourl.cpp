// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include <kavro/kavrourl.h>

#include <QRegularExpression>

namespace Kavro
{

KavroUrl::KavroUrl(const QUrl &url)
    : QUrl(url)
{
}

KavroUrl::KavroUrl(const QString &text)
{
    static const QRegularExpression driveAfterTwoSlashes(QStringLiteral("^file://[a-zA-Z]:/"));
    QString repaired = text;
    if (driveAfterTwoSlashes.match(repaired).hasMatch())
        repaired.replace(QStringLiteral("file://"), QStringLiteral("file:///"));
    setUrl(repaired, QUrl::TolerantMode);
}

KavroUrl &KavroUrl::operator=(const QUrl &url)
{
    QUrl::operator=(url);
    return *this;
}

QString KavroUrl::kavroScheme()
{
    return QStringLiteral("kavro");
}

QUrl KavroUrl::fromKavroGuid(const QString &guid)
{
    // "kavro://" keeps an empty authority, so the URL prints as "kavro:///<guid>".
    QUrl url(kavroScheme() + QStringLiteral("://"));
    url.setPath(QLatin1Char('/') + guid);
    return url;
}

QUrl KavroUrl::fromKavroIds(const QString &guid, unsigned int fileId)
{
    QUrl url = fromKavroGuid(guid);
    url.setPath(url.path() + QLatin1Char('/') + QString::number(fileId));
    return url;
}

QStringList KavroUrl::pathParts() const
{
    return path().split(QLatin1Char('/'), Qt::SkipEmptyParts);
}

bool KavroUrl::isKavroUrl() const
{
    return scheme() == kavroScheme() && !pathParts().isEmpty();
}

bool KavroUrl::hasKavroFileId() const
{
    return pathParts().size() == 2;
}

QString KavroUrl::toKavroGuid() const
{
    const QStringList parts = pathParts();
    return parts.isEmpty() ? QString() : parts.first();
}

unsigned int KavroUrl::toKavroFileId() const
{
    const QStringList parts = pathParts();
    return parts.size() < 2 ? 0 : parts.at(1).toUInt();
}

bool KavroUrl::isLocalFile() const
{
    return scheme() == QLatin1String("file");
}

} // namespace Kavro
