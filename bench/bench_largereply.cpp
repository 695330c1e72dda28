// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
// Times how the client takes in a very large reply: the answer to a
// QueryFileGroups request that 50,000 full file groups match (about 49 MB),
// written by the protocol layer exactly as the server writes it and served
// from memory by a minimal server thread. Beside it, in alternating rounds:
// QXmlStreamReader walking the same bytes in 64 KiB chunks, and pugixml
// parsing them when it was found at configure time. Each figure also tells
// the peak resident memory its call added.
//
//   bench_largereply [rounds]           defaults: 3 rounds after one warm-up round
//   bench_largereply profile [calls]    only blocking QueryFiles, 5 calls by default (for perf record)
#include "benchsupport.h"
#include "soapmessage_p.h"

#include <kavro/filequery.h>
#include <kavro/kavroclient.h>

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QTimer>
#include <QUuid>
#include <QXmlStreamReader>
#include <QtEndian>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <malloc.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#ifdef KAVRO_HAVE_PUGIXML
#include <pugixml.hpp>
#endif

namespace
{
using Clock = std::chrono::steady_clock;

constexpr int groupCount = 50000;
constexpr qsizetype chunkSize = 64 * 1024;
constexpr int replyTimeoutMs = 60000;

// The request id the prepared reply carries until a request's own id replaces it; as long as a real one.
QByteArray placeholderRequestId()
{
    return QUuid().toString(QUuid::WithoutBraces).toLatin1();
}

double megabytes(qint64 bytes)
{
    return double(bytes) / 1e6;
}

// One file group with every field of the record set, as an archive holds them.
Kavro::FileGroupData sampleGroup(int index)
{
    static const QString creators[] = {QStringLiteral("alice"), QStringLiteral("bmueller"), QStringLiteral("chen.wei"),
                                       QStringLiteral("dkowalski")};
    static const QString teams[] = {QStringLiteral("signal-analysis"), QStringLiteral("field-ops"),
                                    QStringLiteral("archive-admin")};
    const QDateTime created = QDateTime(QDate(2025, 1, 6), QTime(8, 0), Qt::UTC).addSecs(qint64(index) * 617);
    const QString number = QStringLiteral("%1").arg(index, 6, 10, QLatin1Char('0'));

    Kavro::FileGroupData group;
    group.setGuid(QUuid::createUuid().toString(QUuid::WithoutBraces));
    group.setName(QStringLiteral("survey-north-") + number);
    group.setFileType(Kavro::FileType(1 + index % Kavro::FileTypeTechnicalParameters));
    group.setLocationState(index % 3 == 0 ? Kavro::LocationBackupCopy : Kavro::LocationCentral);
    group.setCreationTime(created);
    group.setModificationTime(created.addSecs(3600 + index % 7200));
    group.setBackupTime(created.addDays(1));
    group.setLifeCycle(created.addYears(5));
    group.setComment(QStringLiteral("Night shift; antenna 3 recalibrated, run ") + number);
    group.setCreator(creators[index % std::size(creators)]);
    group.setDetail(QStringLiteral("Prüfstand Süd & Nord, Kanal %1").arg(index % 64));
    group.setTeam(teams[index % std::size(teams)]);
    group.setVersion(QStringLiteral("2.%1.%2").arg(index % 10).arg(index % 7));
    group.setReservedStorage(250000000 + (index % 1000) * 4096);
    group.setReferenceCount(index % 4);
    group.addFile(QStringLiteral("scan_") + number + QStringLiteral("_a.bin"), 1);
    group.addFile(QStringLiteral("scan_") + number + QStringLiteral("_b.bin"), 2);
    group.addFile(QStringLiteral("scan_") + number + QStringLiteral(".xml"), 3);
    return group;
}

// The server's reply to a QueryFileGroups request that every group matches, written by the protocol's writer.
QByteArray queryReplyDocument()
{
    Kavro::SoapMessage reply;
    reply.requestId = QString::fromLatin1(placeholderRequestId());
    reply.element = QStringLiteral("QueryFileGroupsReply");
    reply.groups.reserve(groupCount);
    for (int index = 0; index < groupCount; ++index)
        reply.groups.append(sampleGroup(index));
    reply.setError(Kavro::NoError, QString());
    return Kavro::writeSoapMessage(reply);
}

QByteArray lengthPrefix(qsizetype length)
{
    QByteArray prefix(4, '\0');
    qToLittleEndian(quint32(length), prefix.data());
    return prefix;
}

bool sendAll(int socket, const char *data, qsizetype size)
{
    for (qsizetype done = 0; done < size;) {
        const ssize_t sent = ::send(socket, data + done, size_t(size - done), MSG_NOSIGNAL);
        if (sent <= 0)
            return false;
        done += sent;
    }
    return true;
}

bool receiveAll(int socket, char *data, qsizetype size)
{
    for (qsizetype done = 0; done < size;) {
        const ssize_t got = ::recv(socket, data + done, size_t(size - done), 0);
        if (got <= 0)
            return false;
        done += got;
    }
    return true;
}

/*!
 * A minimal archive server on a thread of its own, on 127.0.0.1 and a free
 * port. It answers QueryFileGroups with the prepared reply, the request's id
 * spliced in front of the rest, which goes out straight from the prepared
 * bytes; every other request (the client's GetBasePath first of all) with
 * its command's reply, written by the protocol layer.
 */
class ReplyServer
{
public:
    explicit ReplyServer(const QByteArray &queryReply)
        : m_queryReply(queryReply)
        , m_requestIdAt(queryReply.indexOf(placeholderRequestId()))
        , m_listener(::socket(AF_INET, SOCK_STREAM, 0))
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        if (::bind(m_listener, reinterpret_cast<sockaddr *>(&address), length) != 0 || ::listen(m_listener, 4) != 0
            || ::getsockname(m_listener, reinterpret_cast<sockaddr *>(&address), &length) != 0)
            return;
        m_port = ntohs(address.sin_port);
        m_thread = std::thread([this] {
            serve();
        });
    }
    ~ReplyServer()
    {
        // Wakes the thread from accept() or recv().
        ::shutdown(m_listener, SHUT_RDWR);
        const int connection = m_connection.exchange(-1);
        if (connection >= 0)
            ::shutdown(connection, SHUT_RDWR);
        if (m_thread.joinable())
            m_thread.join();
        ::close(m_listener);
    }
    ReplyServer(const ReplyServer &) = delete;
    ReplyServer &operator=(const ReplyServer &) = delete;

