// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "fakeserver.h"
#include "xmlseparator_p.h"

#include <QSignalSpy>
#include <QTcpSocket>
#include <QTest>

#include <memory>

using Kavro::XmlSeparator;

namespace
{
QByteArray document(const char *root, int padding = 0)
{
    return "<?xml version=\"1.0\"?><" + QByteArray(root) + ">" + QByteArray(padding, 'x') + "</" + root + ">";
}

} // namespace

class tst_XmlSeparator : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup()
    {
        m_separator.reset();
        m_client.reset();
        m_server.reset();
    }
    void receive_data();
    void receive();
    void autoDetectWaitsForFourBytes();
    void receiverThatPausesStopsTheRest();
    void malformedXmlStopsUntilReset();
    void pauseAndResume();
    void send_data();
    void send();
    void tooLarge_data();
    void tooLarge();

private:
    void connectSeparator(XmlSeparator::Mode mode)
    {
        m_separator = std::make_unique<XmlSeparator>(m_client.get(), mode, nullptr);
    }

    std::unique_ptr<FakeServer> m_server;
    std::unique_ptr<QTcpSocket> m_client;
    std::unique_ptr<XmlSeparator> m_separator;
};

void tst_XmlSeparator::init()
{
    m_server = std::make_unique<FakeServer>();
    QVERIFY(m_server->listen());
    m_client = std::make_unique<QTcpSocket>();
    m_client->connectToHost(QHostAddress::LocalHost, m_server->port());
    QVERIFY(m_client->waitForConnected(10000));
    QVERIFY(m_server->waitForClient());
}

void tst_XmlSeparator::receive_data()
{
    QTest::addColumn<XmlSeparator::Mode>("mode");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("pieceSize"); // 0: one write
    QTest::addColumn<QList<QByteArray>>("messages");
    QTest::addColumn<XmlSeparator::Mode>("detected");
    QTest::addColumn<XmlSeparator::Detection>("detection");
    QTest::addColumn<qint64>("limit");

    const QByteArray a = document("a", 300 - 30);
    const QByteArray b = document("b");
    const auto le = [](const QByteArray &payload, bool compressed = false) {
        return FakeServer::frame(payload, FakeServer::LittleEndian, compressed);
    };
    using Mode = XmlSeparator::Mode;
    using Detection = XmlSeparator::Detection;
    // The mode detected is the one set, unless that is AutoDetect.
    const auto row = [](const char *tag, Mode mode, const QByteArray &bytes, int pieceSize,
                        const QList<QByteArray> &messages, Mode detected = XmlSeparator::AutoDetect,
                        Detection detection = Detection::ZeroBytes,
                        qint64 limit = XmlSeparator::defaultMaxMessageSize) {
        QTest::newRow(tag) << mode << bytes << pieceSize << messages
                           << (detected == XmlSeparator::AutoDetect ? mode : detected) << detection << limit;
    };
    const Mode little = XmlSeparator::LengthPrefixLittleEndian;
    const Mode big = XmlSeparator::LengthPrefixBigEndian;
    const Mode plain = XmlSeparator::PlainXml;

    row("little-endian detected", XmlSeparator::AutoDetect, le(a), 0, {a}, little);
    row("big-endian detected", XmlSeparator::AutoDetect, FakeServer::frame(a, FakeServer::BigEndian), 0, {a}, big);
    row("plain XML detected", XmlSeparator::AutoDetect, a + b, 0, {a, b}, plain);
    row("frame split at every byte", XmlSeparator::AutoDetect, le(a), 1, {a}, little);

    // A little-endian length that is a multiple of 256 starts with a zero byte, and one of
    // 16 MiB or more may have no zero byte: the zero-bytes rule misreads both.
    const QByteArray a512 = document("a", 512 - 28);
    const QByteArray large = document("large", 16 * 1024 * 1024);
    const auto first = Detection::FirstCharacter;
    row("zero bytes: little-endian 512 bytes taken as big-endian", XmlSeparator::AutoDetect, le(a512), 0, {}, big);
    row("zero bytes: little-endian 16 MiB taken as plain XML", XmlSeparator::AutoDetect, le(large).left(4), 0, {},
        plain);
    row("first character: little-endian 512 bytes", XmlSeparator::AutoDetect, le(a512), 0, {a512}, little, first);
    const QByteArray a60 = document("a", 60 - 28); // its length's first byte is '<'
    row("first character: little-endian 60 bytes", XmlSeparator::AutoDetect, le(a60), 0, {a60}, little, first);
    row("first character: little-endian 16 MiB", XmlSeparator::AutoDetect, le(large), 0, {large}, little, first,
        32 * 1024 * 1024);
    row("first character: big-endian when only that fits", XmlSeparator::AutoDetect,
        FakeServer::frame(a, FakeServer::BigEndian), 0, {a}, big, first);
    row("first character: plain XML", XmlSeparator::AutoDetect, a + b, 0, {a, b}, plain, first);
    row("first character: white space, then XML", XmlSeparator::AutoDetect, "\n" + a, 0, {a}, plain, first);
    row("first character: byte-order mark, then XML", XmlSeparator::AutoDetect, "\xef\xbb\xbf" + b, 0,
        {"\xef\xbb\xbf" + b}, plain, first);

    row("three frames in one write", little, le(a) + le(b) + le(a), 0, {a, b, a});
    row("compressed frames unpacked", big, FakeServer::frame(a, FakeServer::BigEndian, true), 0, {a});
    row("compressed split at every byte", little, le(a, true) + le(b, true), 1, {a, b});
    row("plain payload switches unpacking off", little, le(b) + le(qCompress(a)), 0, {b, qCompress(a)});
    row("empty payload", little, le(QByteArray()) + le(b), 0, {QByteArray(), b});
    const QByteArray claims2GiB("\x7f\xff\xff\xff\x78\x9c garbage");
    row("header claiming 2 GiB is not trusted", little, le(claims2GiB), 0, {claims2GiB});
    row("white space between documents", plain, a + " \r\n\t " + b + "\n", 0, {a, b});
    row("documents split at every byte", plain, a + "\n" + b, 1, {a, b});
    row("split inside a tag", plain, b, 25, {b});
    row("multi-byte text and > in content", plain, "<r>gr\xc3\xbc\xc3\x9f > 1</r><s/>", 3,
        {"<r>gr\xc3\xbc\xc3\x9f > 1</r>", "<s/>"});
}

