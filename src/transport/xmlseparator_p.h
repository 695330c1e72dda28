// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_XMLSEPARATOR_P_H
#define KAVRO_XMLSEPARATOR_P_H

#include <QByteArray>
#include <QObject>
#include <QXmlStreamReader>

#include <optional>

QT_BEGIN_NAMESPACE
class QTcpSocket;
QT_END_NAMESPACE

namespace Kavro
{

/*!
 * \brief Cuts the byte stream of a socket into messages, and frames outgoing ones.
 *
 * Framings: plain XML documents one after the other, or each message behind
 * a 4-byte length (big- or little-endian). AutoDetect decides from the first
 * four bytes. Length-prefixed payloads in Qt's compressed format are unpacked;
 * the first payload that is not switches unpacking off for good.
 *
 * One message is cut per call and the rest is left for the next turn of the
 * event loop; messages are delivered through xmlReceived() after the cutting
 * call has returned, and no further message is cut until the last one has
 * been delivered. In the length-prefixed framings the separator takes from
 * the socket only what the frame being assembled still needs (at least a
 * chunk), so what it buffers stays under one frame and one chunk. A message
 * larger than maxMessageSize() is refused with messageTooLarge() and reading
 * stops until reset().
 */
class XmlSeparator : public QObject
{
    Q_OBJECT

public:
    enum Mode : qint32 {
        AutoDetect = 0,
        PlainXml = 1,
        LengthPrefixBigEndian = 2,
        LengthPrefixLittleEndian = 3,
    };
    Q_ENUM(Mode)

    static constexpr qint64 defaultMaxMessageSize = 256 * 1024 * 1024;

    XmlSeparator(QTcpSocket *socket, QObject *parent);
    XmlSeparator(QTcpSocket *socket, Mode mode, QObject *parent);
    ~XmlSeparator() override;
    Q_DISABLE_COPY_MOVE(XmlSeparator)

    Mode mode() const;
    bool isCompressingOutgoing() const;
    bool isUncompressingIncoming() const;
    qint64 maxMessageSize() const;
    void setMaxMessageSize(qint64 bytes);

Q_SIGNALS:
    //! One complete message.
    void xmlReceived(const QByteArray &Xml);
    //! The stream is not well-formed XML (plain-XML framing); reading stops.
    void errorOccured(const QString &sErrorString);
    //! Internal: re-emitted as xmlReceived() on the next turn of the event loop.
    void queued_xmlReceived(const QByteArray &Xml);
    //! A message of \a size bytes (or more) exceeds maxMessageSize(); reading stops.
    void messageTooLarge(qint64 size);

public Q_SLOTS:
    //! Writes one message in the current framing; true when the socket took every byte.
    bool sendXml(const QByteArray &Xml);
    void setEnabled(bool bEnabled);
    void setDisabled(bool bDisabled);
    //! Stops reading; the bytes stay in the socket.
    void pause();
    //! Reads again, beginning with what arrived meanwhile.
    void resume();
    //! Forgets any partial message and reads again; mode and compression flags are kept.
    void reset();

private Q_SLOTS:
    void readNewData();
    void readScheduledData();
    void deliver(const QByteArray &message);

private:
    void connectSocket();
    void disconnectSocket();
    bool detectMode();
    void cutLengthPrefixedFrame();
    void cutPlainXml();
    QByteArray nextChunk(bool skipWhiteSpace);
    std::optional<QByteArray> unpacked(const QByteArray &payload);
    void refuse(qint64 size);
    //! How many bytes to take from the socket now.
    qint64 bytesWanted() const;
    QByteArray takePayload(qint64 length);
    qint64 available() const;
    void consume(qint64 count);
    void scheduleRead();

    Mode m_mode;
    QXmlStreamReader m_reader;
    QTcpSocket *const m_socket;
    QByteArray m_document;
    // Received bytes not yet consumed start at m_offset; the consumed front is dropped now and then.
    QByteArray m_buffer;
    qint64 m_offset = 0;
    int m_compressionLevel = -1;
    bool m_compressOutgoing = false;
    bool m_uncompressIncoming = true;
    bool m_readScheduled = false;
    bool m_deliveryPending = false;
    bool m_stopped = false;
    QMetaObject::Connection m_readyReadConnection;
    qint64 m_maxMessageSize = defaultMaxMessageSize;
};

} // namespace Kavro

#endif
