// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_TESTS_TESTCERTIFICATES_H
#define KAVRO_TESTS_TESTCERTIFICATES_H

#include <QProcess>
#include <QTemporaryDir>
#include <QtDebug>

/*!
 * The certificates of scripts/make-certificates.sh, made in a temporary directory: the CA "ca", the server's
 * "server" for 127.0.0.1, users "alice", "bob" and "admin", "mallory" of "other-ca", and alice's "expired".
 */
class TestCertificates
{
public:
    //! Runs the script; false, with its output shown, when it fails.
    bool make()
    {
        QProcess script;
        script.setProcessChannelMode(QProcess::MergedChannels);
        script.start(QStringLiteral("bash"), {QStringLiteral(KAVRO_CERTIFICATE_SCRIPT), m_directory.path()});
        if (script.waitForFinished(60000) && script.exitStatus() == QProcess::NormalExit && script.exitCode() == 0)
            return true;
        qWarning().noquote() << "make-certificates.sh failed:" << script.readAll();
        return false;
    }

    //! The PEM certificate of \a name.
    QString certificate(const QString &name) const { return m_directory.filePath(name + QLatin1String(".pem")); }
    QString key(const QString &name) const { return m_directory.filePath(name + QLatin1String(".key")); }

    //! The server's arguments for TLS, with client certificates of the CA unless \a clientCertificates is false.
    QStringList serverArguments(bool clientCertificates = true) const
    {
        QStringList arguments{QStringLiteral("--tls-cert"), certificate(QStringLiteral("server")),
                              QStringLiteral("--tls-key"), key(QStringLiteral("server"))};
        if (clientCertificates)
            arguments << QStringLiteral("--tls-client-ca") << certificate(QStringLiteral("ca"))
                      << QStringLiteral("--admin") << QStringLiteral("admin");
        return arguments;
    }

private:
    QTemporaryDir m_directory;
};

#endif
