// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "fakeserver.h"

#include <QCoreApplication>
#include <QRegularExpression>
#include <QTcpSocket>
#include <QTest>
#include <QtEndian>

#include <utility>

namespace
{
// The first capture of \a pattern in \a document; empty when it does not match.
QString captured(const QByteArray &document, const char *pattern)
{
    return QRegularExpression(QLatin1String(pattern)).match(QString::fromUtf8(document)).captured(1);
}
} // namespace

FakeServer::FakeServer(QObject *parent)
    : QObject(parent)
{
    connect(&m_server, &QTcpServer::newConnection, this, &FakeServer::acceptClient);
}

void FakeServer::close()
{
    m_server.close();
    dropClient();
}

void FakeServer::dropClient()
{
    if (m_client) {
        m_client->disconnectFromHost();
        m_client->deleteLater();
        m_client = nullptr;
    }
    m_received.clear();
}

bool FakeServer::waitForClient(int timeout)
{
    return QTest::qWaitFor(
        [this] {
            return m_client && m_client->state() == QAbstractSocket::ConnectedState;
        },
        timeout);
}

QByteArray FakeServer::lastRequest(const QString &command) const
{
    for (auto frame = m_frames.crbegin(); frame != m_frames.crend(); ++frame) {
        if (commandOf(*frame) == command)
            return *frame;
    }
    return QByteArray();
}

bool FakeServer::waitForFrames(int count, int timeout)
{
    return QTest::qWaitFor(
        [this, count] {
            return m_frames.size() >= count;
        },
        timeout);
}

void FakeServer::answerRequests(const QString &basePath)
{
    setReplyFields(QStringLiteral("GetBasePath"), "<m:Path>" + basePath.toUtf8() + "</m:Path><m:Error>0</m:Error>");
    setResponder([this](const QByteArray &request) {
        const QString command = FakeServer::commandOf(request);
        if (m_replyFields.value(command) == "silent")
            return QList<QByteArray>();
        const QByteArray name = m_replyNames.value(command, (command + QStringLiteral("Reply")).toLatin1());
        const QByteArray fields = m_replyFields.value(command, "<m:Error>0</m:Error><m:ErrorString/>");
        return QList<QByteArray>{soapReply(requestIdOf(request), name.constData(), fields)};
    });
}

QByteArray FakeServer::soapReply(const QString &requestId, const char *command, const QByteArray &fields)
{
    return "<?xml version=\"1.0\"?><s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\">"
           "<s:Header><s:Version>1.0</s:Version><s:RequestId>"
        + requestId.toUtf8() + "</s:RequestId></s:Header><s:Body><m:" + command + " xmlns:m=\"http://kavro/8SP/KAVRO\">"
        + fields + "</m:" + command + "></s:Body></s:Envelope>";
}

QString FakeServer::requestIdOf(const QByteArray &request)
{
    return captured(request, "<s:RequestId>([^<]*)<");
}

QString FakeServer::commandOf(const QByteArray &request)
{
    return captured(request, "<s:Body><m:(\\w+)");
}

QByteArray FakeServer::frame(const QByteArray &payload, Framing framing, bool compressed)
{
    const QByteArray body = compressed ? qCompress(payload) : payload;
    QByteArray prefix(4, '\0');
    const auto length = static_cast<quint32>(body.size());
    if (framing == BigEndian)
        qToBigEndian(length, prefix.data());
    else
        qToLittleEndian(length, prefix.data());
    return prefix + body;
}

void FakeServer::sendRaw(const QByteArray &bytes, int pieceSize)
{
    QVERIFY(m_client);
    if (pieceSize <= 0) {
        m_client->write(bytes);
        m_client->flush();
        return;
    }
    // Each piece is flushed and the event loop turns in between, so the
    // receiver usually sees it in a read of its own.
    for (qsizetype at = 0; at < bytes.size(); at += pieceSize) {
        m_client->write(bytes.mid(at, pieceSize));
        m_client->flush();
        QCoreApplication::processEvents();
    }
}

void FakeServer::sendRepeatedly(const QByteArray &payload, int count, const QByteArray &last)
{
    QVERIFY(m_client);
    m_repeatedFrame = frame(payload);
    m_lastFrame = last.isEmpty() ? QByteArray() : frame(last);
    m_repeatsLeft = count;
    const auto sendNext = [this] {
        if (!m_client || m_client->bytesToWrite() > 0)
            return;
        if (m_repeatsLeft > 0) {
            --m_repeatsLeft;
            m_client->write(m_repeatedFrame);
        } else if (!m_lastFrame.isEmpty()) {
            m_client->write(std::exchange(m_lastFrame, QByteArray()));
        }
    };
    connect(m_client, &QTcpSocket::bytesWritten, this, sendNext);
    sendNext();
}

void FakeServer::acceptClient()
{
    while (QTcpSocket *socket = m_server.nextPendingConnection()) {
        if (m_client)
            m_client->deleteLater();
        m_client = socket;
        m_raw.clear();
        m_received.clear();
        connect(socket, &QTcpSocket::readyRead, this, &FakeServer::readClient);
    }
}

void FakeServer::readClient()
{
    const QByteArray bytes = m_client->readAll();
    m_raw.append(bytes);
    m_received.append(bytes);
    while (m_received.size() >= 4) {
        const quint32 length = qFromLittleEndian<quint32>(m_received.constData());
        if (m_received.size() < qsizetype(4 + length))
            return;
        const QByteArray payload = m_received.mid(4, length);
        m_received.remove(0, 4 + length);
        m_frames.append(payload);
        Q_EMIT frameReceived(payload);
        if (m_responder) {
            for (const QByteArray &reply : m_responder(payload))
                send(reply);
        }
    }
}
