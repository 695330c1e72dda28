// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
// The XML element form of the file-group record.
#include "filegroupdata_p.h"
#include "servicenamespace_p.h"
#include "trace_p.h"

#include <QXmlStreamReader>
#include <QXmlStreamWriter>

#include <array>
#include <iterator>
#include <limits>
#include <optional>

namespace Kavro
{

namespace
{
QString prefixed(const char *localName)
{
    return QStringLiteral("m:") + QLatin1String(localName);
}

void writeNumber(QXmlStreamWriter &writer, const char *localName, qint64 value)
{
    writer.writeTextElement(prefixed(localName), QString::number(value));
}

void writeTimeIfValid(QXmlStreamWriter &writer, const char *localName, const QDateTime &time)
{
    if (time.isValid())
        writer.writeTextElement(prefixed(localName), time.toUTC().toString(recordTimeFormat()));
}

void writeTextIfSet(QXmlStreamWriter &writer, const char *localName, const QString &text)
{
    if (!text.isEmpty())
        writer.writeTextElement(prefixed(localName), text);
}

void writeFiles(QXmlStreamWriter &writer, const FileGroupData::FileList &files)
{
    writer.writeStartElement(prefixed("Files"));
    for (const auto &[name, id] : files) {
        writer.writeStartElement(prefixed("File"));
        writeNumber(writer, "FileId", id);
        writer.writeTextElement(prefixed("FileName"), name);
        writer.writeEndElement();
    }
    writer.writeEndElement();
}

// Reading: the handler of each element of the service namespace.
using ElementReader = void (*)(QXmlStreamReader &, FileGroupDataPrivate &, KavroError &);

void readNothing(QXmlStreamReader &, FileGroupDataPrivate &, KavroError &)
{
}

template<QString FileGroupDataPrivate::*field>
void readText(QXmlStreamReader &reader, FileGroupDataPrivate &data, KavroError &)
{
    data.*field = reader.readElementText();
}

void setNumber(int &target, const QString &text)
{
    target = text.toInt();
}

void setNumber(qint64 &target, const QString &text)
{
    target = text.toLongLong();
}

template<auto field>
void readNumber(QXmlStreamReader &reader, FileGroupDataPrivate &data, KavroError &)
{
    setNumber(data.*field, reader.readElementText());
}

// The digits of \a text from \a at on, \a count of them; -1 when one is not a digit.
int digitsAt(QStringView text, int at, int count)
{
    int value = 0;
    for (const QChar c : text.mid(at, count)) {
        if (c < QLatin1Char('0') || c > QLatin1Char('9'))
            return -1;
        value = value * 10 + (c.unicode() - '0');
    }
    return value;
}

// "yyyy-MM-dd hh:mm:ss" read by hand: records come by the ten thousand, and date and time
// are taken apart anyway, as a whole local date-time could fall into a daylight-saving gap.
QDateTime utcFromText(QStringView text)
{
    if (text.size() != 19 || text[4] != QLatin1Char('-') || text[7] != QLatin1Char('-') || text[10] != QLatin1Char(' ')
        || text[13] != QLatin1Char(':') || text[16] != QLatin1Char(':'))
        return QDateTime();
    const QDate date(digitsAt(text, 0, 4), digitsAt(text, 5, 2), digitsAt(text, 8, 2));
    const int hour = digitsAt(text, 11, 2);
    const int minute = digitsAt(text, 14, 2);
    const int second = digitsAt(text, 17, 2);
    if (!date.isValid() || !QTime::isValid(hour, minute, second))
        return QDateTime();
    return QDateTime(date, QTime(hour, minute, second), Qt::UTC);
}

template<QDateTime FileGroupDataPrivate::*field>
void readTime(QXmlStreamReader &reader, FileGroupDataPrivate &data, KavroError &)
{
    data.*field = utcFromText(reader.readElementText());
}

// The number of the element's text when it lies in 0..last; otherwise none, and the record
// is flagged with ErrorReadXmlFile and \a warning traced.
std::optional<quint32> readNumberUpTo(QXmlStreamReader &reader, quint32 last, KavroError &result, const char *warning)
{
    const QString text = reader.readElementText();
    bool ok = false;
    const quint32 value = text.toUInt(&ok);
    if (ok && value <= last)
        return value;
    result = ErrorReadXmlFile;
    KAVRO_TRACE_WARNING(QLatin1String(warning).arg(text));
    return std::nullopt;
}

template<typename Enum, Enum FileGroupDataPrivate::*field, int last>
void readEnumeration(QXmlStreamReader &reader, FileGroupDataPrivate &data, KavroError &result, const char *warning)
{
    if (const std::optional<quint32> value = readNumberUpTo(reader, last, result, warning))
        data.*field = static_cast<Enum>(*value);
}

void readFileType(QXmlStreamReader &reader, FileGroupDataPrivate &data, KavroError &result)
{
    readEnumeration<FileType, &FileGroupDataPrivate::fileType, FileTypeTechnicalParameters>(
        reader, data, result, "Unkown file type \"%1\" read");
}

void readLocationState(QXmlStreamReader &reader, FileGroupDataPrivate &data, KavroError &result)
{
    readEnumeration<LocationState, &FileGroupDataPrivate::locationState, LocationUnknownFileGroup>(
        reader, data, result, "Unkown location state \"%1\" read");
}

bool isEndOf(const QXmlStreamReader &reader, QLatin1String localName)
{
    return reader.isEndElement() && reader.name() == localName;
}

// Reads the "File" entries up to the end of "Files"; a file whose id is not read keeps id 0.
void readFiles(QXmlStreamReader &reader, FileGroupDataPrivate &data, KavroError &result)
{
    QString name;
    quint32 id = 0;
    while (!reader.atEnd() && !reader.hasError() && !isEndOf(reader, QLatin1String("Files"))) {
        reader.readNext();
        if (reader.isStartElement() && reader.name() == QLatin1String("File")) {
            name.clear();
            id = 0;
        } else if (reader.isStartElement() && reader.name() == QLatin1String("FileId")) {
            id = readNumberUpTo(reader, std::numeric_limits<quint32>::max(), result, "Invalid file id \"%1\" read")
                     .value_or(0);
        } else if (reader.isStartElement() && reader.name() == QLatin1String("FileName")) {
            name = reader.readElementText();
        } else if (isEndOf(reader, QLatin1String("File"))) {
            data.fileList.append(qMakePair(name, id));
        }
    }
}

void readError(QXmlStreamReader &reader, FileGroupDataPrivate &, KavroError &result)
{
    result = static_cast<KavroError>(reader.readElementText().toInt());
}

struct ElementEntry {
    const char *localName;
    ElementReader read;
};

const ElementEntry s_elements[] = {
    {"FileGroup", &readNothing},
    {"Guid", &readText<&FileGroupDataPrivate::guid>},
    {"FileGroupName", &readText<&FileGroupDataPrivate::name>},
    {"FileType", &readFileType},
    {"LocationState", &readLocationState},
    {"BackupTime", &readTime<&FileGroupDataPrivate::backupTime>},
    {"CreationTime", &readTime<&FileGroupDataPrivate::creationTime>},
    {"ModificationTime", &readTime<&FileGroupDataPrivate::modificationTime>},
    {"LifeCycle", &readTime<&FileGroupDataPrivate::lifeCycle>},
    {"Comment", &readText<&FileGroupDataPrivate::comment>},
    {"Creator", &readText<&FileGroupDataPrivate::creator>},
    {"Detail", &readText<&FileGroupDataPrivate::detail>},
    {"TeamMembership", &readText<&FileGroupDataPrivate::team>},
    {"Version", &readText<&FileGroupDataPrivate::version>},
    {"ReservedStorage", &readNumber<&FileGroupDataPrivate::reservedStorage>},
    {"ReferenceCounter", &readNumber<&FileGroupDataPrivate::referenceCount>},
    {"Files", &readFiles},
    {"Error", &readError},
};

ElementReader readerFor(QStringView localName)
{
    // Looked up for every element of every record: the lengths sort most candidates out cheaply.
    static const auto lengths = [] {
        std::array<qsizetype, std::size(s_elements)> all{};
        for (size_t i = 0; i < all.size(); ++i)
            all[i] = qsizetype(qstrlen(s_elements[i].localName));
        return all;
    }();
    for (size_t i = 0; i < lengths.size(); ++i) {
        if (lengths[i] == localName.size() && localName == QLatin1String(s_elements[i].localName))
            return s_elements[i].read;
    }
    return nullptr;
}
} // namespace

void FileGroupData::WriteStartElement(QXmlStreamWriter &writer) const
{
    writer.writeStartElement(prefixed("FileGroup"));
}

void FileGroupData::WriteEndElement(QXmlStreamWriter &writer) const
{
    writer.writeEndElement();
}

void FileGroupData::ToHtml(QXmlStreamWriter &writer, bool withGroupElement, bool withNamespace) const
{
    if (withGroupElement)
        WriteStartElement(writer);
    if (withNamespace)
        writer.writeNamespace(serviceNamespaceUri(), QStringLiteral("m"));
    writer.writeTextElement(prefixed("Guid"), d->guid);
    writer.writeTextElement(prefixed("FileGroupName"), d->name);
    writeNumber(writer, "FileType", d->fileType);
    if (d->locationState > 0)
        writeNumber(writer, "LocationState", d->locationState);
    writeTimeIfValid(writer, "BackupTime", d->backupTime);
    writeTimeIfValid(writer, "CreationTime", d->creationTime);
    writeTimeIfValid(writer, "ModificationTime", d->modificationTime);
    writeTimeIfValid(writer, "LifeCycle", d->lifeCycle);
    writeTextIfSet(writer, "Comment", d->comment);
    writeTextIfSet(writer, "Creator", d->creator);
    writeTextIfSet(writer, "Detail", d->detail);
    writeTextIfSet(writer, "TeamMembership", d->team);
    writeTextIfSet(writer, "Version", d->version);
    if (d->reservedStorage >= 0)
        writeNumber(writer, "ReservedStorage", d->reservedStorage);
    if (d->referenceCount >= 0)
        writeNumber(writer, "ReferenceCounter", d->referenceCount);
    writeFiles(writer, d->fileList);
    if (withGroupElement)
        WriteEndElement(writer);
}

KavroError FileGroupData::FromHtml(QXmlStreamReader &reader, ReadExtent extent)
{
    const QString serviceNamespace = serviceNamespaceUri();
    const auto atGroupStart = [&] {
        return reader.isStartElement() && reader.name() == QLatin1String("FileGroup")
            && reader.namespaceUri() == serviceNamespace;
    };
    if (extent == ReadToEndOfGroup) {
        while (!atGroupStart() && !reader.atEnd() && !reader.hasError())
            reader.readNext();
    }
    KavroError result = NoError;
    while (!reader.atEnd() && !reader.hasError()) {
        reader.readNext();
        const bool ours = reader.namespaceUri() == serviceNamespace;
        if (extent == ReadToEndOfGroup && ours && isEndOf(reader, QLatin1String("FileGroup")))
            break;
        if (!reader.isStartElement() || !ours)
            continue;
        if (const ElementReader read = readerFor(reader.name())) {
            read(reader, *d, result);
        } else {
            result = ErrorReadXmlFile;
            KAVRO_TRACE_WARNING(QStringLiteral("Encountered unexpected xml tag %1 while reading filegroup for import")
                                    .arg(reader.name()));
        }
    }
    if (reader.hasError()) {
        result = ErrorReadXmlFile;
        KAVRO_TRACE_WARNING(QStringLiteral("Could not read Xml file for import of filegroup. XmlStreamReader error: %1")
                                .arg(reader.errorString()));
    }
    return result;
}

} // namespace Kavro
