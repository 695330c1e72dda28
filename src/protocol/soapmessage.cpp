// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "soapmessage_p.h"

#include "servicenamespace_p.h"
#include "translations_p.h"

#include <kavro/filequery.h>

#include <QBuffer>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>

#include <optional>

namespace Kavro
{

namespace
{
const QString &envelopeNamespace()
{
    static const QString uri = QStringLiteral("http://www.w3.org/2003/05/soap-envelope");
    return uri;
}

QString translated(const char *text)
{
    return Translations::translate(text);
}

SoapReadError unexpected(const QStringList &expected, const QString &found)
{
    const QString text = expected.size() == 1
        ? translated(QT_TRANSLATE_NOOP("QObject", "Expected element %1, but got %2"))
        : translated(QT_TRANSLATE_NOOP("QObject", "Expected one of %1, but got %2"));
    return {text.arg(expected.join(QStringLiteral(", ")), found)};
}

SoapReadError endOfDocument(const QStringList &expected)
{
    const QString text = expected.size() == 1
        ? translated(QT_TRANSLATE_NOOP("QObject", "Expected element %1, but got end of document"))
        : translated(QT_TRANSLATE_NOOP("QObject", "Expected one of %1, but got end of document"));
    return {text.arg(expected.join(QStringLiteral(", ")))};
}

SoapReadError notANumber(const QString &text)
{
    return {translated(QT_TRANSLATE_NOOP("QObject", "Expected a number, but got %1")).arg(text.simplified())};
}

// Reading: every element of the command's side, in any order.

// The element token the reader is at among \a expected (an end element as "/" and its name); -1 when none.
int indexOfToken(const QXmlStreamReader &reader, const QStringList &expected)
{
    const bool isEnd = reader.isEndElement();
    const QStringView name = reader.name();
    for (int i = 0; i < expected.size(); ++i) {
        const QStringView candidate = expected.at(i);
        const bool candidateIsEnd = candidate.startsWith(QLatin1Char('/'));
        if (candidateIsEnd == isEnd && candidate.mid(isEnd ? 1 : 0) == name)
            return i;
    }
    return -1;
}

// A reader of \a document. A large one is turned into text a block at a time
// through a buffer device, not all at once; a small one directly, which is cheaper.
struct DocumentReader {
    explicit DocumentReader(const QByteArray &document)
    {
        if (document.size() < s_blockwiseFrom) {
            reader.addData(document);
            return;
        }
        buffer.emplace();
        buffer->setData(document);
        buffer->open(QIODevice::ReadOnly);
        reader.setDevice(&*buffer);
    }
    Q_DISABLE_COPY_MOVE(DocumentReader)

