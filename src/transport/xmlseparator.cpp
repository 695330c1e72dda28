// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "xmlseparator_p.h"

#include "boundedinflate_p.h"

#include <QPointer>
#include <QTcpSocket>
#include <QtEndian>

#include <algorithm>

namespace Kavro
{

namespace
{
constexpr qint64 s_prefixLength = 4;
// The consumed front of the buffer is dropped once it is this large and at least half the buffer.
constexpr qint64 s_compactThreshold = 64 * 1024;
// The least the length-prefixed framings take from the socket at a time.
constexpr qint64 s_readChunk = 256 * 1024;

bool isWhiteSpace(char byte)
{
    return byte == ' ' || byte == '\n' || byte == '\r' || byte == '\t';
}

XmlSeparator::Mode modeByZeroBytes(const char *prefix)
{
    if (prefix[0] == 0)
        return XmlSeparator::LengthPrefixBigEndian;
    if (prefix[3] == 0)
        return XmlSeparator::LengthPrefixLittleEndian;
    return XmlSeparator::PlainXml;
}

XmlSeparator::Mode modeByFirstCharacter(const char *prefix, qint64 maxMessageSize)
{
    const char first = prefix[0];
    const bool startsDocument = first == '<' || isWhiteSpace(first) || first == '\xef'; // '\xef': byte-order mark
    if (startsDocument && std::find(prefix, prefix + s_prefixLength, '\0') == prefix + s_prefixLength)
        return XmlSeparator::PlainXml;
    if (qFromLittleEndian<quint32>(prefix) > maxMessageSize && qFromBigEndian<quint32>(prefix) <= maxMessageSize)
        return XmlSeparator::LengthPrefixBigEndian;
    return XmlSeparator::LengthPrefixLittleEndian;
}
} // namespace

XmlSeparator::XmlSeparator(QTcpSocket *socket, QObject *parent)
    : XmlSeparator(socket, PlainXml, parent)
{
}

XmlSeparator::XmlSeparator(QTcpSocket *socket, Mode mode, QObject *parent)
    : QObject(parent)
    , m_mode(mode)
    , m_socket(socket)
{
    connectSocket();
}

XmlSeparator::~XmlSeparator() = default;

XmlSeparator::Mode XmlSeparator::mode() const
{
    return m_mode;
}

XmlSeparator::Detection XmlSeparator::detection() const
{
    return m_detection;
}

void XmlSeparator::setDetection(Detection detection)
{
    m_detection = detection;
}

bool XmlSeparator::isCompressingOutgoing() const
{
    return m_compressOutgoing;
}

bool XmlSeparator::isUncompressingIncoming() const
{
    return m_uncompressIncoming;
}

qint64 XmlSeparator::maxMessageSize() const
{
    return m_maxMessageSize;
}

void XmlSeparator::setMaxMessageSize(qint64 bytes)
{
    m_maxMessageSize = bytes;
}

qint64 XmlSeparator::heldBytes() const
{
    return m_buffer.size() + m_document.size();
}

qint64 XmlSeparator::announcedBytes() const
{
    const qint64 frame = frameSize();
    return frame > 0 ? m_offset + frame : 0;
}

void XmlSeparator::connectSocket()
{
    disconnectSocket();
    m_readyReadConnection = connect(m_socket, &QIODevice::readyRead, this, &XmlSeparator::readNewData);
}

void XmlSeparator::disconnectSocket()
{
    disconnect(m_readyReadConnection);
}

bool XmlSeparator::sendXml(const QByteArray &Xml)
{
    QByteArray bytes;
    switch (m_mode) {
    case PlainXml:
        bytes = Xml;
        break;
    case LengthPrefixBigEndian:
    case LengthPrefixLittleEndian: {
        const QByteArray payload = m_compressOutgoing ? qCompress(Xml, m_compressionLevel) : Xml;
        bytes.resize(s_prefixLength);
        const auto length = static_cast<quint32>(payload.size());
        if (m_mode == LengthPrefixBigEndian)
            qToBigEndian(length, bytes.data());
        else
            qToLittleEndian(length, bytes.data());
        bytes.append(payload);
        break;
    }
    default:
        return false;
    }
    return m_socket->write(bytes) == bytes.size();
}

void XmlSeparator::setEnabled(bool bEnabled)
{
    bEnabled ? resume() : pause();
}

void XmlSeparator::setDisabled(bool bDisabled)
{
    bDisabled ? pause() : resume();
}

void XmlSeparator::pause()
{
    m_stopped = true;
    disconnectSocket();
}

void XmlSeparator::resume()
{
    m_stopped = false;
    connectSocket();
    scheduleRead(); // what arrived meanwhile
}

void XmlSeparator::reset()
{
    m_reader.clear();
    m_document.clear();
    m_buffer.clear();
    m_offset = 0;
    m_stopped = false;
    connectSocket();
}

qint64 XmlSeparator::available() const
{
    return m_buffer.size() - m_offset;
}

void XmlSeparator::consume(qint64 count)
{
    m_offset += count;
    if (m_offset == m_buffer.size()) {
        m_buffer.clear();
        m_offset = 0;
    }
}

void XmlSeparator::scheduleRead()
{
    if (m_readScheduled)
        return;
    m_readScheduled = true;
    QMetaObject::invokeMethod(this, &XmlSeparator::readScheduledData, Qt::QueuedConnection);
}

void XmlSeparator::readScheduledData()
{
    m_readScheduled = false;
    if (!m_stopped)
        readNewData();
}

qint64 XmlSeparator::payloadLength() const
{
    if ((m_mode != LengthPrefixBigEndian && m_mode != LengthPrefixLittleEndian) || available() < s_prefixLength)
        return -1;
    const char *frame = m_buffer.constData() + m_offset;
    return m_mode == LengthPrefixBigEndian ? qFromBigEndian<quint32>(frame) : qFromLittleEndian<quint32>(frame);
}

qint64 XmlSeparator::frameSize() const
{
    const qint64 length = payloadLength();
    return length < 0 ? 0 : s_prefixLength + qMin(length, m_maxMessageSize + 1);
}

qint64 XmlSeparator::bytesWanted() const
{
    qint64 missing = s_readChunk - available();
    if (const qint64 frame = frameSize()) {
        missing = frame - available();
        if (missing > 0)
            missing = qMax(missing, s_readChunk);
    }
    return qBound(qint64(0), missing, m_socket->bytesAvailable());
}

void XmlSeparator::readFromSocket()
{
    if (m_offset >= s_compactThreshold && m_offset * 2 >= m_buffer.size()) {
        m_buffer.remove(0, m_offset);
        m_offset = 0;
    }
    const qint64 wanted = bytesWanted();
    if (wanted <= 0)
        return;
    // A large frame gets its whole size at once instead of growing chunk by chunk.
    if (const qint64 frameEnd = m_offset + frameSize(); frameEnd > m_buffer.capacity())
        m_buffer.reserve(frameEnd);
    const qsizetype had = m_buffer.size();
    m_buffer.resize(had + wanted);
    const qint64 got = m_socket->read(m_buffer.data() + had, wanted);
    m_buffer.resize(had + qMax(got, qint64(0)));
}

void XmlSeparator::readNewData()
{
    const QPointer<XmlSeparator> alive(this); // a receiver may delete the separator
    int frames = 0;
    qint64 bytes = 0;
    while (!m_stopped) {
        readFromSocket();
        const std::optional<QByteArray> message = cutMessage();
        if (!message)
            break;
        Q_EMIT xmlReceived(*message);
        if (!alive)
            return;
        bytes += message->size();
        if (++frames == frameBatch || bytes >= byteBatch) {
            // The rest waits for the next turn, behind the thread's other events.
            if (!m_stopped && (available() > 0 || m_socket->bytesAvailable() > 0))
                scheduleRead();
            return;
        }
    }
    // The socket holds more than was taken for an incomplete message: go on next turn.
    if (!m_stopped && m_socket->bytesAvailable() > 0)
        scheduleRead();
}

std::optional<QByteArray> XmlSeparator::cutMessage()
{
    if (m_mode == AutoDetect && !detectMode())
        return std::nullopt;
    return m_mode == PlainXml ? cutPlainXml() : cutLengthPrefixedFrame();
}

bool XmlSeparator::detectMode()
{
    if (available() < s_prefixLength)
        return false;
    const char *prefix = m_buffer.constData() + m_offset;
    m_mode =
        m_detection == Detection::ZeroBytes ? modeByZeroBytes(prefix) : modeByFirstCharacter(prefix, m_maxMessageSize);
    return true;
}

std::optional<QByteArray> XmlSeparator::cutLengthPrefixedFrame()
{
    const qint64 length = payloadLength();
    if (length < 0)
        return std::nullopt;
    if (length > m_maxMessageSize) {
        refuse(length);
        return std::nullopt;
    }
    if (available() < s_prefixLength + length)
        return std::nullopt;
    return unpacked(takePayload(length));
}

QByteArray XmlSeparator::takePayload(qint64 length)
{
    // A frame that fills the buffer is handed on without copying it.
    if (m_offset == 0 && m_buffer.size() == s_prefixLength + length) {
        QByteArray payload = std::move(m_buffer);
        m_buffer = QByteArray();
        payload.remove(0, s_prefixLength);
        return payload;
    }
    QByteArray payload(m_buffer.constData() + m_offset + s_prefixLength, static_cast<qsizetype>(length));
    consume(s_prefixLength + length);
    return payload;
}

std::optional<QByteArray> XmlSeparator::unpacked(const QByteArray &payload)
{
    if (!m_uncompressIncoming)
        return payload;
    QByteArray message;
    switch (inflateBounded(payload, m_maxMessageSize, &message)) {
    case InflateResult::Inflated:
        return message;
    case InflateResult::NotCompressed:
        // A peer that sends plain payloads costs one failed attempt only.
        m_compressOutgoing = false;
        m_uncompressIncoming = false;
        return payload;
    case InflateResult::TooLarge:
        break;
    }
    refuse(m_maxMessageSize + 1);
    return std::nullopt;
}

void XmlSeparator::refuse(qint64 size)
{
    pause();
    Q_EMIT messageTooLarge(size);
}

QByteArray XmlSeparator::nextChunk(bool skipWhiteSpace)
{
    if (skipWhiteSpace) {
        qint64 skipped = 0;
        while (skipped < available() && isWhiteSpace(m_buffer.at(m_offset + skipped)))
            ++skipped;
        consume(skipped);
    }
    if (available() == 0)
        return QByteArray();
    const qint64 tagEnd = m_buffer.indexOf('>', m_offset);
    const qint64 length = tagEnd < 0 ? available() : tagEnd + 1 - m_offset;
    QByteArray chunk = m_buffer.mid(m_offset, length);
    consume(length);
    return chunk;
}

std::optional<QByteArray> XmlSeparator::cutPlainXml()
{
    // The reader is fed one tag at a time, so it stops exactly at the end of
    // a document and the next document's bytes stay in the buffer.
    QByteArray chunk = nextChunk(m_reader.characterOffset() == 0);
    while (!chunk.isEmpty()) {
        m_reader.addData(chunk);
        m_document.append(chunk);
        if (m_document.size() > m_maxMessageSize) {
            refuse(m_document.size());
            return std::nullopt;
        }
        // After running out of input the reader resumes at the next readNext().
        QXmlStreamReader::TokenType token;
        do {
            token = m_reader.readNext();
        } while (!m_reader.hasError() && token != QXmlStreamReader::EndDocument);

        if (token == QXmlStreamReader::EndDocument) {
            m_reader.clear();
            return std::exchange(m_document, QByteArray());
        } else if (m_reader.error() == QXmlStreamReader::PrematureEndOfDocumentError) {
            chunk = nextChunk(false);
        } else {
            pause();
            Q_EMIT errorOccured(m_reader.errorString());
            return std::nullopt;
        }
    }
    return std::nullopt;
}

} // namespace Kavro
