// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_TLSSETUP_P_H
#define KAVRO_TLSSETUP_P_H

#include <QSslConfiguration>
#include <QSslKey>
#include <QString>

namespace Kavro
{

class Settings;

/*!
 * \brief How the connection to the server is encrypted: not at all, or by
 * TLS with a configuration, or not yet, because the TLS settings name files
 * that cannot be used.
 */
struct TlsSetup {
    bool enabled = false;
    QSslConfiguration configuration;
    //! Why the configuration could not be made; no connection is attempted while it is set.
    QString problem;

    //! What the section [KAVRO] of \a settings says: "UseTls", "TlsCaCertificates", "TlsCertificate", "TlsKey".
    static TlsSetup fromSettings(const Settings &settings);
    //! TLS with \a configuration; a null configuration is no TLS.
    static TlsSetup fromConfiguration(const QSslConfiguration &configuration);
    /*!
     * TLS that trusts the CA certificates in \a caFile (the system's when
     * empty) and, when \a certificateFile is given, presents that
     * certificate with the key in \a keyFile. All PEM.
     */
    static TlsSetup fromFiles(const QString &caFile, const QString &certificateFile, const QString &keyFile);
};

/*!
 * The certificates in the PEM file \a path; empty, with \a error saying why,
 * when it holds none or cannot be read.
 */
QList<QSslCertificate> certificatesFromFile(const QString &path, QString *error);
//! The unencrypted private key (EC, RSA or DSA) in the PEM file \a path; null, with \a error, when there is none.
QSslKey privateKeyFromFile(const QString &path, QString *error);

} // namespace Kavro

#endif
