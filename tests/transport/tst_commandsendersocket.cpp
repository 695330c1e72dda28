// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "commandsendersocket_p.h"
#include "errorhandler_p.h"
#include "fakeserver.h"
#include "soapmessage_p.h"
#include "temporarysettings.h"
#include "tracecapture.h"

#include <QDir>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QTimer>

#include <memory>

using Kavro::CommandSenderSocket;

class tst_CommandSenderSocket : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup() { m_server.reset(); }
    void oneRequestOutstanding();
    void queueWaitsForTheServer_data();
    void queueWaitsForTheServer();
    void refusedConnectionTracedOnce();
    void reconnects_data();
    void reconnects();
    void lossWhileWritingIsAnnounced();
    void silentTlsPeer();
    void messageLog_data();
    void messageLog();

private:
    static std::unique_ptr<CommandSenderSocket> makeSocket(quint16 port)
    {
        auto socket = std::make_unique<CommandSenderSocket>(QStringLiteral("127.0.0.1"), port);
        socket->setReconnectInterval(20);
        return socket;
    }
    std::unique_ptr<CommandSenderSocket> connectedSocket()
    {
        auto socket = makeSocket(m_server->port());
        QSignalSpy connected(socket.get(), &CommandSenderSocket::si_connected);
        return connected.wait(10000) && m_server->waitForClient() ? std::move(socket) : nullptr;
    }

    std::unique_ptr<FakeServer> m_server;
};

void tst_CommandSenderSocket::init()
{
    Kavro::ErrorHandler::instance().setTraceMask(Kavro::ErrorHandler::TraceWarning | Kavro::ErrorHandler::TraceInfo);
    m_server = std::make_unique<FakeServer>();
    QVERIFY(m_server->listen());
}

void tst_CommandSenderSocket::oneRequestOutstanding()
{
    const auto socket = connectedSocket();
    QVERIFY(socket);
    QVERIFY(socket->isConnected());
    QSignalSpy received(socket.get(), &CommandSenderSocket::si_newMessage);

    // When a reply is announced, the next request has already gone out.
    QList<int> pendingWhenAnnounced;
    connect(socket.get(), &CommandSenderSocket::si_newMessage, this, [&] {
        pendingWhenAnnounced.append(socket->isAwaitingReply() ? socket->pendingCount() : -1);
    });

    for (const char *request : {"A", "B", "C"})
        socket->sl_sendMessage(request);
    QVERIFY(m_server->waitForFrames(1));
    QCOMPARE(socket->pendingCount(), 2);

    m_server->setResponder([](const QByteArray &request) {
        return QList<QByteArray>{"re:" + request};
    });
    m_server->send("re:A");
    QVERIFY(m_server->waitForFrames(3));
    QCOMPARE(m_server->frames(), QList<QByteArray>({"A", "B", "C"}));
    QTRY_COMPARE(received.size(), 3);
    QCOMPARE(received.at(2).at(0).toByteArray(), QByteArray("re:C"));
    QCOMPARE(pendingWhenAnnounced, QList<int>({1, 0, -1}));
    QVERIFY(!socket->isAwaitingReply());
}

void tst_CommandSenderSocket::queueWaitsForTheServer_data()
{
    QTest::addColumn<bool>("restart");
    QTest::newRow("queued before the first connection") << false;
    QTest::newRow("queued while the peer restarts") << true;
}

void tst_CommandSenderSocket::queueWaitsForTheServer()
{
    QFETCH(bool, restart);

    const quint16 port = m_server->port();
    const auto socket = restart ? connectedSocket() : makeSocket(port);
    QVERIFY(socket);
    QSignalSpy connected(socket.get(), &CommandSenderSocket::si_connected);
    QSignalSpy disconnected(socket.get(), &CommandSenderSocket::si_disconnected);
    if (restart) {
        socket->sl_sendMessage("lost with the connection");
        QVERIFY(m_server->waitForFrames(1));
        m_server->close();
        QVERIFY(disconnected.wait());
        QVERIFY(!socket->isConnected());
    }
    socket->sl_sendMessage("kept"); // a new socket's queued first connection attempt has not run yet
    QCOMPARE(socket->pendingCount(), 1);

    if (restart) {
        m_server = std::make_unique<FakeServer>();
        QVERIFY(m_server->listen(port));
    }
    QVERIFY(connected.wait());
    QCOMPARE(disconnected.size(), int(restart));
    QVERIFY(m_server->waitForClient());
    QCOMPARE(socket->pendingCount(), 1); // not flushed by the connection itself
    QVERIFY(m_server->frames().isEmpty());
    m_server->send("hello");
    QVERIFY(m_server->waitForFrames(1));
    QCOMPARE(m_server->frames(), QList<QByteArray>{"kept"});
}