    //! 0 when the server could not listen.
    quint16 port() const { return m_requestIdAt < 0 ? 0 : m_port; }

private:
    void serve()
    {
        for (int connection; (connection = ::accept(m_listener, nullptr, nullptr)) >= 0;) {
            const int on = 1;
            ::setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            m_connection.store(connection);
            while (answerNextRequest(connection)) { }
            if (m_connection.exchange(-1) == connection)
                ::close(connection);
        }
    }

    bool answerNextRequest(int connection)
    {
        char prefix[4];
        if (!receiveAll(connection, prefix, sizeof prefix))
            return false;
        QByteArray payload(qFromLittleEndian<quint32>(prefix), Qt::Uninitialized);
        if (!receiveAll(connection, payload.data(), payload.size()))
            return false;
        const Kavro::SoapMessage request = Kavro::readSoapMessage(payload, Kavro::SoapSender::Client);
        if (request.element == QLatin1String("QueryFileGroups"))
            return sendQueryReply(connection, request.requestId.toUtf8());
        Kavro::SoapMessage reply = Kavro::SoapMessage::replyTo(request);
        if (request.element == QLatin1String("GetBasePath"))
            reply.values.insert(QStringLiteral("Path"), QDir::tempPath());
        reply.setError(Kavro::NoError, QString());
        const QByteArray document = Kavro::writeSoapMessage(reply);
        const QByteArray frame = lengthPrefix(document.size()) + document;
        return sendAll(connection, frame.constData(), frame.size());
    }

    bool sendQueryReply(int connection, const QByteArray &requestId)
    {
        const qsizetype restAt = m_requestIdAt + placeholderRequestId().size();
        const qsizetype restSize = m_queryReply.size() - restAt;
        const QByteArray head = lengthPrefix(m_requestIdAt + requestId.size() + restSize)
            + QByteArray::fromRawData(m_queryReply.constData(), m_requestIdAt) + requestId;
        return sendAll(connection, head.constData(), head.size())
            && sendAll(connection, m_queryReply.constData() + restAt, restSize);
    }

    const QByteArray m_queryReply;
    const qsizetype m_requestIdAt;
    const int m_listener;
    quint16 m_port = 0;
    std::atomic<int> m_connection{-1};
    std::thread m_thread;
};

qint64 statusBytes(const char *field)
{
    FILE *status = std::fopen("/proc/self/status", "r");
    if (!status)
        return -1;
    char line[256];
    qint64 kilobytes = -1;
    while (kilobytes < 0 && std::fgets(line, sizeof line, status)) {
        if (std::strncmp(line, field, std::strlen(field)) == 0)
            kilobytes = std::atoll(line + std::strlen(field));
    }
    std::fclose(status);
    return kilobytes < 0 ? -1 : kilobytes * 1024;
}

