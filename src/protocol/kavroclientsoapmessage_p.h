// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_KAVROCLIENTSOAPMESSAGE_P_H
#define KAVRO_KAVROCLIENTSOAPMESSAGE_P_H

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>

namespace Kavro
{

/*!
 * \brief One element of a request: a text, or a container of further elements.
 */
struct SoapField {
    SoapField(const char *name, const QString &text);
    SoapField(const char *name, QList<SoapField> children);

    const char *name;
    QString text;
    QList<SoapField> children;
    bool container = false;
};

/*!
 * \brief A request to the archive server: a command and its fields in order.
 *
 * The document is a SOAP 1.2 envelope whose header carries the version and the
 * request id, and whose body holds the command element with its fields; every
 * field is written, empty ones as empty elements, and no white space lies
 * between elements.
 */
class KavroClientSOAPMessage
{
public:
    //! A message of \a command; \a requestId is a fresh GUID when empty.
    KavroClientSOAPMessage(const char *command, QList<SoapField> fields, const QString &requestId = QString());
    virtual ~KavroClientSOAPMessage();

    QString requestId() const;
    QString command() const;

    //! The whole request document.
    virtual QByteArray writeRequest() const;

    static QString envelopeNamespace();
    //! A date-time as requests carry it: UTC, "yyyy-MM-dd hh:mm:ss.zzz"; empty when null.
    static QString dateTimeText(const QDateTime &time);
    static QString booleanText(bool value);

private:
    const char *const m_command;
    const QList<SoapField> m_fields;
    const QString m_requestId;
};

} // namespace Kavro

#endif
