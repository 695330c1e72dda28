// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "fakearchive.h"
#include "tracecapture.h"

#include <kavro/kavroclient.h>
#include <kavro/kavroreply.h>

#include <QTest>

#include <memory>

using namespace Kavro;

class tst_KavroReply : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { m_env = std::make_unique<FakeArchive>(); }
    void cleanup() { m_env.reset(); }
    void everyEndingFinishesOnce_data();
    void everyEndingFinishesOnce();

private:
    std::unique_ptr<FakeArchive> m_env;
};

void tst_KavroReply::everyEndingFinishesOnce_data()
{
    QTest::addColumn<QByteArray>("extraSettings");
    QTest::addColumn<QByteArray>("replyFields"); // "silent": no reply at all
    QTest::addColumn<QString>("ending"); // what the test does once the request is made
    QTest::addColumn<int>("error");
    QTest::addColumn<QString>("errorText"); // part of errorString()
    QTest::addColumn<bool>("asynchronousFormFails"); // the id-based form hears of it through requestFailed()

    const QByteArray none;
    const QString wait;
    QTest::newRow("reply") << none << QByteArray("<m:Users><m:User>a</m:User><m:User/></m:Users><m:Error>0</m:Error>")
                           << wait << 0 << QString() << false;
    QTest::newRow("error reply with the server's text")
        << none << QByteArray("<m:Error>19</m:Error><m:ErrorString>no users table</m:ErrorString>") << wait << 19
        << QStringLiteral("no users table") << false;
    QTest::newRow("unreadable reply") << none << QByteArray("<m:Users>") << wait << int(ErrorSoapParsing)
                                      << QStringLiteral("the archive server's reply could not be read") << false;
    QTest::newRow("overdue") << QByteArray("ReplyTimeoutMs=150\n") << QByteArray("silent") << wait
                             << int(ErrorReplyTimeout) << QStringLiteral("did not reply within 150 ms") << true;
    QTest::newRow("connection lost after sending")
        << none << QByteArray("silent") << QStringLiteral("drop") << int(ErrorNotConnected)
        << QStringLiteral("was lost before the reply came") << true;
    QTest::newRow("not connected when made") << none << none << QStringLiteral("unconnected") << int(ErrorNotConnected)
                                             << QStringLiteral("wait for connected()") << false;
    QTest::newRow("aborted, the late reply dropped")
        << none << none << QStringLiteral("abort") << int(ErrorAborted) << QStringLiteral("aborted") << false;
    QTest::newRow("client destroyed") << none << QByteArray("silent") << QStringLiteral("destroy")
                                      << int(ErrorNotConnected) << QStringLiteral("client was destroyed") << false;
}

void tst_KavroReply::everyEndingFinishesOnce()
{
    QFETCH(QByteArray, extraSettings);
    QFETCH(QByteArray, replyFields);
    QFETCH(QString, ending);
    QFETCH(int, error);
    QFETCH(QString, errorText);
    QFETCH(bool, asynchronousFormFails);

    m_env->configure(extraSettings);
    const QString command = QStringLiteral("GetUserList");
    if (!replyFields.isEmpty())
        m_env->server.setReplyFields(command, replyFields);
    if (ending == QLatin1String("drop")) {
        connect(&m_env->server, &FakeServer::frameReceived, &m_env->server, [this, command](const QByteArray &frame) {
            if (FakeServer::commandOf(frame) == command)
                m_env->server.dropClient();
        });
    }
    std::unique_ptr<KavroClient> client =
        ending == QLatin1String("unconnected") ? std::make_unique<KavroClient>() : FakeArchive::connectedClient();
    QVERIFY(client);
    QSignalSpy publicReplies(client.get(), &KavroClient::GetUserListSg);
    QSignalSpy failures(client.get(), &KavroClient::requestFailed);
    const TraceCapture capture;

    std::unique_ptr<KavroReply> reply(client->GetUserListRequest());
    QSignalSpy finished(reply.get(), &KavroReply::finished);
    QVERIFY(!reply->requestId().isEmpty());
    if (ending == QLatin1String("abort"))
        reply->abort();
    else if (ending == QLatin1String("destroy") && m_env->server.waitForFrames(2))
        client.reset();
    QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 10000);
    QVERIFY(reply->isFinished());
    QCOMPARE(int(reply->error()), error);
    QVERIFY2(errorText.isEmpty() ? reply->errorString().isEmpty() : reply->errorString().contains(errorText),
             qPrintable(reply->errorString()));
    if (error == NoError)
        QCOMPARE(reply->users(), (QStringList{QStringLiteral("a"), QString()}));
    else
        QVERIFY(reply->users().isEmpty());
    if (!client)
        return;

    // Whatever else arrives for it is dropped: the next request's reply comes, and nothing more for this one.
    QTRY_VERIFY_WITH_TIMEOUT(client->state() == KavroClient::Connected, 10000);
    std::unique_ptr<KavroReply> next(client->GetApplicationListRequest());
    QVERIFY(QSignalSpy(next.get(), &KavroReply::finished).wait(10000));
    QCOMPARE(finished.size(), 1);
    QCOMPARE(publicReplies.size(), 0);
    QCOMPARE(failures.size(), 0);
    if (ending == QLatin1String("abort") && !m_env->server.lastRequest(command).isEmpty())
        QVERIFY(capture.texts().join(QLatin1Char('\n')).contains(QStringLiteral("dropped the late reply")));

    // The id-based form ends the same way, as one requestFailed() with the same error.
    if (asynchronousFormFails) {
        const QString requestId = client->GetUserListAsync();
        QTRY_COMPARE_WITH_TIMEOUT(failures.size(), 1, 10000);
        QCOMPARE(failures.at(0).at(0).toString(), requestId);
        QCOMPARE(failures.at(0).at(1).toInt(), error);
        QVERIFY(failures.at(0).at(2).toString().contains(errorText));
        QTRY_VERIFY_WITH_TIMEOUT(client->state() == KavroClient::Connected, 10000);
        std::unique_ptr<KavroReply> last(client->GetApplicationListRequest());
        QVERIFY(QSignalSpy(last.get(), &KavroReply::finished).wait(10000));
        QCOMPARE(failures.size(), 1);
    }
}

QTEST_GUILESS_MAIN(tst_KavroReply)
#include "tst_kavroreply.moc"
