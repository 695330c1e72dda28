// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_SOAPMESSAGE_P_H
#define KAVRO_SOAPMESSAGE_P_H

#include "soapcommands_p.h"

#include <kavro/filegroupdata.h>

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

#include <functional>

QT_BEGIN_NAMESPACE
class QXmlStreamReader;
QT_END_NAMESPACE

namespace Kavro
{

/*!
 * \brief One document of the protocol, request or reply, by element name.
 *
 * Values are held as their wire texts: single values (text, number,
 * boolean, time) in \c values; repeated texts, text lists and time ranges
 * (minimum, maximum) in \c lists; the entries of a container such as
 * "Files" in \c entries, each entry's fields in the order the protocol
 * table gives them; "FileGroup" records in \c groups.
 */
struct SoapMessage {
    QString requestId;
    //! The element inside the body: the command ("AddFile") or its reply ("AddFileReply").
    QString element;
    QHash<QString, QString> values;
    QHash<QString, QStringList> lists;
    QHash<QString, QList<QStringList>> entries;
    QList<FileGroupData> groups;

    // Set by reading.

    //! False when the body element is none that the reader takes; nothing after it was read.
    bool known = false;
    //! "Error" and "ErrorString" of a reply.
    int error = 0;
    QString errorString;
    //! Why the document could not be read, with line and column; empty when it was read.
    QString readError;
    //! True when the records were read for their guids only: nobody wanted more of them.
    bool guidsOnly = false;
    //! True when nothing after the body's element was read: nobody wanted the content.
    bool elementOnly = false;

    //! The reply to \a request: its command's reply element, the request id echoed.
    static SoapMessage replyTo(const SoapMessage &request);

    void setNumber(const QString &name, qint64 value);
    void setDecimal(const QString &name, double value);
    void setBoolean(const QString &name, bool value);
    //! Converted to UTC and written "yyyy-MM-dd hh:mm:ss.zzz"; empty when null.
    void setTime(const QString &name, const QDateTime &time);
    //! Sets "Error" and "ErrorString".
    void setError(int error, const QString &errorString);

    QString text(const QString &name) const { return values.value(name); }
    /*!
     * The texts of a reply's list or container of entries, each entry's
     * fields in turn (for files: id, name, id, name, ...). Replies hold one at most.
     */
    QStringList listTexts() const;
    qint64 number(const QString &name) const;
    double decimal(const QString &name) const;
    bool boolean(const QString &name) const;
    //! A time in any of the protocol's forms, as UTC; null when empty or unreadable.
    QDateTime time(const QString &name) const;
};

//! A time as documents carry it: UTC, "yyyy-MM-dd hh:mm:ss.zzz"; empty when null.
QString soapTimeText(const QDateTime &time);
//! A time in any of the protocol's forms, as UTC; null when empty or unreadable.
QDateTime soapTime(const QString &text);

//! Writes \a message as a whole document, its elements in the protocol table's order.
QByteArray writeSoapMessage(const SoapMessage &message);

/*!
 * Reads one document that \a sender sent: a request when the client sent
 * it, a reply or a message of the server's own when the server did.
 * Reading errors end up in SoapMessage::readError.
 */
SoapMessage readSoapMessage(const QByteArray &document, SoapSender sender);
//! How much of a document's body is read.
enum class SoapReading {
    Full,
    //! "FileGroup" records for their guids only; the document is still read, and checked, to its end.
    GuidsOnly,
    //! Nothing after the name of the body's element.
    ElementOnly,
};
/*!
 * The same, asking \a reading, once the request id and the body's element
 * are known, how much of the body to read.
 */
SoapMessage
readSoapMessage(const QByteArray &document, SoapSender sender,
                const std::function<SoapReading(const QString &requestId, const QString &element)> &reading);

//! True for a message the server sends of its own accord ("CopyForeignFileGroupProgress", "ConvertFileGroup").
bool isUnsolicitedMessage(const QByteArray &document);

/*!
 * \brief The strict reading rule shared by every document.
 *
 * Reads up to the next element token, which must be one of \a expected (a
 * start element by its name, an end element as "/" and its name) in the
 * namespace \a namespaceUri, and returns its index. Blank text is passed
 * over. Anything else throws SoapReadError.
 */
int readToken(QXmlStreamReader &reader, const QStringList &expected, const QString &namespaceUri);

//! A reading error: the rule that was broken, without the position.
struct SoapReadError {
    QString text;
};

} // namespace Kavro

#endif
