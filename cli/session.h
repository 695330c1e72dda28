// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_CLI_SESSION_H
#define KAVRO_CLI_SESSION_H

#include "output.h"

#include <kavro/kavroclient.h>
#include <kavro/kavroreply.h>

#include <memory>

//! The exit codes of the tool.
enum ExitCode {
    ExitSuccess = 0,
    ExitServerError = 1, //!< the server reported an error
    ExitUsage = 2, //!< the command line is wrong
    ExitNoConnection = 3, //!< no connection, or no reply in time
};

/*!
 * One run against the server: the connected client, the output, and the
 * waiting for replies. A failed reply is reported at once and decides the
 * exit code.
 */
class Session
{
public:
    Session(Kavro::KavroClient &client, Output &output);

    Kavro::KavroClient &client() { return m_client; }
    Output &output() { return m_output; }
    //! Waits for \a reply; null, after reporting the error, when it failed.
    std::unique_ptr<Kavro::KavroReply> run(Kavro::KavroReply *reply);
    //! The exit code of the last failure.
    int failure() const { return m_failure; }
    //! Reports an error found by the tool itself, such as a local file that cannot be read.
    int fail(Kavro::KavroError code, const QString &text, int exitCode = ExitServerError);

private:
    Kavro::KavroClient &m_client;
    Output &m_output;
    int m_failure = ExitSuccess;
};

#endif
