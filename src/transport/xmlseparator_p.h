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
 * four bytes by the rule detection() names. Length-prefixed payloads in Qt's
 * compressed format are unpacked;
 * the first payload that is not switches unpacking off for good.
 *
 * Messages are delivered through xmlReceived() as they are cut, each one
 * before the next is cut, so a receiver that pauses or resets the separator
 * stops the rest. Small messages that arrived together are delivered in one
 * turn of the event loop; after a batch (frameBatch messages or
 * byteBatch bytes) the rest waits for the next turn, so a flood of messages
 * or a very large one does not hold up the thread's other events. In the
 * length-prefixed framings the separator takes from
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

    //! How AutoDetect reads the first four bytes.
    enum class Detection {
        //! A zero first byte means big-endian, a zero fourth byte little-endian, anything else plain XML.
        ZeroBytes,
        /*!
         * Plain XML when the first byte can start a document ('<', white space
         * or a UTF-8 byte-order mark) and none of the four is zero; otherwise a
         * little-endian length, or a big-endian one when only that is within
         * maxMessageSize(). Reads every little-endian length right, also
         * multiples of 256 and lengths of 16 MiB or more.
         */
        FirstCharacter,
    };
    Q_ENUM(Detection)

    static constexpr qint64 defaultMaxMessageSize = 256 * 1024 * 1024;
    //! The most messages, and about the most bytes, delivered in one turn of the event loop.
    static constexpr int frameBatch = 64;
    static constexpr qint64 byteBatch = 1024 * 1024;

    XmlSeparator(QTcpSocket *socket, QObject *parent);
    XmlSeparator(QTcpSocket *socket, Mode mode, QObject *parent);
    ~XmlSeparator() override;
    Q_DISABLE_COPY_MOVE(XmlSeparator)

    Mode mode() const;
    Detection detection() const;
    //! Takes effect on the next detection; ZeroBytes by default.
    void setDetection(Detection detection);
    bool isCompressingOutgoing() const;
    bool isUncompressingIncoming() const;
    qint64 maxMessageSize() const;
    void setMaxMessageSize(qint64 bytes);
    //! The bytes held of messages not yet whole, and of those not yet delivered.
    qint64 heldBytes() const;
    //! What the buffer will hold once the length-prefixed frame being assembled is whole; 0 while unknown.
    qint64 announcedBytes() const;

Q_SIGNALS:
    //! One complete message.
    void xmlReceived(const QByteArray &Xml);
    //! The stream is not well-formed XML (plain-XML framing); reading stops.
    void errorOccured(const QString &sErrorString);
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

private:
    void connectSocket();
    void disconnectSocket();
    bool detectMode();
    //! The next message, when a whole one has arrived.
    std::optional<QByteArray> cutMessage();
    std::optional<QByteArray> cutLengthPrefixedFrame();
    std::optional<QByteArray> cutPlainXml();
    void readFromSocket();
    QByteArray nextChunk(bool skipWhiteSpace);
    std::optional<QByteArray> unpacked(const QByteArray &payload);
    void refuse(qint64 size);
    //! The length the prefix of the frame being assembled gives; -1 when not known yet.
    qint64 payloadLength() const;
    //! The whole length of the frame being assembled, prefix included (bounded); 0 when not known yet.
    qint64 frameSize() const;
    //! How many bytes to take from the socket now.
    qint64 bytesWanted() const;
    QByteArray takePayload(qint64 length);
    qint64 available() const;
    void consume(qint64 count);
    void scheduleRead();

    Mode m_mode;
    Detection m_detection = Detection::ZeroBytes;
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
    bool m_stopped = false;
    QMetaObject::Connection m_readyReadConnection;
    qint64 m_maxMessageSize = defaultMaxMessageSize;
};

} // namespace Kavro

#endif