void tst_XmlSeparator::receive()
{
    QFETCH(XmlSeparator::Mode, mode);
    QFETCH(QByteArray, bytes);
    QFETCH(int, pieceSize);
    QFETCH(QList<QByteArray>, messages);
    QFETCH(XmlSeparator::Mode, detected);
    QFETCH(XmlSeparator::Detection, detection);
    QFETCH(qint64, limit);

    connectSeparator(mode);
    m_separator->setDetection(detection);
    m_separator->setMaxMessageSize(limit);
    QSignalSpy received(m_separator.get(), &XmlSeparator::xmlReceived);
    m_server->sendRaw(bytes, pieceSize);

    QTRY_COMPARE(m_separator->mode(), detected);
    QTRY_COMPARE(received.size(), messages.size());
    for (int i = 0; i < messages.size(); ++i)
        QCOMPARE(received.at(i).at(0).toByteArray(), messages.at(i));
}

void tst_XmlSeparator::autoDetectWaitsForFourBytes()
{
    connectSeparator(XmlSeparator::AutoDetect);
    QSignalSpy received(m_separator.get(), &XmlSeparator::xmlReceived);
    QSignalSpy reads(m_client.get(),
                     &QIODevice::readyRead); // connected after the separator: it has read when this fires

    const QByteArray frame = FakeServer::frame(document("a", 300));
    m_server->sendRaw(frame.left(3));
    QVERIFY(reads.wait());
    QCOMPARE(m_separator->mode(), XmlSeparator::AutoDetect);

    m_server->sendRaw(frame.mid(3, 300)); // the whole prefix, part of the payload
    QTRY_COMPARE(m_separator->mode(), XmlSeparator::LengthPrefixLittleEndian);
    QCOMPARE(received.size(), 0);

    m_server->sendRaw(frame.mid(303));
    QTRY_COMPARE(received.size(), 1);
}

void tst_XmlSeparator::receiverThatPausesStopsTheRest()
{
    // Messages that arrive together are delivered in one go, but each reaches
    // its receiver before the next is cut: a receiver that pauses holds the rest.
    connectSeparator(XmlSeparator::LengthPrefixLittleEndian);
    QByteArrayList received;
    connect(m_separator.get(), &XmlSeparator::xmlReceived, this, [&](const QByteArray &message) {
        received << message;
        if (message == "1")
            m_separator->pause();
    });

    m_server->sendRaw(FakeServer::frame("1") + FakeServer::frame("2") + FakeServer::frame("3"));
    QTRY_COMPARE(received.size(), 1);
    QCoreApplication::processEvents();
    QCOMPARE(received.size(), 1);

    m_separator->resume();
    QTRY_COMPARE(received, QByteArrayList({"1", "2", "3"}));
}

