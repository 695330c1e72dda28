// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_SOAPCOMMANDS_P_H
#define KAVRO_SOAPCOMMANDS_P_H

#include <QList>
#include <QString>
#include <QStringList>

namespace Kavro
{

//! How an element's value is written and read.
enum class SoapKind {
    Text, //!< as it is
    Number, //!< decimal, "42" or "42.5"; anything else is a reading error
    Boolean, //!< "true" or "false"
    Time, //!< UTC, "yyyy-MM-dd hh:mm:ss.zzz"
    Texts, //!< one element of this name per entry, directly inside the command
    TextList, //!< a container holding one entry element per text
    Entries, //!< a container holding entry elements, each with the same text fields
    TimeRange, //!< a container holding the times "Min" and "Max"
    Record, //!< one "FileGroup" record, in the record's own element form
    Records, //!< any number of "FileGroup" records
};

//! One element of a command's request or reply.
struct SoapElement {
    const char *name;
    SoapKind kind;
    //! TextList and Entries: the name of one entry.
    const char *entry = nullptr;
    //! Entries: the text fields of one entry.
    QList<const char *> entryFields = {};
};

//! Who sends a document.
enum class SoapSender { Client, Server };

/*!
 * \brief One row of the protocol: a command, the elements of its request and
 * of its reply.
 *
 * A reply mirrors its request: the same envelope, the command element with
 * "Reply" appended, the request id echoed. The reply elements end with
 * "Error" and "ErrorString". A command without reply elements gets no reply.
 */
struct SoapCommand {
    const char *name;
    SoapSender sender;
    QList<SoapElement> request;
    QList<SoapElement> reply;

    bool hasReply() const { return !reply.isEmpty(); }
    QString replyName() const;
};

//! Every command of the protocol, in the order of the dispatcher's reply table.
const QList<SoapCommand> &soapCommands();

/*!
 * The command and side of a body element: the command whose request is
 * named \a element, or whose reply is; null when none is.
 */
const SoapCommand *soapCommandOf(QStringView element, bool *isReply = nullptr);

//! The body elements that \a receiver may receive, in table order.
QStringList soapElementsReceivedBy(SoapSender receiver);

//! The table as Markdown, for the protocol's documentation.
QString soapCommandsMarkdown();

} // namespace Kavro

#endif
