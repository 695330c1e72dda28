// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_KAVROCLIENTSOAPMESSAGE_P_H
#define KAVRO_KAVROCLIENTSOAPMESSAGE_P_H

#include "soapmessage_p.h"

#include <QByteArray>
#include <QString>

#include <initializer_list>
#include <utility>

namespace Kavro
{

/*!
 * \brief A request to the archive server: a command and its fields.
 *
 * The document is a SOAP 1.2 envelope whose header carries the version and the
 * request id, and whose body holds the command element with its fields in the
 * order of the protocol table; every field is written, empty ones as empty
 * elements, and no white space lies between elements.
 */
class KavroClientSOAPMessage
{
public:
    //! A message of \a command with text \a fields; \a requestId is a fresh GUID when empty.
    KavroClientSOAPMessage(const char *command, std::initializer_list<std::pair<const char *, QString>> fields,
                           const QString &requestId = QString());
    virtual ~KavroClientSOAPMessage();

    QString requestId() const;
    QString command() const;

    //! The whole request document.
    virtual QByteArray writeRequest() const;

    static QString booleanText(bool value);

protected:
    SoapMessage m_message;
};

} // namespace Kavro

#endif