/*!
 * The most resident memory a call adds while it runs. Writing "5" to
 * /proc/self/clear_refs sets the kernel's high-water mark of the process
 * (VmHWM) to its current resident size, so VmHWM after the call minus VmRSS
 * just before it is the peak the call reached above what was resident
 * already. The prepared document, held by the server thread since before, is
 * resident already and so not counted; bytes in the kernel's socket buffers
 * are no one's resident memory. malloc_trim() first hands back to the system
 * what earlier calls freed: otherwise this call could reuse those pages
 * without raising the resident size, and its peak would read low.
 */
class PeakMemory
{
public:
    PeakMemory()
        : m_before(resetHighWaterMark() ? statusBytes("VmRSS:") : -1)
    {
    }
    //! -1 when the high-water mark could not be reset.
    qint64 added() const { return m_before < 0 ? -1 : statusBytes("VmHWM:") - m_before; }

private:
    static bool resetHighWaterMark()
    {
        ::malloc_trim(0);
        FILE *clear = std::fopen("/proc/self/clear_refs", "w");
        if (!clear)
            return false;
        const bool written = std::fputs("5", clear) >= 0;
        return std::fclose(clear) == 0 && written;
    }

    const qint64 m_before;
};

struct Sample {
    double milliseconds;
    qint64 peakBytes;
};

std::optional<Sample> measure(const std::function<bool()> &call)
{
    // A blocking call leaves its reply's signals queued for this thread; delivered here, they are gone before
    // the next call starts, and their memory with them.
    QCoreApplication::sendPostedEvents();
    const PeakMemory memory;
    const auto start = Clock::now();
    if (!call())
        return std::nullopt;
    const double milliseconds = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    return Sample{milliseconds, memory.added()};
}

//! One timed path and what its rounds gave.
struct Figure {
    const char *name;
    std::function<bool()> call;
    std::vector<double> milliseconds = {};
    qint64 peakBytes = -1;

    double median() const
    {
        std::vector<double> sorted = milliseconds;
        std::sort(sorted.begin(), sorted.end());
        return sorted[sorted.size() / 2];
    }
    void add(const Sample &sample)
    {
        milliseconds.push_back(sample.milliseconds);
        peakBytes = std::max(peakBytes, sample.peakBytes);
    }
};

bool blockingQuery(Kavro::KavroClient &client)
{
    unsigned int count = 0;
    client.QueryFiles(Kavro::FileQuery(), count);
    return count == groupCount;
}

// Runs the event loop from the request until the records of its reply have arrived.
bool asyncQuery(Kavro::KavroClient &client)
{
    QEventLoop loop;
    QString answered;
    qsizetype received = -1;
    int error = -1;
    QObject::connect(&client, &Kavro::KavroClient::QueryFileGroupRecordsSg, &loop,
                     [&](const QString &requestId, const QList<Kavro::FileGroupData> &groups, int code) {
                         answered = requestId;
                         received = groups.size();
                         error = code;
                         loop.quit();
                     });
    QTimer::singleShot(replyTimeoutMs, &loop, &QEventLoop::quit); // only against a reply that never comes
    const QString requestId = client.QueryFilesAsync(Kavro::FileQuery());
    if (!requestId.isEmpty() && answered.isEmpty())
        loop.exec();
    return answered == requestId && received == groupCount && error == Kavro::NoError;
}

// Reads every token of \a document, fed as the network would, in chunks; builds nothing.
bool walkInChunks(const QByteArray &document)
{
    QXmlStreamReader reader;
    qsizetype tokens = 0;
    for (qsizetype at = 0; at < document.size(); at += chunkSize) {
        reader.addData(QByteArray::fromRawData(document.constData() + at, std::min(chunkSize, document.size() - at)));
        for (QXmlStreamReader::TokenType token;
             (token = reader.readNext()) != QXmlStreamReader::Invalid && token != QXmlStreamReader::EndDocument;)
            ++tokens;
        if (reader.hasError() && reader.error() != QXmlStreamReader::PrematureEndOfDocumentError)
            return false;
    }
    return reader.tokenType() == QXmlStreamReader::EndDocument && tokens > groupCount;
}

#ifdef KAVRO_HAVE_PUGIXML
bool parseWithPugixml(const QByteArray &document)
{
    pugi::xml_document tree;
    return tree.load_buffer(document.constData(), size_t(document.size())).status == pugi::status_ok
        && tree.first_child();
}
#endif

// Opens the machine line of a figure; the caller adds its own fields and closes it.
void printJsonStart(const Figure &figure, qint64 documentBytes)
{
    std::printf("{\"figure\": \"%s\", \"groups\": %d, \"document_bytes\": %lld, \"median_ms\": %.1f, "
                "\"peak_bytes\": %lld, \"peak_over_document\": %.3f",
                figure.name, groupCount, static_cast<long long>(documentBytes), figure.median(),
                static_cast<long long>(figure.peakBytes), double(figure.peakBytes) / double(documentBytes));
}

