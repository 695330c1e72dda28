// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_TESTS_FAKEARCHIVE_H
#define KAVRO_TESTS_FAKEARCHIVE_H

#include "errorhandler_p.h"
#include "fakeserver.h"
#include "kavroclient_p.h"
#include "temporarysettings.h"

#include <kavro/kavroclient.h>

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QThread>

#include <memory>

/*!
 * A fake server answering like the archive server, with a temporary storage directory as its base path, and
 * the process's configuration pointing clients at it. Made afresh for each test function.
 */
struct FakeArchive {
    QTemporaryDir storage;
    FakeServer server;
    std::unique_ptr<TemporarySettings> settings;

    FakeArchive()
    {
        Kavro::ErrorHandler::instance().setTraceMask(Kavro::ErrorHandler::TraceInfo
                                                     | Kavro::ErrorHandler::TraceWarning);
        QVERIFY(server.listen());
        server.answerRequests(storage.path());
        configure();
    }

    //! Makes \a ini the configuration; the old file restores the variable before the new one sets it.
    void useSettings(const QByteArray &ini)
    {
        settings.reset();
        settings = std::make_unique<TemporarySettings>(ini, true);
        Kavro::KavroClient::ClientConfig::instance().reload();
    }
    //! The configuration for the server, with \a extra lines in its section.
    void configure(const QByteArray &extra = QByteArray())
    {
        useSettings("[KAVRO]\nServerHost=127.0.0.1\nXmlPort=" + QByteArray::number(server.port())
                    + "\nReconnectIntervalMs=20\n" + extra);
    }

    //! A new client once it is connected; null when it did not connect.
    static std::unique_ptr<Kavro::KavroClient> connectedClient()
    {
        auto client = std::make_unique<Kavro::KavroClient>();
        return QSignalSpy(client.get(), &Kavro::KavroClient::connected).wait(10000) ? std::move(client) : nullptr;
    }
};

/*!
 * Runs \a call on a thread of its own and returns its result, while this
 * thread's event loop keeps running (the fake server lives here). A blocking
 * client call made on the test thread itself would starve the server.
 */
template<typename Call>
auto inWorkerThread(Call call) -> decltype(call())
{
    decltype(call()) result{};
    std::unique_ptr<QThread> thread(QThread::create([&] {
        result = call();
    }));
    thread->start();
    if (!QTest::qWaitFor(
            [&] {
                return thread->isFinished();
            },
            120000))
        qFatal("a blocking call did not return");
    thread->wait();
    return result;
}

#endif
