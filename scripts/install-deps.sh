#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 Kavro developers
# SPDX-License-Identifier: MIT
# Installs the Debian packages needed to build and test Kavro. Idempotent:
# prints nothing and installs nothing when every package is present.
# With --bench, also the benchmarks' peers (pugixml; KDSoap, built on Qt 5).
set -euo pipefail

packages=(
    cmake
    ninja-build
    g++
    make
    pkg-config
    clang-format
    qt6-base-dev        # Core, Network, Gui, Widgets, Sql, Test
    qt6-tools-dev       # CMake support for translations
    qt6-l10n-tools      # lrelease, lupdate
    qt6-qpa-plugins     # offscreen platform for widget tests
    xvfb                # a real X display for the dialogs' screenshots
    xauth               # xvfb-run needs it
    fonts-dejavu-core   # text in the rendered dialogs
    libqt6sql6-sqlite   # the reference server's database driver
    libqt6sql6-psql     # its driver for a catalogue on PostgreSQL
    postgresql          # the throwaway cluster the tests start (initdb, pg_ctl)
    zlib1g-dev
    openssl             # certificates for the TLS tests and the demonstration
)
if [ "${1:-}" = "--bench" ]; then
    packages+=(
        libpugixml-dev  # bench_largereply's parser peer
        libkdsoap-dev   # bench/peers: a SOAP-over-HTTP client and server (Qt 5)
    )
fi

missing=()
for package in "${packages[@]}"; do
    status=$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null || true)
    [ "$status" = "installed" ] || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || { echo "install-deps: run as root to install: ${missing[*]}" >&2; exit 1; }
    sudo="sudo"
fi
echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
