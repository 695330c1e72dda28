// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_BENCH_RAWCLIENT_H
#define KAVRO_BENCH_RAWCLIENT_H

#include <QByteArray>
#include <QtEndian>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

//! \a document with the 4-byte little-endian length prefix the server reads.
inline QByteArray framed(const QByteArray &document)
{
    char prefix[4];
    qToLittleEndian(quint32(document.size()), prefix);
    return QByteArray(prefix, 4) + document;
}

/*!
 * A blocking client of its own on loopback, without Qt's event loop: one
 * frame out, one frame in. The benchmarks' baseline, and their load
 * generator where the client's own cost must stay out of the figures.
 */
class RawClient
{
public:
    explicit RawClient(quint16 port)
        : m_fd(::socket(AF_INET, SOCK_STREAM, 0))
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const int on = 1;
        ::setsockopt(m_fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        // A server that stops answering fails the call instead of holding the benchmark for ever.
        const timeval timeout = {60, 0};
        ::setsockopt(m_fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
        m_connected = ::connect(m_fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
    }
    ~RawClient() { ::close(m_fd); }
    RawClient(const RawClient &) = delete;
    RawClient &operator=(const RawClient &) = delete;

    bool isConnected() const { return m_connected; }

    //! Sends \a frame (length prefix included) and reads the reply document; false when the connection failed.
    bool call(const QByteArray &frame)
    {
        if (::send(m_fd, frame.constData(), size_t(frame.size()), 0) != frame.size())
            return false;
        char prefix[4];
        if (!receive(prefix, 4))
            return false;
        m_reply.resize(qFromLittleEndian<quint32>(prefix));
        return receive(m_reply.data(), m_reply.size());
    }

    //! The last reply document, without its length prefix.
    const QByteArray &reply() const { return m_reply; }

private:
    bool receive(char *data, qsizetype size)
    {
        for (qsizetype done = 0; done < size;) {
            const ssize_t got = ::recv(m_fd, data + done, size_t(size - done), 0);
            if (got <= 0)
                return false;
            done += got;
        }
        return true;
    }

    const int m_fd;
    bool m_connected = false;
    QByteArray m_reply;
};

#endif
