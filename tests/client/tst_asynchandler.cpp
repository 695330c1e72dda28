// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "asynchandler_p.h"
#include "fakeserver.h"

#include <QElapsedTimer>
#include <QTest>

#include <memory>

using namespace Kavro;

// The dispatcher is not started: replies are handed to it directly.
class tst_AsyncHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_sender = std::make_unique<CommandSender>(QStringLiteral("127.0.0.1"), 1, QString(), QString(), QString());
    }
    void cleanup() { m_sender.reset(); }
    void replyBeforeTheWait();
    void timeoutDespiteOtherReplies();

private:
    void reply(const QString &requestId, int error = 0);

    std::unique_ptr<CommandSender> m_sender;
};

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
    QVERIFY(!handler.wait(QStringLiteral("not mine")));
    QVERIFY(handler.wait(handler.requestId()));
    QVERIFY(clock.elapsed() < 10000);
    QCOMPARE(handler.error(), 19);
    QCOMPARE(handler.reply().listTexts(), QStringList{handler.requestId()});
}

void tst_AsyncHandler::timeoutDespiteOtherReplies()
{
    QElapsedTimer clock;
    clock.start();
    AsyncHandler mine(m_sender.get(), 100);
    AsyncHandler other(m_sender.get(), 60000);
    reply(other.requestId());
    reply(QStringLiteral("stranger"));
    QVERIFY(!mine.wait(mine.requestId()));
    QVERIFY(clock.elapsed() >= 99);
    QCOMPARE(mine.error(), int(ErrorReplyTimeout));
    QCOMPARE(mine.errorString(), QStringLiteral("Server reply timed out"));
    QVERIFY(other.wait(other.requestId()));

    // A reply after the wait gave up changes nothing.
    reply(mine.requestId(), 19);
    QCOMPARE(mine.error(), int(ErrorReplyTimeout));
    QVERIFY(mine.reply().listTexts().isEmpty());
}

QTEST_GUILESS_MAIN(tst_AsyncHandler)
#include "tst_asynchandler.moc"