void printHumanStart(const Figure &figure, qint64 documentBytes)
{
    std::printf("%s: median %.0f ms, peak +%.1f MB (%.2fx the document)", figure.name, figure.median(),
                megabytes(figure.peakBytes), double(figure.peakBytes) / double(documentBytes));
}

void printBaseline(const Figure &figure, qint64 documentBytes)
{
    printHumanStart(figure, documentBytes);
    std::printf("\n");
    printJsonStart(figure, documentBytes);
    std::printf("}\n");
}

void printClientFigure(const Figure &figure, const Figure &walk, const Figure *pugixml, qint64 documentBytes)
{
    const double ratio = figure.median() / walk.median();
    printHumanStart(figure, documentBytes);
    std::printf("; %.2fx the QXmlStreamReader walk", ratio);
    if (pugixml)
        std::printf(", %.2fx pugixml", figure.median() / pugixml->median());
    std::printf("\n");
    printJsonStart(figure, documentBytes);
    std::printf(", \"baseline_median_ms\": %.1f, \"ratio\": %.3f", walk.median(), ratio);
    if (pugixml)
        std::printf(", \"pugixml_median_ms\": %.1f, \"pugixml_ratio\": %.3f", pugixml->median(),
                    figure.median() / pugixml->median());
    std::printf("}\n");
}

int compare(Kavro::KavroClient &client, const QByteArray &document, int rounds)
{
    std::vector<Figure> figures = {
        {"blocking QueryFiles",
         [&client] {
             return blockingQuery(client);
         }},
        {"QueryFilesAsync until QueryFileGroupRecordsSg",
         [&client] {
             return asyncQuery(client);
         }},
        {"QXmlStreamReader walk, 64 KiB chunks",
         [&document] {
             return walkInChunks(document);
         }},
#ifdef KAVRO_HAVE_PUGIXML
        {"pugixml load_buffer",
         [&document] {
             return parseWithPugixml(document);
         }},
#endif
    };
    // Round 0 warms every path up and is not counted.
    for (int round = 0; round <= rounds; ++round) {
        for (Figure &figure : figures) {
            const std::optional<Sample> sample = measure(figure.call);
            if (!sample) {
                std::fprintf(stderr, "bench_largereply: %s failed\n", figure.name);
                return 1;
            }
            if (round > 0)
                figure.add(*sample);
        }
    }
    const Figure *pugixml = figures.size() > 3 ? &figures[3] : nullptr;
    printClientFigure(figures[0], figures[2], pugixml, document.size());
    printClientFigure(figures[1], figures[2], pugixml, document.size());
    for (std::size_t baseline = 2; baseline < figures.size(); ++baseline)
        printBaseline(figures[baseline], document.size());
    if (!pugixml)
        std::printf("pugixml: not found at configure time, left out\n");
    return 0;
}

// Blocking calls only, one line each: for "perf record".
int profile(Kavro::KavroClient &client, int calls)
{
    for (int call = 0; call < calls; ++call) {
        const std::optional<Sample> sample = measure([&client] {
            return blockingQuery(client);
        });
        if (!sample) {
            std::fprintf(stderr, "bench_largereply: blocking QueryFiles failed\n");
            return 1;
        }
        std::printf("blocking QueryFiles %d: %.0f ms, peak +%.1f MB\n", call + 1, sample->milliseconds,
                    megabytes(sample->peakBytes));
    }
    return 0;
}
} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const bool profiling = argc > 1 && std::strcmp(argv[1], "profile") == 0;
    const int countAt = profiling ? 2 : 1;
    const int count = argc > countAt ? std::max(1, std::atoi(argv[countAt])) : (profiling ? 5 : 3);

    const auto start = Clock::now();
    const QByteArray document = queryReplyDocument();
    std::printf("reply document: %d file groups, 3 files each, %.1f MB (%lld bytes), written in %.0f ms\n", groupCount,
                megabytes(document.size()), static_cast<long long>(document.size()),
                std::chrono::duration<double, std::milli>(Clock::now() - start).count());

    ReplyServer server(document);
    if (server.port() == 0) {
        std::fprintf(stderr, "bench_largereply: the reply server did not start\n");
        return 1;
    }
    auto client = std::make_unique<Kavro::KavroClient>(QStringLiteral("127.0.0.1"), server.port(),
                                                       QStringLiteral("bench"), QStringLiteral("bench"), QString());
    if (!waitForConnection(*client)) {
        std::fprintf(stderr, "bench_largereply: the client did not connect\n");
        return 1;
    }
    const int result = profiling ? profile(*client, count) : compare(*client, document, count);
    client.reset(); // before the server goes, so the client does not see it go
    return result;
}
