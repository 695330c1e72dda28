// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "asynchandler_p.h"
#include "fakeserver.h"

#include <QElapsedTimer>
#include <QTest>
#include <QThread>

#include <memory>
#include <vector>

using namespace Kavro;

// The dispatcher is not started: replies are handed to it directly.
class tst_AsyncHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void replyBeforeTheWait();
    void otherRepliesDoNotEndTheWait();
    void disconnectionEndsTheWait();
    void timeout();
    void waitForAnotherId();
    void eightThreadsEachGetTheirOwnReply();

private:
    void reply(const QString &requestId, int error = 0);

    std::unique_ptr<CommandSender> m_sender;
};

void tst_AsyncHandler::init()
{
    m_sender = std::make_unique<CommandSender>(QStringLiteral("127.0.0.1"), 1, QString(), QString(), QString());
}

void tst_AsyncHandler::cleanup()
{
    m_sender.reset();
}

void tst_AsyncHandler::reply(const QString &requestId, int error)
{
    m_sender->SlotHandleXmlReply(FakeServer::soapReply(requestId, "GetUserListReply",
                                                       "<m:Users><m:User>" + requestId.toUtf8()
                                                           + "</m:User></m:Users><m:Error>" + QByteArray::number(error)
                                                           + "</m:Error>"));
}

void tst_AsyncHandler::replyBeforeTheWait()
{
    AsyncHandler handler(m_sender.get(), 60000);
    reply(handler.requestId(), 19);
    QElapsedTimer clock;
    clock.start();
    QVERIFY(handler.wait(handler.requestId()));
    QVERIFY(clock.elapsed() < 10000);
    QCOMPARE(handler.error(), 19);
    QCOMPARE(handler.reply().listTexts(), QStringList{handler.requestId()});
}

void tst_AsyncHandler::otherRepliesDoNotEndTheWait()
{
    AsyncHandler mine(m_sender.get(), 100);
    AsyncHandler other(m_sender.get(), 60000);
    reply(other.requestId());
    reply(QStringLiteral("stranger"));
    QVERIFY(!mine.wait(mine.requestId()));
    QCOMPARE(mine.error(), int(ErrorReplyTimeout));
    QVERIFY(other.wait(other.requestId()));
}

void tst_AsyncHandler::disconnectionEndsTheWait()
{
    AsyncHandler handler(m_sender.get(), 60000);
    std::unique_ptr<QThread> dropper(QThread::create([this] {
        m_sender->SlotDisconnected();
    }));
    dropper->start();
    QElapsedTimer clock;
    clock.start();
    QVERIFY(!handler.wait(handler.requestId()));
    QVERIFY(clock.elapsed() < 10000);
    QCOMPARE(handler.error(), int(ErrorNotConnected));
    dropper->wait();
}

void tst_AsyncHandler::timeout()
{
    AsyncHandler handler(m_sender.get(), 50);
    QElapsedTimer clock;
    clock.start();
    QVERIFY(!handler.wait(handler.requestId()));
    QVERIFY(clock.elapsed() >= 49);
    QCOMPARE(handler.error(), int(ErrorReplyTimeout));
    QCOMPARE(handler.errorString(), QStringLiteral("Server reply timed out"));

    // A reply after the wait gave up changes nothing.
    reply(handler.requestId(), 19);
    QCOMPARE(handler.error(), int(ErrorReplyTimeout));
    QVERIFY(handler.reply().listTexts().isEmpty());
}

void tst_AsyncHandler::waitForAnotherId()
{
    AsyncHandler handler(m_sender.get(), 60000);
    reply(handler.requestId());
    QVERIFY(!handler.wait(QStringLiteral("not mine")));
}

void tst_AsyncHandler::eightThreadsEachGetTheirOwnReply()
{
    constexpr int count = 8;
    std::vector<std::unique_ptr<AsyncHandler>> handlers;
    for (int i = 0; i < count; ++i)
        handlers.push_back(std::make_unique<AsyncHandler>(m_sender.get(), 60000));

    std::vector<QStringList> results(count);
    std::vector<std::unique_ptr<QThread>> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back(QThread::create([&, i] {
            if (handlers[i]->wait(handlers[i]->requestId()))
                results[i] = handlers[i]->reply().listTexts();
        }));
        threads.back()->start();
    }
    for (int i = count - 1; i >= 0; --i)
        reply(handlers[i]->requestId());
    for (int i = 0; i < count; ++i) {
        QVERIFY(threads[i]->wait(60000));
        QCOMPARE(results[i], QStringList{handlers[i]->requestId()});
    }
}

QTEST_GUILESS_MAIN(tst_AsyncHandler)
#include "tst_asynchandler.moc"
