// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_SOAPREPLY_P_H
#define KAVRO_SOAPREPLY_P_H

#include <kavro/filegroupdata.h>

#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

QT_BEGIN_NAMESPACE
class QXmlStreamReader;
QT_END_NAMESPACE

namespace Kavro
{

/*!
 * \brief What one document from the server carried.
 *
 * Simple fields are kept by name in \c values; the entries of a "Users",
 * "Applications" or "Files" list in \c list (for files: id, name, id, name,
 * ...); "FileGroup" records in \c groups.
 */
struct SoapReply {
    QString requestId;
    //! The local name of the element inside the body ("AddFileReply"); empty when not reached.
    QString command;
    //! False when the command element is not one the library reads; nothing after it was read.
    bool known = false;
    int error = 0;
    QString errorString;
    QHash<QString, QString> values;
    QStringList list;
    QList<FileGroupData> groups;
    //! Why the document could not be read, with line and column; empty when it was read.
    QString readError;
};

//! Reads one reply or server message. Reading errors end up in SoapReply::readError.
SoapReply readSoapReply(const QByteArray &document);

//! True for a message the server sends of its own accord ("CopyForeignFileGroupProgress", "ConvertFileGroup").
bool isUnsolicitedMessage(const QByteArray &document);

/*!
 * \brief The strict reading rule shared by every reply.
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
