// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
// Built only under ThreadSanitizer: two threads write one plain integer. The
// sanitizer must report it and fail the run; the test is expected to fail.
#include <QTest>
#include <QThread>

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
    const auto writer = [&shared] {
        for (int i = 0; i < 100000; ++i)
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
