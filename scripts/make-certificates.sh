#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 Kavro developers
# SPDX-License-Identifier: MIT
# Makes certificates for trying TLS out: a CA (ca.pem), a server certificate
# for 127.0.0.1 and localhost (server.pem, server.key), users alice, bob and
# admin signed by the CA (NAME.pem, NAME.key), mallory signed by another CA
# (other-ca.pem), and an expired certificate of alice (expired.pem,
# expired.key). Keys are unencrypted P-256 keys: for tests and the
# demonstration, not for production.
#   scripts/make-certificates.sh DIR
set -euo pipefail

dir=${1:?usage: make-certificates.sh DIR}
mkdir -p "$dir"
cd "$dir"

key_options=(-newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes)

authority() { # NAME COMMON-NAME
    openssl req -x509 "${key_options[@]}" -subj "/CN=$2" -days 3650 -keyout "$1.key" -out "$1.pem" 2>/dev/null
}

# NAME COMMON-NAME CA DAYS [EXTENSIONS]: a key and a certificate signed by CA, valid for DAYS (negative: expired)
issue() {
    openssl req "${key_options[@]}" -subj "/CN=$2" -keyout "$1.key" -out "$1.csr" 2>/dev/null
    local extensions=()
    if [ -n "${5:-}" ]; then
        printf '%s\n' "$5" >"$1.ext"
        extensions=(-extfile "$1.ext")
    fi
    openssl x509 -req -in "$1.csr" -CA "$3.pem" -CAkey "$3.key" -CAcreateserial -days "$4" -sha256 \
        "${extensions[@]}" -out "$1.pem" 2>/dev/null
    rm -f "$1.csr" "$1.ext"
}

authority ca "Kavro Test CA"
authority other-ca "Another CA"
issue server kavro-server ca 3650 "subjectAltName=IP:127.0.0.1,IP:::1,DNS:localhost"
for user in alice bob admin; do
    issue "$user" "$user" ca 3650
done
issue mallory mallory other-ca 3650
issue expired alice ca -1
rm -f ./*.srl
