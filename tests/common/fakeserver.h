// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_TESTS_FAKESERVER_H
#define KAVRO_TESTS_FAKESERVER_H

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QTcpServer>

#include <functional>

class QTcpSocket;

/*!
 * A scriptable stand-in for the archive server on 127.0.0.1.
 *
 * It listens on a free port, records every frame that arrives (4-byte
 * little-endian length, then the payload) and sends whatever the test says:
 * frames in either byte order, compressed or not, raw bytes in pieces,
 * garbage, or nothing at all. A responder can answer each request frame.
 */
class FakeServer : public QObject
{
    Q_OBJECT

public:
    enum Framing { LittleEndian, BigEndian };
    //! Answers one request payload with the payloads to send back (little-endian frames).
    using Responder = std::function<QList<QByteArray>(const QByteArray &request)>;

    explicit FakeServer(QObject *parent = nullptr);

    //! Listens on \a port, or on a free one when 0; true on success.
    bool listen(quint16 port = 0) { return m_server.listen(QHostAddress::LocalHost, port); }
    quint16 port() const { return m_server.serverPort(); }
    //! Stops listening and drops every client.
    void close();
    //! Closes the current client's connection from the server side.
    void dropClient();
    //! Waits for a client to be connected; true when one is.
    bool waitForClient(int timeout = 10000);

    //! Every byte received from the current client, frames or not.
    QByteArray rawReceived() const { return m_raw; }
    QList<QByteArray> frames() const { return m_frames; }
    //! The last request frame of \a command; empty when there is none.
    QByteArray lastRequest(const QString &command) const;
    bool waitForFrames(int count, int timeout = 10000);
    void setResponder(Responder responder) { m_responder = std::move(responder); }
    /*!
     * Answers like an archive server: every request with its command's reply,
     * holding the fields set with setReplyFields() (by default no error), and
     * "GetBasePath" with \a basePath. A command set silent is not answered.
     */
    void answerRequests(const QString &basePath);
    void setReplyFields(const QString &command, const QByteArray &fields) { m_replyFields.insert(command, fields); }
    //! Answers \a command with a reply named \a replyName instead of its own.
    void setReplyName(const QString &command, const QByteArray &replyName) { m_replyNames.insert(command, replyName); }
    void setSilent(const QString &command) { m_replyFields.insert(command, "silent"); }

    //! A reply document: the envelope with \a requestId, and \a fields (XML, prefix "m") inside \a command.
    static QByteArray soapReply(const QString &requestId, const char *command, const QByteArray &fields);
    //! A file group named "n" of type 11 without files, as replies hold it.
    static QByteArray groupXml(const char *guid)
    {
        return QByteArray("<m:FileGroup><m:Guid>") + guid
            + "</m:Guid><m:FileGroupName>n</m:FileGroupName><m:FileType>11</m:FileType><m:Files/></m:FileGroup>";
    }
    //! The request id in the header of a request document, as the client writes it (prefixes "s" and "m").
    static QString requestIdOf(const QByteArray &request);
    //! The local name of the command element of a request document.
    static QString commandOf(const QByteArray &request);

    //! One message in \a framing; compressed in Qt's format when asked.
    static QByteArray frame(const QByteArray &payload, Framing framing = LittleEndian, bool compressed = false);
    //! Sends \a payload as one little-endian frame to the current client.
    void send(const QByteArray &payload) { sendRaw(frame(payload)); }
    //! Sends \a bytes as they are, in writes of \a pieceSize bytes (all at once when 0).
    void sendRaw(const QByteArray &bytes, int pieceSize = 0);
    /*!
     * Sends \a payload as \a count frames as fast as the client takes them,
     * holding back each until the previous one has left the write buffer, so
     * the server's own memory stays at one frame; then \a last, when given.
     */
    void sendRepeatedly(const QByteArray &payload, int count, const QByteArray &last = QByteArray());

Q_SIGNALS:
    void frameReceived(const QByteArray &payload);

private:
    void acceptClient();
    void readClient();

    QTcpServer m_server;
    QPointer<QTcpSocket> m_client;
    QByteArray m_raw;
    QByteArray m_received;
    QList<QByteArray> m_frames;
    Responder m_responder;
    QHash<QString, QByteArray> m_replyFields;
    QHash<QString, QByteArray> m_replyNames;
    QByteArray m_repeatedFrame;
    QByteArray m_lastFrame;
    int m_repeatsLeft = 0;
};

#endif
