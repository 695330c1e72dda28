// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "session.h"

#include <QEventLoop>

using namespace Kavro;

Session::Session(KavroClient &client, Output &output)
    : m_client(client)
    , m_output(output)
{
}

std::unique_ptr<KavroReply> Session::run(KavroReply *request)
{
    std::unique_ptr<KavroReply> reply(request);
    // The reply finishes by itself, at the latest after the client's reply timeout.
    QEventLoop loop;
    QObject::connect(reply.get(), &KavroReply::finished, &loop, &QEventLoop::quit);
    if (!reply->isFinished())
        loop.exec();
    if (reply->error() == NoError)
        return reply;
    const bool noReply = reply->error() == ErrorNotConnected || reply->error() == ErrorReplyTimeout;
    m_failure = m_output.error(reply->error(), reply->errorString(), noReply ? ExitNoConnection : ExitServerError);
    return nullptr;
}

int Session::fail(KavroError code, const QString &text, int exitCode)
{
    m_failure = m_output.error(code, text, exitCode);
    return m_failure;
}
