// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "kavroclientsoapmessage_p.h"

#include <QUuid>

namespace Kavro
{

KavroClientSOAPMessage::KavroClientSOAPMessage(const char *command,
                                               std::initializer_list<std::pair<const char *, QString>> fields,
                                               const QString &requestId)
{
    m_message.element = QLatin1String(command);
    m_message.requestId = requestId.isEmpty() ? QUuid::createUuid().toString(QUuid::WithoutBraces) : requestId;
    for (const auto &[name, text] : fields)
        m_message.values.insert(QLatin1String(name), text);
}

KavroClientSOAPMessage::~KavroClientSOAPMessage() = default;

QString KavroClientSOAPMessage::requestId() const
{
    return m_message.requestId;
}

QString KavroClientSOAPMessage::command() const
{
    return m_message.element;
}

QString KavroClientSOAPMessage::booleanText(bool value)
{
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

QByteArray KavroClientSOAPMessage::writeRequest() const
{
    return writeSoapMessage(m_message);
}

} // namespace Kavro
