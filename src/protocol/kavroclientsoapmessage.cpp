// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "kavroclientsoapmessage_p.h"

#include "servicenamespace_p.h"

#include <QDateTime>
#include <QUuid>
#include <QXmlStreamWriter>

namespace Kavro
{

namespace
{
QString prefixed(char prefix, const char *name)
{
    return QLatin1Char(prefix) + QLatin1Char(':') + QLatin1String(name);
}

void writeField(QXmlStreamWriter &writer, const SoapField &field)
{
    if (!field.container) {
        writer.writeTextElement(prefixed('m', field.name), field.text);
        return;
    }
    writer.writeStartElement(prefixed('m', field.name));
    for (const SoapField &child : field.children)
        writeField(writer, child);
    writer.writeEndElement();
}
} // namespace

SoapField::SoapField(const char *name, const QString &text)
    : name(name)
    , text(text)
{
}

SoapField::SoapField(const char *name, QList<SoapField> children)
    : name(name)
    , children(std::move(children))
    , container(true)
{
}

KavroClientSOAPMessage::KavroClientSOAPMessage(const char *command, QList<SoapField> fields, const QString &requestId)
    : m_command(command)
    , m_fields(std::move(fields))
    , m_requestId(requestId.isEmpty() ? QUuid::createUuid().toString(QUuid::WithoutBraces) : requestId)
{
}

KavroClientSOAPMessage::~KavroClientSOAPMessage() = default;

QString KavroClientSOAPMessage::requestId() const
{
    return m_requestId;
}

QString KavroClientSOAPMessage::command() const
{
    return QLatin1String(m_command);
}

QString KavroClientSOAPMessage::envelopeNamespace()
{
    return QStringLiteral("http://www.w3.org/2003/05/soap-envelope");
}

QString KavroClientSOAPMessage::dateTimeText(const QDateTime &time)
{
    return time.isNull() ? QString() : time.toUTC().toString(QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz"));
}

QString KavroClientSOAPMessage::booleanText(bool value)
{
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

QByteArray KavroClientSOAPMessage::writeRequest() const
{
    QByteArray document;
    QXmlStreamWriter writer(&document);
    writer.writeStartDocument(QStringLiteral("1.0"));
    writer.writeStartElement(prefixed('s', "Envelope"));
    writer.writeNamespace(envelopeNamespace(), QStringLiteral("s"));
    writer.writeStartElement(prefixed('s', "Header"));
    writer.writeTextElement(prefixed('s', "Version"), QStringLiteral("1.0"));
    writer.writeTextElement(prefixed('s', "RequestId"), m_requestId);
    writer.writeEndElement();
    writer.writeStartElement(prefixed('s', "Body"));
    writer.writeStartElement(prefixed('m', m_command));
    writer.writeNamespace(serviceNamespaceUri(), QStringLiteral("m"));
    for (const SoapField &field : m_fields)
        writeField(writer, field);
    // Command, body and envelope; closed one by one, as the document must end without white space.
    for (int open = 0; open < 3; ++open)
        writer.writeEndElement();
    return document;
}

} // namespace Kavro
