// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_TESTS_WORKERTHREAD_H
#define KAVRO_TESTS_WORKERTHREAD_H

#include <QTest>
#include <QThread>

#include <memory>

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
