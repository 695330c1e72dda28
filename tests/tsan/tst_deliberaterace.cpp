// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
// Built only under ThreadSanitizer: two threads write one plain integer at
// the same time. The sanitizer must report it and fail the run; the test is
// expected to fail, every time.
#include <QTest>
#include <QThread>

#include <atomic>
#include <memory>

class tst_DeliberateRace : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void unsynchronisedWrites();
};

void tst_DeliberateRace::unsynchronisedWrites()
{
    int shared = 0;
    std::atomic<int> ready{0};
    // Both writers start together and keep writing until each has seen the other begin, so they overlap.
    const auto writer = [&shared, &ready] {
        ready.fetch_add(1, std::memory_order_relaxed);
        while (ready.load(std::memory_order_relaxed) < 2) { }
        for (int i = 0; i < 1000000; ++i)
            shared = shared + 1;
    };
    std::unique_ptr<QThread> first(QThread::create(writer));
    std::unique_ptr<QThread> second(QThread::create(writer));
    first->start();
    second->start();
    QVERIFY(first->wait(60000));
    QVERIFY(second->wait(60000));
    QVERIFY(shared > 0);
}

QTEST_GUILESS_MAIN(tst_DeliberateRace)
#include "tst_deliberaterace.moc"
