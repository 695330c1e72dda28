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
    void cleanup();
    void oneRequestOutstanding();
    void queuedBeforeConnectWaitsForAMessage();
    void peerRestartKeepsTheQueue();
    void refusedConnectionTracedOnce();
    void overdueReplyReconnects_data();
    void overdueReplyReconnects();
    void oversizedMessageReconnects();
    void messageLog_data();
    void messageLog();

private:
    std::unique_ptr<CommandSenderSocket> makeSocket(quint16 port);
    std::unique_ptr<CommandSenderSocket> connectedSocket();

    std::unique_ptr<FakeServer> m_server;
};

void tst_CommandSenderSocket::init()
{
    Kavro::ErrorHandler::instance().setTraceMask(Kavro::ErrorHandler::TraceWarning | Kavro::ErrorHandler::TraceInfo);
    m_server = std::make_unique<FakeServer>();
    QVERIFY(m_server->listen());
}

void tst_CommandSenderSocket::cleanup()
{
    m_server.reset();
}

std::unique_ptr<CommandSenderSocket> tst_CommandSenderSocket::makeSocket(quint16 port)
{
    auto socket = std::make_unique<CommandSenderSocket>(QStringLiteral("127.0.0.1"), port);
    socket->setReconnectInterval(20);
    return socket;
}

std::unique_ptr<CommandSenderSocket> tst_CommandSenderSocket::connectedSocket()
{
    auto socket = makeSocket(m_server->port());
    QSignalSpy connected(socket.get(), &CommandSenderSocket::si_connected);
    if (!connected.wait(10000) || !m_server->waitForClient())
        return nullptr;
    return socket;
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

void tst_CommandSenderSocket::queuedBeforeConnectWaitsForAMessage()
{
    const auto socket = makeSocket(m_server->port());
    socket->sl_sendMessage("early"); // before the queued first connection attempt has run
    QCOMPARE(socket->pendingCount(), 1);

    QSignalSpy connected(socket.get(), &CommandSenderSocket::si_connected);
    QVERIFY(connected.wait());
    QVERIFY(m_server->waitForClient());
    QCOMPARE(socket->pendingCount(), 1); // not flushed by the connection itself
    QVERIFY(m_server->frames().isEmpty());

    m_server->send("hello");
    QVERIFY(m_server->waitForFrames(1));
    QCOMPARE(m_server->frames().first(), QByteArray("early"));
}

void tst_CommandSenderSocket::peerRestartKeepsTheQueue()
{
    const auto socket = connectedSocket();
    QVERIFY(socket);
    QSignalSpy connected(socket.get(), &CommandSenderSocket::si_connected);
    QSignalSpy disconnected(socket.get(), &CommandSenderSocket::si_disconnected);
    const quint16 port = m_server->port();

    socket->sl_sendMessage("lost with the connection");
    QVERIFY(m_server->waitForFrames(1));
    m_server->close();
    QVERIFY(disconnected.wait());
    QVERIFY(!socket->isConnected());
    socket->sl_sendMessage("kept");
    QCOMPARE(socket->pendingCount(), 1);

    m_server = std::make_unique<FakeServer>();
    QVERIFY(m_server->listen(port));
    QVERIFY(connected.wait());
    QCOMPARE(disconnected.size(), 1);
    QVERIFY(m_server->waitForClient());
    m_server->send("hello again");
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

void tst_CommandSenderSocket::overdueReplyReconnects_data()
{
    QTest::addColumn<bool>("notifications");
    QTest::newRow("silent peer") << false;
    QTest::newRow("notifications flowing meanwhile") << true;
}

void tst_CommandSenderSocket::overdueReplyReconnects()
{
    QFETCH(bool, notifications);

    const auto socket = connectedSocket();
    QVERIFY(socket);
    socket->setReplyTimeout(300);
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
    QVERIFY(disconnected.wait(5000));
    notifier.stop();
    QCOMPARE(overdue.size(), 1);
    QCOMPARE(overdue.at(0).at(0).toString(), QStringLiteral("R-1"));
    QCOMPARE(received.isEmpty(), !notifications);
    QVERIFY(capture.texts().contains(QStringLiteral("CommandSenderSocket: no reply within 300 ms, reconnecting")));
    QVERIFY(connected.wait());
    QCOMPARE(socket->pendingCount(), 1);

    QVERIFY(m_server->waitForClient());
    m_server->send("hello");
    QTRY_COMPARE(m_server->frames().size(), 2);
    QCOMPARE(m_server->frames().last(), QByteArray("waiting"));
}

void tst_CommandSenderSocket::oversizedMessageReconnects()
{
    const TemporarySettings settings("[KAVRO]\nMaxMessageSize=100\n", true);
    const auto socket = connectedSocket();
    QVERIFY(socket);
    QSignalSpy received(socket.get(), &CommandSenderSocket::si_newMessage);
    QSignalSpy connected(socket.get(), &CommandSenderSocket::si_connected);
    QSignalSpy disconnected(socket.get(), &CommandSenderSocket::si_disconnected);

    m_server->send(QByteArray(101, 'x'));
    QVERIFY(disconnected.wait());
    QVERIFY(connected.wait());
    QVERIFY(m_server->waitForClient());
    m_server->send(QByteArray(100, 'y'));
    QVERIFY(received.wait());
    QCOMPARE(received.size(), 1);
    QCOMPARE(received.at(0).at(0).toByteArray(), QByteArray(100, 'y'));
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
    if (marker) {
        QFile markerFile(logDirectory + QStringLiteral("/logkavromessages.txt"));
        QVERIFY(markerFile.open(QIODevice::WriteOnly));
    }
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
    QFile log(logDirectory + QLatin1Char('/') + expectedName);
    QVERIFY(log.open(QIODevice::ReadOnly));
    const QRegularExpression entries(QStringLiteral("^\n\n\\d\\d\\.\\d\\d\\.\\d{4} T \\d\\d:\\d\\d:\\d\\d\\.\\d{3}: TX "
                                                    "\\('127\\.0\\.0\\.1' -> '127\\.0\\.0\\.1'\\)\n<request/>"
                                                    "\n\n\\d\\d\\.\\d\\d\\.\\d{4} T \\d\\d:\\d\\d:\\d\\d\\.\\d{3}: RX "
                                                    "\\('127\\.0\\.0\\.1' -> '127\\.0\\.0\\.1'\\)\n<reply/>$"));
    const QString content = QString::fromLatin1(log.readAll());
    QVERIFY2(entries.match(content).hasMatch(), qPrintable(content));
}

QTEST_GUILESS_MAIN(tst_CommandSenderSocket)
#include "tst_commandsendersocket.moc"