void tst_CommandSenderSocket::refusedConnectionTracedOnce()
{
    const quint16 port = m_server->port();
    m_server->close(); // nobody listens there now

    const TraceCapture capture;
    const auto socket = makeSocket(port);
    QTRY_VERIFY(socket->connectAttempts() >= 4);
    const QString refused = QStringLiteral("CommandSender::HandleTcpError: Connection refused");
    QCOMPARE(capture.texts().count(refused), 1);

    // A success forgets the error: the next refusal is traced again.
    QSignalSpy connected(socket.get(), &CommandSenderSocket::si_connected);
    QVERIFY(m_server->listen(port));
    QVERIFY(connected.wait());
    QVERIFY(m_server->waitForClient());
    m_server->close();
    QTRY_COMPARE(capture.texts().count(refused), 2);
}

void tst_CommandSenderSocket::reconnects_data()
{
    QTest::addColumn<bool>("oversized"); // a message over the size limit, else a reply overdue
    QTest::addColumn<bool>("notifications");
    QTest::newRow("reply overdue, silent peer") << false << false;
    QTest::newRow("reply overdue, notifications flowing meanwhile") << false << true;
    QTest::newRow("message over the size limit") << true << false;
}

void tst_CommandSenderSocket::reconnects()
{
    QFETCH(bool, oversized);
    QFETCH(bool, notifications);

    const TemporarySettings settings(oversized ? QByteArray("[KAVRO]\nMaxMessageSize=100\n") : QByteArray(), true);
    const auto socket = connectedSocket();
    QVERIFY(socket);
    socket->setReplyTimeout(oversized ? 60000 : 300); // only the overdue rows run into it
    socket->setUnsolicitedFilter(Kavro::isUnsolicitedMessage);
    QSignalSpy connected(socket.get(), &CommandSenderSocket::si_connected);
    QSignalSpy disconnected(socket.get(), &CommandSenderSocket::si_disconnected);
    QSignalSpy overdue(socket.get(), &CommandSenderSocket::si_replyOverdue);
    QSignalSpy received(socket.get(), &CommandSenderSocket::si_newMessage);

    // Messages the server sends of its own accord neither answer the request nor restart its clock.
    QTimer notifier;
    connect(&notifier, &QTimer::timeout, this, [this] {
        m_server->send(
            FakeServer::soapReply(QString(), "CopyForeignFileGroupProgress", "<m:CopyProgress>1</m:CopyProgress>"));
    });
    if (notifications)
        notifier.start(50);

    const TraceCapture capture;
    socket->post(QStringLiteral("R-1"), "unanswered");
    socket->sl_sendMessage("waiting");
    QVERIFY(m_server->waitForFrames(1)); // the request is out before the server speaks
    if (oversized)
        m_server->send(QByteArray(101, 'x'));
    QVERIFY(disconnected.wait(5000));
    notifier.stop();
    QCOMPARE(overdue.size(), int(!oversized));
    QCOMPARE(overdue.value(0).value(0).toString(), oversized ? QString() : QStringLiteral("R-1"));
    QCOMPARE(received.isEmpty(), !notifications);
    QCOMPARE(capture.texts().contains(QStringLiteral("CommandSenderSocket: no reply within 300 ms, reconnecting")),
             !oversized);
    QVERIFY(connected.wait());
    QCOMPARE(socket->pendingCount(), 1);

    // A message of the largest size is taken, and lets the queue flow.
    QVERIFY(m_server->waitForClient());
    m_server->send(QByteArray(100, 'y'));
    QVERIFY(received.wait());
    QCOMPARE(received.last().at(0).toByteArray(), QByteArray(100, 'y'));
    QTRY_COMPARE(m_server->frames().size(), 2);
    QCOMPARE(m_server->frames().last(), QByteArray("waiting"));
}

