// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "tlssetup_p.h"

#include "settings_p.h"

#include <QFile>
#include <QSslKey>

namespace Kavro
{

QList<QSslCertificate> certificatesFromFile(const QString &path, QString *error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("cannot read %1: %2").arg(path, file.errorString());
        return {};
    }
    const QList<QSslCertificate> certificates = QSslCertificate::fromDevice(&file, QSsl::Pem);
    if (certificates.isEmpty())
        *error = QStringLiteral("%1 holds no PEM certificate").arg(path);
    return certificates;
}

QSslKey privateKeyFromFile(const QString &path, QString *error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("cannot read %1: %2").arg(path, file.errorString());
        return {};
    }
    const QByteArray pem = file.readAll();
    for (const QSsl::KeyAlgorithm algorithm : {QSsl::Ec, QSsl::Rsa, QSsl::Dsa}) {
        const QSslKey key(pem, algorithm, QSsl::Pem, QSsl::PrivateKey);
        if (!key.isNull())
            return key;
    }
    *error = QStringLiteral("%1 holds no unencrypted PEM private key").arg(path);
    return {};
}

TlsSetup TlsSetup::fromConfiguration(const QSslConfiguration &configuration)
{
    TlsSetup setup;
    setup.enabled = !configuration.isNull();
    setup.configuration = configuration;
    return setup;
}

TlsSetup TlsSetup::fromFiles(const QString &caFile, const QString &certificateFile, const QString &keyFile)
{
    TlsSetup setup = fromConfiguration(QSslConfiguration::defaultConfiguration());
    QSslConfiguration &configuration = setup.configuration;
    configuration.setProtocol(QSsl::TlsV1_2OrLater);
    configuration.setPeerVerifyMode(QSslSocket::VerifyPeer);
    QString error;
    if (!caFile.isEmpty())
        configuration.setCaCertificates(certificatesFromFile(caFile, &error));
    if (error.isEmpty() && certificateFile.isEmpty() != keyFile.isEmpty())
        error = QStringLiteral("a client certificate needs its key, and a key its certificate");
    if (error.isEmpty() && !certificateFile.isEmpty()) {
        configuration.setLocalCertificate(certificatesFromFile(certificateFile, &error).value(0));
        if (error.isEmpty())
            configuration.setPrivateKey(privateKeyFromFile(keyFile, &error));
    }
    setup.problem = error;
    return setup;
}

TlsSetup TlsSetup::fromSettings(const Settings &settings)
{
    const QString caFile = settings.stringValue(QStringLiteral("TlsCaCertificates"), QString());
    const QString certificateFile = settings.stringValue(QStringLiteral("TlsCertificate"), QString());
    // Naming certificates asks for TLS; "UseTls" may still say no.
    if (!settings.boolValue(QStringLiteral("UseTls"), !caFile.isEmpty() || !certificateFile.isEmpty()))
        return {};
    TlsSetup setup = fromFiles(caFile, certificateFile, settings.stringValue(QStringLiteral("TlsKey"), QString()));
    if (!setup.problem.isEmpty())
        setup.problem = QStringLiteral("the TLS settings in [KAVRO] cannot be used: %1").arg(setup.problem);
    // Only a setting that says so by name lets an unverified server through.
    if (settings.boolValue(QStringLiteral("TlsAcceptUnverifiedServer"), false))
        setup.configuration.setPeerVerifyMode(QSslSocket::QueryPeer);
    return setup;
}

} // namespace Kavro
