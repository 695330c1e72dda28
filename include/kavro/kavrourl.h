// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_KAVROURL_H
#define KAVRO_KAVROURL_H

#include <kavro/kavro_export.h>

#include <QUrl>

namespace Kavro
{

/*!
 * \brief A URL naming an archived file group, or one file inside it.
 *
 * An archive URL reads "kavro:///<guid>" or "kavro:///<guid>/<fileId>".
 * A KavroUrl may also hold an ordinary local file URL.
 *
 * \code
 * const Kavro::KavroUrl url(Kavro::KavroUrl::fromKavroIds(guid, 5));
 * url.toString();       // "kavro:///<guid>/5"
 * url.toKavroFileId();  // 5
 * \endcode
 */
class KAVRO_EXPORT KavroUrl : public QUrl
{
public:
    KavroUrl() = default;
    KavroUrl(const QUrl &url); // NOLINT(google-explicit-constructor): a KavroUrl is a QUrl
    /*!
     * Parses \a text tolerantly. A local URL with a drive letter after two
     * slashes ("file://C:/data") is first repaired to three slashes, so the
     * drive becomes part of the path instead of the host.
     */
    explicit KavroUrl(const QString &text);
    KavroUrl &operator=(const QUrl &url);

    //! "kavro".
    static QString kavroScheme();
    //! The URL of the file group \a guid.
    static QUrl fromKavroGuid(const QString &guid);
    //! The URL of file \a fileId in the file group \a guid.
    static QUrl fromKavroIds(const QString &guid, unsigned int fileId);

    //! True when the scheme is "kavro" and the path names a file group.
    bool isKavroUrl() const;
    //! True when the path has exactly two parts, a guid and a file id.
    bool hasKavroFileId() const;
    //! The first part of the path, or an empty string.
    QString toKavroGuid() const;
    //! The second part of the path as a decimal number; 0 when missing or not a number.
    unsigned int toKavroFileId() const;
    //! True when the scheme is "file".
    bool isLocalFile() const;

private:
    QStringList pathParts() const;
};

} // namespace Kavro

#endif