    static constexpr qsizetype s_blockwiseFrom = 64 * 1024;
    std::optional<QBuffer> buffer;
    QXmlStreamReader reader;
};

QString elementText(QXmlStreamReader &reader, const QStringList &context)
{
    const QString text = reader.readElementText();
    if (reader.error() == QXmlStreamReader::PrematureEndOfDocumentError)
        throw endOfDocument(context);
    if (reader.hasError())
        throw SoapReadError{reader.errorString()};
    return text;
}

QString numberText(QXmlStreamReader &reader, const QStringList &context)
{
    const QString text = elementText(reader, context);
    bool numeric = true;
    if (!text.trimmed().isEmpty())
        text.trimmed().toDouble(&numeric);
    if (!numeric)
        throw notANumber(text);
    return text.trimmed();
}

QStringList names(const QList<const char *> &names)
{
    QStringList list;
    for (const char *name : names)
        list << QLatin1String(name);
    return list;
}

// A container: its children, each one of \a children, until its end.
template<typename Read>
void readChildren(QXmlStreamReader &reader, const QString &container, QStringList children, Read read)
{
    children << QLatin1Char('/') + container;
    const int end = children.size() - 1;
    for (int token; (token = readToken(reader, children, serviceNamespaceUri())) != end;)
        read(token, children);
}

// A record of which only the guid is kept; the rest is read over.
FileGroupData guidOfGroup(QXmlStreamReader &reader)
{
    FileGroupData group;
    while (reader.readNextStartElement()) {
        if (reader.name() == QLatin1String("Guid") && reader.namespaceUri() == serviceNamespaceUri())
            group.setGuid(reader.readElementText());
        else
            reader.skipCurrentElement();
    }
    return group;
}

void readGroup(QXmlStreamReader &reader, const QStringList &context, bool guidOnly, QList<FileGroupData> *groups)
{
    FileGroupData group;
    if (guidOnly)
        group = guidOfGroup(reader);
    else
        group.FromHtml(reader, FileGroupData::ReadToEndOfGroup);
    if (reader.error() == QXmlStreamReader::PrematureEndOfDocumentError)
        throw endOfDocument(context);
    if (reader.hasError())
        throw SoapReadError{reader.errorString()};
    groups->append(group);
}

void readElement(QXmlStreamReader &reader, const SoapElement &element, const QStringList &context, SoapMessage *message)
{
    const QString name = QLatin1String(element.name);
    switch (element.kind) {
    case SoapKind::Text:
    case SoapKind::Boolean:
    case SoapKind::Time:
        message->values.insert(name, elementText(reader, context));
        break;
    case SoapKind::Number:
        message->values.insert(name, numberText(reader, context));
        break;
    case SoapKind::Texts:
        message->lists[name].append(elementText(reader, context));
        break;
    case SoapKind::TextList: {
        QStringList &list = message->lists[name];
        readChildren(reader, name, {QLatin1String(element.entry)}, [&](int, const QStringList &expected) {
            list.append(elementText(reader, expected));
        });
        break;
    }
    case SoapKind::Entries: {
        QList<QStringList> &entries = message->entries[name];
        const QStringList fields = names(element.entryFields);
        readChildren(reader, name, {QLatin1String(element.entry)}, [&](int, const QStringList &) {
            QStringList entry(fields.size());
            readChildren(reader, QLatin1String(element.entry), fields, [&](int field, const QStringList &expected) {
                entry[field] = elementText(reader, expected);
            });
            entries.append(entry);
        });
        break;
    }
    case SoapKind::TimeRange: {
        QStringList range(2);
        readChildren(reader, name, {QStringLiteral("Min"), QStringLiteral("Max")},
                     [&](int bound, const QStringList &expected) {
                         range[bound] = elementText(reader, expected);
                     });
        message->lists.insert(name, range);
        break;
    }
    case SoapKind::Record:
    case SoapKind::Records:
        readGroup(reader, context, message->guidsOnly, &message->groups);
        break;
    }
}

void readHeader(QXmlStreamReader &reader, SoapMessage *message)
{
    readToken(reader, {QStringLiteral("Envelope")}, envelopeNamespace());
    readToken(reader, {QStringLiteral("Header")}, envelopeNamespace());
    const QStringList header = {QStringLiteral("Version"), QStringLiteral("RequestId"), QStringLiteral("/Header")};
    for (int token; (token = readToken(reader, header, envelopeNamespace())) != 2;) {
        const QString text = elementText(reader, header);
        if (token == 1)
            message->requestId = text;
    }
    readToken(reader, {QStringLiteral("Body")}, envelopeNamespace());
}

// The element inside the body names the command; any name is taken here, an unknown one included.
void readBodyElement(QXmlStreamReader &reader, SoapSender sender, SoapMessage *message)
{
    const SoapSender receiver = sender == SoapSender::Client ? SoapSender::Server : SoapSender::Client;
    for (;;) {
        reader.readNext();
        if (reader.error() == QXmlStreamReader::PrematureEndOfDocumentError || reader.isEndDocument())
            throw endOfDocument(soapElementsReceivedBy(receiver));
        if (reader.hasError())
            throw SoapReadError{reader.errorString()};
        if (reader.isStartElement())
            break;
        if (reader.isEndElement())
            throw unexpected(soapElementsReceivedBy(receiver), QLatin1Char('/') + reader.name().toString());
        if (reader.isCharacters() && !reader.isWhitespace())
            throw SoapReadError{translated(QT_TRANSLATE_NOOP("QObject", "Unexpected text %1"))
                                    .arg(reader.text().toString().simplified())};
    }
    if (reader.namespaceUri() != serviceNamespaceUri())
        throw SoapReadError{translated(QT_TRANSLATE_NOOP("QObject", "Expected namespace %1, but got %2"))
                                .arg(serviceNamespaceUri(), reader.namespaceUri())};
    message->element = reader.name().toString();
}

// The elements of a body element, or null when \a sender does not send it.
const QList<SoapElement> *elementsOf(QStringView element, SoapSender sender)
{
    bool isReply = false;
    const SoapCommand *command = soapCommandOf(element, &isReply);
    if (!command || (command->sender == sender) == isReply)
        return nullptr;
    return isReply ? &command->reply : &command->request;
}

void readFields(QXmlStreamReader &reader, const QList<SoapElement> &elements, SoapMessage *message)
{
    QStringList expected;
    for (const SoapElement &element : elements)
        expected << QLatin1String(element.name);
    expected.removeDuplicates();
    expected << QLatin1Char('/') + message->element;
    const int end = expected.size() - 1;
    for (int token; (token = readToken(reader, expected, serviceNamespaceUri())) != end;) {
        const auto element = std::find_if(elements.begin(), elements.end(), [&](const SoapElement &candidate) {
            return expected.at(token) == QLatin1String(candidate.name);
        });
        readElement(reader, *element, expected, message);
    }
    const auto code = message->values.constFind(QStringLiteral("Error"));
    if (code != message->values.constEnd())
        message->error = code->toInt();
    message->errorString = message->values.value(QStringLiteral("ErrorString"));
}

// Writing.

QString prefixed(char prefix, const char *name)
{
    return QLatin1Char(prefix) + QLatin1Char(':') + QLatin1String(name);
}

void writeContainer(QXmlStreamWriter &writer, const char *name, const char *entry, const QStringList &texts)
{
    writer.writeStartElement(prefixed('m', name));
    for (const QString &text : texts)
        writer.writeTextElement(prefixed('m', entry), text);
    writer.writeEndElement();
}

void writeElement(QXmlStreamWriter &writer, const SoapElement &element, const SoapMessage &message)
{
    const QString name = QLatin1String(element.name);
    switch (element.kind) {
    case SoapKind::Text:
    case SoapKind::Number:
    case SoapKind::Boolean:
    case SoapKind::Time:
        writer.writeTextElement(prefixed('m', element.name), message.values.value(name));
        break;
    case SoapKind::Texts:
        for (const QString &text : message.lists.value(name))
            writer.writeTextElement(prefixed('m', element.name), text);
        break;
    case SoapKind::TextList:
        writeContainer(writer, element.name, element.entry, message.lists.value(name));
        break;
    case SoapKind::Entries:
        writer.writeStartElement(prefixed('m', element.name));
        for (const QStringList &entry : message.entries.value(name)) {
            writer.writeStartElement(prefixed('m', element.entry));
            for (int field = 0; field < element.entryFields.size(); ++field)
                writer.writeTextElement(prefixed('m', element.entryFields.at(field)), entry.value(field));
            writer.writeEndElement();
        }
        writer.writeEndElement();
        break;
    case SoapKind::TimeRange: {
        const QStringList range = message.lists.value(name);
        writer.writeStartElement(prefixed('m', element.name));
        writer.writeTextElement(prefixed('m', "Min"), range.value(0));
        writer.writeTextElement(prefixed('m', "Max"), range.value(1));
        writer.writeEndElement();
        break;
    }
    case SoapKind::Record:
        if (!message.groups.isEmpty())
            message.groups.first().ToHtml(writer, true, false);
        break;
    case SoapKind::Records:
        for (const FileGroupData &group : message.groups)
            group.ToHtml(writer, true, false);
        break;
    }
}
} // namespace

SoapMessage SoapMessage::replyTo(const SoapMessage &request)
{
    SoapMessage reply;
    reply.requestId = request.requestId;
    const SoapCommand *command = soapCommandOf(request.element);
    reply.element = command ? command->replyName() : request.element + QLatin1String("Reply");
    return reply;
}

void SoapMessage::setNumber(const QString &name, qint64 value)
{
    values.insert(name, QString::number(value));
}

void SoapMessage::setDecimal(const QString &name, double value)
{
    values.insert(name, QString::number(value));
}

void SoapMessage::setBoolean(const QString &name, bool value)
{
    values.insert(name, value ? QStringLiteral("true") : QStringLiteral("false"));
}

void SoapMessage::setTime(const QString &name, const QDateTime &time)
{
    values.insert(name, soapTimeText(time));
}

void SoapMessage::setError(int code, const QString &text)
{
    setNumber(QStringLiteral("Error"), code);
    values.insert(QStringLiteral("ErrorString"), text);
}

QStringList SoapMessage::listTexts() const
{
    QStringList texts;
    for (const QStringList &list : lists)
        texts << list;
    for (const QList<QStringList> &container : entries) {
        for (const QStringList &entry : container)
            texts << entry;
    }
    return texts;
}

qint64 SoapMessage::number(const QString &name) const
{
    return values.value(name).toLongLong();
}

double SoapMessage::decimal(const QString &name) const
{
    return values.value(name).toDouble();
}

bool SoapMessage::boolean(const QString &name) const
{
    return values.value(name) == QLatin1String("true");
}

QDateTime SoapMessage::time(const QString &name) const
{
    return soapTime(values.value(name));
}

QString soapTimeText(const QDateTime &time)
{
    return time.isNull() ? QString() : time.toUTC().toString(QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz"));
}

QDateTime soapTime(const QString &text)
{
    const QDateTime read = FileQuery::getValidDateTimeFromString(text);
    return read.isValid() ? QDateTime(read.date(), read.time(), Qt::UTC) : QDateTime();
}

QByteArray writeSoapMessage(const SoapMessage &message)
{
    bool isReply = false;
    const SoapCommand *command = soapCommandOf(message.element, &isReply);
    QByteArray document;
    QXmlStreamWriter writer(&document);
    writer.writeStartDocument(QStringLiteral("1.0"));
    writer.writeStartElement(prefixed('s', "Envelope"));
    writer.writeNamespace(envelopeNamespace(), QStringLiteral("s"));
    writer.writeStartElement(prefixed('s', "Header"));
    writer.writeTextElement(prefixed('s', "Version"), QStringLiteral("1.0"));
    writer.writeTextElement(prefixed('s', "RequestId"), message.requestId);
    writer.writeEndElement();
    writer.writeStartElement(prefixed('s', "Body"));
    writer.writeStartElement(QStringLiteral("m:") + message.element);
    writer.writeNamespace(serviceNamespaceUri(), QStringLiteral("m"));
    // A document of no known command carries only its outcome: the answer to an unknown request.
    static const QList<SoapElement> outcome = {{"Error", SoapKind::Number}, {"ErrorString", SoapKind::Text}};
    for (const SoapElement &element : !command ? outcome : isReply ? command->reply : command->request)
        writeElement(writer, element, message);
    // Command, body and envelope; closed one by one, as the document must end without white space.
    for (int open = 0; open < 3; ++open)
        writer.writeEndElement();
    return document;
}

int readToken(QXmlStreamReader &reader, const QStringList &expected, const QString &namespaceUri)
{
    for (;;) {
        reader.readNext();
        if (reader.error() == QXmlStreamReader::PrematureEndOfDocumentError || reader.isEndDocument())
            throw endOfDocument(expected);
        if (reader.hasError())
            throw SoapReadError{reader.errorString()};
        if (reader.isCharacters()) {
            const QString text = reader.text().toString().simplified();
            if (text.isEmpty())
                continue;
            throw SoapReadError{translated(QT_TRANSLATE_NOOP("QObject", "Unexpected text %1")).arg(text)};
        }
        if (!reader.isStartElement() && !reader.isEndElement())
            continue; // declaration, comments, processing instructions
        const int index = indexOfToken(reader, expected);
        if (index < 0)
            throw unexpected(expected, (reader.isEndElement() ? QStringLiteral("/") : QString()) + reader.name());
        if (reader.namespaceUri() != namespaceUri)
            throw SoapReadError{translated(QT_TRANSLATE_NOOP("QObject", "Expected namespace %1, but got %2"))
                                    .arg(namespaceUri, reader.namespaceUri())};
        return index;
    }
}

// False when none of the server's own messages is named in \a document, which
// spares most replies a second reading. Only for documents in an ASCII-based
// encoding, where element names stand in the bytes as they are.
bool mayBeUnsolicited(const QByteArray &document)
{
    if (!document.startsWith('<'))
        return true;
    static const QByteArrayList names = [] {
        QByteArrayList own;
        for (const SoapCommand &command : soapCommands()) {
            if (command.sender == SoapSender::Server)
                own << QByteArray(command.name);
        }
        return own;
    }();
    return std::any_of(names.cbegin(), names.cend(), [&](const QByteArray &name) {
        return document.contains(name);
    });
}

bool isUnsolicitedMessage(const QByteArray &document)
{
    if (!mayBeUnsolicited(document))
        return false;
    // Only the envelope is read, up to the element inside the body.
    DocumentReader documentReader(document);
    QXmlStreamReader &reader = documentReader.reader;
    bool inBody = false;
    while (reader.readNextStartElement() || (!reader.atEnd() && !reader.hasError())) {
        if (!reader.isStartElement())
            continue;
        if (inBody) {
            bool isReply = false;
            const SoapCommand *command = soapCommandOf(reader.name(), &isReply);
            return command && command->sender == SoapSender::Server && !isReply;
        }
        inBody = reader.name() == QLatin1String("Body");
    }
    return false;
}

SoapMessage readSoapMessage(const QByteArray &document, SoapSender sender)
{
    return readSoapMessage(document, sender, {});
}

SoapMessage readSoapMessage(const QByteArray &document, SoapSender sender,
                            const std::function<SoapReading(const QString &requestId, const QString &element)> &reading)
{
    SoapMessage message;
    DocumentReader documentReader(document);
    QXmlStreamReader &reader = documentReader.reader;
    try {
        readHeader(reader, &message);
        readBodyElement(reader, sender, &message);
        const SoapReading depth = reading ? reading(message.requestId, message.element) : SoapReading::Full;
        message.guidsOnly = depth == SoapReading::GuidsOnly;
        message.elementOnly = depth == SoapReading::ElementOnly;
        if (message.elementOnly)
            return message;
        if (const QList<SoapElement> *elements = elementsOf(message.element, sender)) {
            message.known = true;
            readFields(reader, *elements, &message);
        }
    } catch (const SoapReadError &error) {
        message.readError = error.text + QLatin1Char(' ')
            + translated(QT_TRANSLATE_NOOP("QObject", "at line %1, column %2"))
                  .arg(reader.lineNumber())
                  .arg(reader.columnNumber());
    }
    return message;
}

} // namespace Kavro