void tst_XmlSeparator::malformedXmlStopsUntilReset()
{
    connectSeparator(XmlSeparator::PlainXml);
    QSignalSpy received(m_separator.get(), &XmlSeparator::xmlReceived);
    QSignalSpy errors(m_separator.get(), &XmlSeparator::errorOccured);

    m_server->sendRaw("<a><b></a>");
    QVERIFY(errors.wait());
    QCOMPARE(errors.at(0).at(0).toString(), QStringLiteral("Opening and ending tag mismatch."));

    QSignalSpy reads(m_client.get(), &QIODevice::readyRead);
    m_server->sendRaw(document("later"));
    QVERIFY(reads.wait());
    QCoreApplication::processEvents();
    QCOMPARE(received.size(), 0);
    QCOMPARE(errors.size(), 1);

    // The separator's own buffer is cleared; what waited in the socket is read.
    m_separator->reset();
    m_server->sendRaw(document("fresh"));
    QTRY_COMPARE(received.size(), 2);
    QCOMPARE(received.at(0).at(0).toByteArray(), document("later"));
    QCOMPARE(received.at(1).at(0).toByteArray(), document("fresh"));
}

void tst_XmlSeparator::pauseAndResume()
{
    connectSeparator(XmlSeparator::LengthPrefixLittleEndian);
    QSignalSpy received(m_separator.get(), &XmlSeparator::xmlReceived);

    m_separator->setEnabled(false);
    m_server->send("held");
    QTRY_VERIFY(m_client->bytesAvailable() > 0); // stays in the socket
    QCoreApplication::processEvents();
    QCOMPARE(received.size(), 0);

    m_separator->setDisabled(false);
    QTRY_COMPARE(received.size(), 1);
    QCOMPARE(received.at(0).at(0).toByteArray(), QByteArray("held"));
}

void tst_XmlSeparator::send_data()
{
    QTest::addColumn<XmlSeparator::Mode>("mode");
    QTest::addColumn<bool>("accepted");
    QTest::addColumn<QByteArray>("wire");

    const QByteArray xml = document("request");
    QTest::newRow("auto-detect writes nothing") << XmlSeparator::AutoDetect << false << QByteArray();
    QTest::newRow("plain") << XmlSeparator::PlainXml << true << xml;
    QTest::newRow("little-endian") << XmlSeparator::LengthPrefixLittleEndian << true << FakeServer::frame(xml);
    QTest::newRow("big-endian") << XmlSeparator::LengthPrefixBigEndian << true
                                << FakeServer::frame(xml, FakeServer::BigEndian);
    QTest::newRow("unknown mode") << static_cast<XmlSeparator::Mode>(7) << false << QByteArray();
}

void tst_XmlSeparator::send()
{
    QFETCH(XmlSeparator::Mode, mode);
    QFETCH(bool, accepted);
    QFETCH(QByteArray, wire);

    connectSeparator(mode);
    QCOMPARE(m_separator->sendXml(document("request")), accepted);
    // A marker written straight to the socket shows where the separator's bytes end.
    m_client->write("|end");
    QTRY_COMPARE(m_server->rawReceived(), wire + "|end");
}

void tst_XmlSeparator::tooLarge_data()
{
    QTest::addColumn<XmlSeparator::Mode>("mode");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<qint64>("reported");

    QTest::newRow("frame length over the limit, refused before the payload")
        << XmlSeparator::LengthPrefixLittleEndian << FakeServer::frame(QByteArray(2000, 'x')).left(4) << qint64(2000);
    QTest::newRow("big-endian length of 4 GiB")
        << XmlSeparator::LengthPrefixBigEndian << QByteArray("\xff\xff\xff\xff", 4) << qint64(0xffffffff);
    QTest::newRow("small frame unpacking past the limit")
        << XmlSeparator::LengthPrefixLittleEndian
        << FakeServer::frame(QByteArray(100000, '\0'), FakeServer::LittleEndian, true) << qint64(1001);
    QTest::newRow("plain document growing past the limit")
        << XmlSeparator::PlainXml << QByteArray("<a>") + QByteArray(1000, 'x') + QByteArray("<b>") << qint64(1006);
}

void tst_XmlSeparator::tooLarge()
{
    QFETCH(XmlSeparator::Mode, mode);
    QFETCH(QByteArray, bytes);
    QFETCH(qint64, reported);

    connectSeparator(mode);
    m_separator->setMaxMessageSize(1000);
    QSignalSpy received(m_separator.get(), &XmlSeparator::xmlReceived);
    QSignalSpy refused(m_separator.get(), &XmlSeparator::messageTooLarge);

    m_server->sendRaw(bytes);
    QVERIFY(refused.wait());
    QCOMPARE(refused.at(0).at(0).toLongLong(), reported);
    QCOMPARE(received.size(), 0);
}

QTEST_GUILESS_MAIN(tst_XmlSeparator)
#include "tst_xmlseparator.moc"
