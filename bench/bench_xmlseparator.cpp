// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
// Pushes length-prefixed frames through a real loopback connection and the
// separator, and copies the same bytes with memcpy for comparison.
//
//   bench_xmlseparator [small-frame-count] [large-frame-count]
//   defaults: 1000000 frames of 500 bytes, 100 frames of 8 MB
#include "xmlseparator_p.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QHostAddress>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>
#include <QtEndian>

#include <cstring>
#include <vector>

using Kavro::XmlSeparator;

namespace
{
QByteArray makeFrame(qsizetype payloadSize)
{
    QByteArray frame(4 + payloadSize, 'x');
    qToLittleEndian(static_cast<quint32>(payloadSize), frame.data());
    frame.replace(4, 6, "<data>");
    return frame;
}

// Writes \a count copies of \a frame to a connection of its own thread, in batches.
class Writer : public QThread
{
public:
    Writer(quint16 port, QByteArray frame, int count)
        : m_port(port)
        , m_frame(std::move(frame))
        , m_count(count)
    {
    }

protected:
    void run() override
    {
        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, m_port);
        if (!socket.waitForConnected(10000))
            return;
        const int batch = std::max(1, int((4 << 20) / m_frame.size()));
        QByteArray block;
        for (int i = 0; i < batch; ++i)
            block.append(m_frame);
        for (int sent = 0; sent < m_count; sent += batch) {
            const int frames = std::min(batch, m_count - sent);
            socket.write(block.constData(), qint64(frames) * m_frame.size());
            while (socket.bytesToWrite() > 0)
                socket.waitForBytesWritten(-1);
        }
        socket.waitForDisconnected(-1);
    }

private:
    const quint16 m_port;
    const QByteArray m_frame;
    const int m_count;
};

// Seconds to receive \a count frames of \a payloadSize bytes through the separator.
double throughSeparator(qsizetype payloadSize, int count)
{
    QTcpServer server;
    server.listen(QHostAddress::LocalHost);
    Writer writer(server.serverPort(), makeFrame(payloadSize), count);
    QElapsedTimer clock;
    clock.start();
    writer.start();
    if (!server.waitForNewConnection(10000))
        qFatal("no connection");
    QTcpSocket *socket = server.nextPendingConnection();
    XmlSeparator separator(socket, XmlSeparator::LengthPrefixLittleEndian, nullptr);
    int received = 0;
    QObject::connect(&separator, &XmlSeparator::xmlReceived, [&](const QByteArray &message) {
        if (message.size() != payloadSize)
            qFatal("frame of %lld bytes", qlonglong(message.size()));
        if (++received == count)
            QCoreApplication::quit();
    });
    QCoreApplication::exec();
    const double seconds = clock.nsecsElapsed() / 1e9;
    socket->disconnectFromHost();
    writer.wait();
    return seconds;
}

// Seconds to copy the same stream of frames, frame by frame, with memcpy.
double throughMemcpy(qsizetype payloadSize, int count)
{
    const QByteArray frame = makeFrame(payloadSize);
    const qsizetype total = frame.size() * qsizetype(count);
    std::vector<char> source(total);
    for (qsizetype at = 0; at < total; at += frame.size())
        std::memcpy(source.data() + at, frame.constData(), frame.size());
    std::vector<char> destination(total, 0);
    QElapsedTimer clock;
    clock.start();
    for (qsizetype at = 0; at < total; at += frame.size())
        std::memcpy(destination.data() + at, source.data() + at, frame.size());
    const double seconds = clock.nsecsElapsed() / 1e9;
    if (destination[total - 1] != source[total - 1])
        qFatal("copy failed");
    return seconds;
}

void report(const char *label, qsizetype payloadSize, int count)
{
    const double separator = throughSeparator(payloadSize, count);
    const double memcpy = throughMemcpy(payloadSize, count);
    const double megabytes = double(payloadSize + 4) * count / 1e6;
    std::printf("%-22s %9d frames  %10.0f frames/s  %9.1f MB/s   memcpy %10.1f MB/s   ratio %.1fx\n", label, count,
                count / separator, megabytes / separator, megabytes / memcpy, separator / memcpy);
    std::printf("{\"figure\": \"framing\", \"mode\": \"%s\", \"frames_per_s\": %.0f, \"mb_per_s\": %.1f, "
                "\"baseline_memcpy_mb_per_s\": %.1f}\n",
                label, count / separator, megabytes / separator, megabytes / memcpy);
}
} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const int smallCount = argc > 1 ? std::atoi(argv[1]) : 1000000;
    const int largeCount = argc > 2 ? std::atoi(argv[2]) : 100;
    report("500-byte frames", 500, smallCount);
    report("8 MB frames", 8 << 20, largeCount);
    return 0;
}
