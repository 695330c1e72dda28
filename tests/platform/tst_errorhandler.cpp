// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "errorhandler_p.h"
#include "temporarysettings.h"
#include "trace_p.h"
#include "tracecapture.h"

#include <QFileInfo>
#include <QTest>

using Kavro::ErrorHandler;

class tst_ErrorHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup()
    {
        qunsetenv("KAVRO_TRACE_MASK");
        ErrorHandler::instance().setTraceMask(ErrorHandler::TraceWarning);
    }
    void maskSource_data();
    void maskSource();
    void traceLines_data();
    void traceLines();
    void disabledLineIsNotFormatted();
};

void tst_ErrorHandler::maskSource_data()
{
    QTest::addColumn<QByteArray>("environment"); // empty: unset
    QTest::addColumn<QByteArray>("setting"); // empty: absent
    QTest::addColumn<int>("expected");

    QTest::newRow("environment wins") << QByteArray("0x40") << QByteArray("0x60") << 0x40;
    QTest::newRow("decimal setting") << QByteArray() << QByteArray("96") << 0x60;
    QTest::newRow("upper-case hex prefix") << QByteArray("0X60") << QByteArray() << 0x60;
    QTest::newRow("leading zero is decimal") << QByteArray(" 010 ") << QByteArray() << 10;
    QTest::newRow("unreadable environment falls back") << QByteArray("loud") << QByteArray("0x40") << 0x40;
    QTest::newRow("hex prefix alone falls back") << QByteArray("0x") << QByteArray("junk") << 0x20;
    QTest::newRow("zero silences all") << QByteArray("0") << QByteArray("0x60") << 0;
}

void tst_ErrorHandler::maskSource()
{
    QFETCH(QByteArray, environment);
    QFETCH(QByteArray, setting);
    QFETCH(int, expected);

    const TemporarySettings settings(setting.isEmpty() ? QByteArray() : "[KAVRO]\nTraceMask=" + setting + '\n', true);
    if (!environment.isEmpty())
        qputenv("KAVRO_TRACE_MASK", environment);

    ErrorHandler::instance().reload();
    QCOMPARE(ErrorHandler::instance().traceMask(), expected);
}

void tst_ErrorHandler::traceLines_data()
{
    QTest::addColumn<int>("mask");
    QTest::addColumn<bool>("infoWritten");
    QTest::addColumn<bool>("warningWritten");

    QTest::newRow("nothing") << 0 << false << false;
    QTest::newRow("warnings") << 0x20 << false << true;
    QTest::newRow("information") << 0x40 << true << false;
    QTest::newRow("both") << 0x60 << true << true;
    QTest::newRow("other bits only") << 0x9f << false << false;
}

void tst_ErrorHandler::traceLines()
{
    QFETCH(int, mask);
    QFETCH(bool, infoWritten);
    QFETCH(bool, warningWritten);

    ErrorHandler::instance().setTraceMask(mask);
    const TraceCapture capture;
    const int infoLine = __LINE__ + 1;
    KAVRO_TRACE_INFO(QStringLiteral("Thing::run: Start (%1)").arg(7));
    const int warningLine = __LINE__ + 1;
    KAVRO_TRACE_WARNING(QStringLiteral("Directory does not exist: "));

    const auto entry = [](int type, const QString &file, int line, const QString &text) {
        return QStringLiteral("%1 %2:%3 %4").arg(type).arg(QFileInfo(file).fileName()).arg(line).arg(text);
    };
    QStringList expected;
    if (infoWritten)
        expected << entry(QtDebugMsg, QStringLiteral(__FILE__), infoLine, QStringLiteral("Thing::run: Start (7)"));
    if (warningWritten)
        expected << entry(QtWarningMsg, QStringLiteral(__FILE__), warningLine,
                          QStringLiteral("Directory does not exist: "));
    QStringList written;
    for (const TraceLine &line : capture.lines())
        written << entry(line.type, line.file, line.line, line.text);
    QCOMPARE(written, expected);
}

void tst_ErrorHandler::disabledLineIsNotFormatted()
{
    ErrorHandler::instance().setTraceMask(ErrorHandler::TraceWarning);
    int formatted = 0;
    auto text = [&formatted] {
        ++formatted;
        return QStringLiteral("costly");
    };
    const TraceCapture capture;
    KAVRO_TRACE_INFO(text());
    QCOMPARE(formatted, 0);
    KAVRO_TRACE_WARNING(text());
    QCOMPARE(formatted, 1);
    QCOMPARE(capture.texts(), QStringList{QStringLiteral("costly")});
}

QTEST_GUILESS_MAIN(tst_ErrorHandler)
#include "tst_errorhandler.moc"
