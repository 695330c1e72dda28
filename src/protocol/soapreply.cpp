// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "soapreply_p.h"

#include "kavroclientsoapmessage_p.h"
#include "servicenamespace_p.h"
#include "translations_p.h"

#include <QXmlStreamReader>

namespace Kavro
{

namespace
{
struct ReplyFormat {
    const char *name;
    QStringList children;
};

QStringList withErrors(QStringList children)
{
    return children << QStringLiteral("Error") << QStringLiteral("ErrorString");
}

// The children each reply may hold, in any order.
const QList<ReplyFormat> &replyFormats()
{
    static const QList<ReplyFormat> formats = {
        {"CreateFileGroupReply", withErrors({QStringLiteral("Guid"), QStringLiteral("Path")})},
        {"AddFileReply", withErrors({QStringLiteral("FileId")})},
        {"DeleteFileReply", withErrors({})},
        {"RequestFileReply", withErrors({QStringLiteral("Path")})},
        {"CloseFileReply", withErrors({})},
        {"MoveToNasReply", withErrors({})},
        {"AddReferenceReply", withErrors({})},
        {"RemoveReferenceReply", withErrors({})},
        {"RemoveAllReferencesReply", withErrors({})},
        {"QueryMetaDataReply", withErrors({QStringLiteral("FileGroup")})},
        {"GetApplicationListReply", withErrors({QStringLiteral("Applications")})},
        {"GetFileListReply", withErrors({QStringLiteral("Files")})},
        {"GetUserListReply", withErrors({QStringLiteral("Users")})},
        {"QueryFileGroupsReply", withErrors({QStringLiteral("FileGroup")})},
        {"GetBasePathReply", withErrors({QStringLiteral("Path")})},
        {"ExportArchiveReply", withErrors({})},
        {"ImportArchiveReply", withErrors({})},
        {"CreateRovecFileGroupReply", withErrors({QStringLiteral("Guid"), QStringLiteral("Path")})},
        {"RegisterConverterReply", withErrors({})},
        {"DeleteFileGroupReply", withErrors({})},
        {"QueryLocationStateProgressReply",
         withErrors({QStringLiteral("LocationState"), QStringLiteral("CopyProgress")})},
        {"CheckFileGroupExistsReply", withErrors({QStringLiteral("Exists")})},
        {"CopyForeignFileGroupProgress", withErrors({QStringLiteral("CopyProgress")})},
        {"ConvertFileGroup", {QStringLiteral("Guid"), QStringLiteral("FileType"), QStringLiteral("Path")}},
    };
    return formats;
}

const ReplyFormat *formatOf(QStringView command)
{
    for (const ReplyFormat &format : replyFormats()) {
        if (command == QLatin1String(format.name))
            return &format;
    }
    return nullptr;
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

// The element's text; a reader error inside it is a reading error.
QString elementText(QXmlStreamReader &reader, const QStringList &context)
{
    const QString text = reader.readElementText();
    if (reader.error() == QXmlStreamReader::PrematureEndOfDocumentError)
        throw endOfDocument(context);
    if (reader.hasError())
        throw SoapReadError{reader.errorString()};
    return text;
}

// Entries of a list such as "Users": one text element per entry.
void readEntries(QXmlStreamReader &reader, const QString &container, const QString &entry, QStringList *list)
{
    const QStringList expected = {entry, QLatin1Char('/') + container};
    while (readToken(reader, expected, serviceNamespaceUri()) == 0)
        list->append(elementText(reader, expected));
}

// "Files": one "File" per entry with its "FileId" and "FileName", kept as id, name.
void readFiles(QXmlStreamReader &reader, QStringList *list)
{
    const QStringList files = {QStringLiteral("File"), QStringLiteral("/Files")};
    const QStringList file = {QStringLiteral("FileId"), QStringLiteral("FileName"), QStringLiteral("/File")};
    while (readToken(reader, files, serviceNamespaceUri()) == 0) {
        QString id;
        QString name;
        for (int token; (token = readToken(reader, file, serviceNamespaceUri())) != 2;)
            (token == 0 ? id : name) = elementText(reader, file);
        *list << id << name;
    }
}

void readGroup(QXmlStreamReader &reader, const QStringList &context, QList<FileGroupData> *groups)
{
    FileGroupData group;
    group.FromHtml(reader, FileGroupData::ReadToEndOfGroup);
    if (reader.error() == QXmlStreamReader::PrematureEndOfDocumentError)
        throw endOfDocument(context);
    if (reader.hasError())
        throw SoapReadError{reader.errorString()};
    groups->append(group);
}

void readHeader(QXmlStreamReader &reader, SoapReply *reply)
{
    const QString envelope = KavroClientSOAPMessage::envelopeNamespace();
    readToken(reader, {QStringLiteral("Envelope")}, envelope);
    readToken(reader, {QStringLiteral("Header")}, envelope);
    const QStringList header = {QStringLiteral("Version"), QStringLiteral("RequestId"), QStringLiteral("/Header")};
    for (int token; (token = readToken(reader, header, envelope)) != 2;) {
        const QString text = elementText(reader, header);
        if (token == 1)
            reply->requestId = text;
    }
    readToken(reader, {QStringLiteral("Body")}, envelope);
}

QStringList replyNames()
{
    QStringList names;
    for (const ReplyFormat &format : replyFormats())
        names << QLatin1String(format.name);
    return names;
}

// The element inside the body names the command; any name is taken here, an unknown one included.
void readCommand(QXmlStreamReader &reader, SoapReply *reply)
{
    for (;;) {
        reader.readNext();
        if (reader.error() == QXmlStreamReader::PrematureEndOfDocumentError || reader.isEndDocument())
            throw endOfDocument(replyNames());
        if (reader.hasError())
            throw SoapReadError{reader.errorString()};
        if (reader.isStartElement())
            break;
        if (reader.isEndElement())
            throw unexpected(replyNames(), QLatin1Char('/') + reader.name().toString());
        if (reader.isCharacters() && !reader.isWhitespace())
            throw SoapReadError{translated(QT_TRANSLATE_NOOP("QObject", "Unexpected text %1"))
                                    .arg(reader.text().toString().simplified())};
    }
    if (reader.namespaceUri() != serviceNamespaceUri())
        throw SoapReadError{translated(QT_TRANSLATE_NOOP("QObject", "Expected namespace %1, but got %2"))
                                .arg(serviceNamespaceUri(), reader.namespaceUri())};
    reply->command = reader.name().toString();
}

void readFields(QXmlStreamReader &reader, const ReplyFormat &format, SoapReply *reply)
{
    const QStringList expected = QStringList(format.children) << QLatin1Char('/') + reply->command;
    const int end = expected.size() - 1;
    for (int token; (token = readToken(reader, expected, serviceNamespaceUri())) != end;) {
        const QString name = expected.at(token);
        if (name == QLatin1String("Users"))
            readEntries(reader, name, QStringLiteral("User"), &reply->list);
        else if (name == QLatin1String("Applications"))
            readEntries(reader, name, QStringLiteral("Application"), &reply->list);
        else if (name == QLatin1String("Files"))
            readFiles(reader, &reply->list);
        else if (name == QLatin1String("FileGroup"))
            readGroup(reader, expected, &reply->groups);
        else
            reply->values.insert(name, elementText(reader, expected));
    }
    // An error code that is not a number must not pass for success.
    const auto code = reply->values.constFind(QStringLiteral("Error"));
    bool numeric = true;
    if (code != reply->values.constEnd())
        reply->error = code->trimmed().toInt(&numeric);
    if (!numeric)
        throw SoapReadError{
            translated(QT_TRANSLATE_NOOP("QObject", "Expected a number, but got %1")).arg(code->simplified())};
    reply->errorString = reply->values.value(QStringLiteral("ErrorString"));
}
} // namespace

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
        const QString found = (reader.isEndElement() ? QStringLiteral("/") : QString()) + reader.name().toString();
        const int index = expected.indexOf(found);
        if (index < 0)
            throw unexpected(expected, found);
        if (reader.namespaceUri() != namespaceUri)
            throw SoapReadError{translated(QT_TRANSLATE_NOOP("QObject", "Expected namespace %1, but got %2"))
                                    .arg(namespaceUri, reader.namespaceUri())};
        return index;
    }
}

bool isUnsolicitedMessage(const QByteArray &document)
{
    // Only the envelope is read, up to the element inside the body.
    QXmlStreamReader reader(document);
    bool inBody = false;
    while (reader.readNextStartElement() || (!reader.atEnd() && !reader.hasError())) {
        if (!reader.isStartElement())
            continue;
        if (inBody)
            return reader.name() == QLatin1String("CopyForeignFileGroupProgress")
                || reader.name() == QLatin1String("ConvertFileGroup");
        inBody = reader.name() == QLatin1String("Body");
    }
    return false;
}

SoapReply readSoapReply(const QByteArray &document)
{
    SoapReply reply;
    QXmlStreamReader reader(document);
    try {
        readHeader(reader, &reply);
        readCommand(reader, &reply);
        if (const ReplyFormat *format = formatOf(reply.command)) {
            reply.known = true;
            readFields(reader, *format, &reply);
        }
    } catch (const SoapReadError &error) {
        reply.readError = error.text + QLatin1Char(' ')
            + translated(QT_TRANSLATE_NOOP("QObject", "at line %1, column %2"))
                  .arg(reader.lineNumber())
                  .arg(reader.columnNumber());
    }
    return reply;
}

} // namespace Kavro
