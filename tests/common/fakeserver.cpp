// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "fakeserver.h"

#include <QCoreApplication>
#include <QTcpSocket>
#include <QTest>
#include <QtEndian>

FakeServer::FakeServer(QObject *parent)
    : QObject(parent)
{
    connect(&m_server, &QTcpServer::newConnection, this, &FakeServer::acceptClient);
}

FakeServer::~FakeServer() = default;

bool FakeServer::listen(quint16 port)
{
    return m_server.listen(QHostAddress::LocalHost, port);
}

quint16 FakeServer::port() const
{
    return m_server.serverPort();
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

bool FakeServer::hasClient() const
{
    return m_client && m_client->state() == QAbstractSocket::ConnectedState;
}

bool FakeServer::waitForClient(int timeout)
{
    return QTest::qWaitFor(
        [this] {
            return hasClient();
        },
        timeout);
}

QByteArray FakeServer::rawReceived() const
{
    return m_raw;
}

QList<QByteArray> FakeServer::frames() const
{
    return m_frames;
}

bool FakeServer::waitForFrames(int count, int timeout)
{
    return QTest::qWaitFor(
        [this, count] {
            return m_frames.size() >= count;
        },
        timeout);
}

void FakeServer::setResponder(Responder responder)
{
    m_responder = std::move(responder);
}

QByteArray FakeServer::frame(const QByteArray &payload, Framing framing, bool compressed)
{
    const QByteArray body = compressed ? qCompress(payload) : payload;
    if (framing == Plain)
        return body;
    QByteArray prefix(4, '\0');
    const auto length = static_cast<quint32>(body.size());
    if (framing == BigEndian)
        qToBigEndian(length, prefix.data());
    else
        qToLittleEndian(length, prefix.data());
    return prefix + body;
}

void FakeServer::send(const QByteArray &payload, Framing framing, bool compressed)
{
    sendRaw(frame(payload, framing, compressed));
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

void FakeServer::acceptClient()
{
    while (QTcpSocket *socket = m_server.nextPendingConnection()) {
        if (m_client)
            m_client->deleteLater();
        m_client = socket;
        m_raw.clear();
        m_received.clear();
        connect(socket, &QTcpSocket::readyRead, this, &FakeServer::readClient);
        Q_EMIT clientConnected();
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