// A peer that takes the connection but never answers the TLS handshake fails the attempt when the reply timeout
// has passed, rather than holding the client in "connecting" for good; attempts go on.
void tst_CommandSenderSocket::silentTlsPeer()
{
    const TemporarySettings settings("[KAVRO]\nUseTls=true\n", true);
    const auto socket = makeSocket(m_server->port());
    socket->setReplyTimeout(300);
    QSignalSpy failed(socket.get(), &CommandSenderSocket::si_socketError);
    QSignalSpy connecting(socket.get(), &CommandSenderSocket::si_connecting);
    const TraceCapture capture;
    QVERIFY(failed.wait(5000));
    QCOMPARE(failed.first().at(0).value<QAbstractSocket::SocketError>(), QAbstractSocket::SslHandshakeFailedError);
    QCOMPARE(failed.first().at(1).toString(), QStringLiteral("no TLS handshake within 300 ms"));
    QVERIFY(!socket->isConnected());
    QTRY_VERIFY(connecting.size() >= 2);
}

// A connection lost while a request is still in the write buffer is announced, once.
void tst_CommandSenderSocket::lossWhileWritingIsAnnounced()
{
    const auto socket = connectedSocket();
    QVERIFY(socket);
    QSignalSpy connected(socket.get(), &CommandSenderSocket::si_connected);
    QSignalSpy disconnected(socket.get(), &CommandSenderSocket::si_disconnected);
    socket->sl_sendMessage(QByteArray(1 << 20, 'x'));
    socket->sl_handleTcpError(QAbstractSocket::NetworkError);
    QCOMPARE(disconnected.size(), 1);
    QVERIFY(!socket->isConnected());
    QVERIFY(connected.wait());
    QCOMPARE(disconnected.size(), 1);
}

void tst_CommandSenderSocket::messageLog_data()
{
    QTest::addColumn<bool>("marker");
    QTest::newRow("marker present") << true;
    QTest::newRow("marker absent") << false;
}

void tst_CommandSenderSocket::messageLog()
{
    QFETCH(bool, marker);

    QTemporaryDir dataDirectory;
    const QString logDirectory = dataDirectory.filePath(QStringLiteral("Logging"));
    QVERIFY(QDir().mkpath(logDirectory));
    if (marker)
        QVERIFY(writeFile(logDirectory + QStringLiteral("/logkavromessages.txt"), QByteArray()));
    const TemporarySettings settings("[ADMIN]\nSirelDataDir=" + dataDirectory.path().toUtf8() + "\n", true);

    const auto socket = connectedSocket();
    QVERIFY(socket);
    QCOMPARE(socket->isLogging(), marker);
    QSignalSpy received(socket.get(), &CommandSenderSocket::si_newMessage);
    socket->sl_sendMessage("<request/>");
    QVERIFY(m_server->waitForFrames(1));
    m_server->send("<reply/>");
    QVERIFY(received.wait());

    const QStringList files = QDir(logDirectory).entryList(QDir::Files);
    if (!marker) {
        QVERIFY2(files.isEmpty(), qPrintable(files.join(QLatin1Char(','))));
        return;
    }
    const QString expectedName = QDate::currentDate().toString(QStringLiteral("yyyyMMdd")) + QLatin1Char('_')
        + QString::number(reinterpret_cast<quintptr>(QThread::currentThread())) + QStringLiteral("_kavromessages.txt");
    QVERIFY2(files.contains(expectedName), qPrintable(files.join(QLatin1Char(','))));
    const QRegularExpression entries(QStringLiteral("^\n\n\\d\\d\\.\\d\\d\\.\\d{4} T \\d\\d:\\d\\d:\\d\\d\\.\\d{3}: TX "
                                                    "\\('127\\.0\\.0\\.1' -> '127\\.0\\.0\\.1'\\)\n<request/>"
                                                    "\n\n\\d\\d\\.\\d\\d\\.\\d{4} T \\d\\d:\\d\\d:\\d\\d\\.\\d{3}: RX "
                                                    "\\('127\\.0\\.0\\.1' -> '127\\.0\\.0\\.1'\\)\n<reply/>$"));
    const QString content = QString::fromLatin1(readFile(logDirectory + QLatin1Char('/') + expectedName));
    QVERIFY2(entries.match(content).hasMatch(), qPrintable(content));
}

QTEST_GUILESS_MAIN(tst_CommandSenderSocket)
#include "tst_commandsendersocket.moc"
