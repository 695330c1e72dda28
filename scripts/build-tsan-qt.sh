#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 Kavro developers
# SPDX-License-Identifier: MIT
# Builds Qt's Core, Network, Sql and Test from Debian's own qt6-base source
# with ThreadSanitizer, once, into a cache outside the source tree, and
# prints the install prefix. Debian's Qt is not built for ThreadSanitizer:
# run against it, every queued call and every mutex is reported as a race.
#
#   KAVRO_TSAN_QT_CACHE  cache directory (default ~/.cache/kavro/qt-tsan)
set -euo pipefail

cache=${KAVRO_TSAN_QT_CACHE:-$HOME/.cache/kavro/qt-tsan}
prefix="$cache/install"
if [ -f "$prefix/.complete" ]; then
    echo "$prefix"
    exit 0
fi

log() { echo "build-tsan-qt: $*" >&2; }
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"

# Debian's source packages: a deb-src entry beside the binary ones.
if ! apt-get source --help >/dev/null 2>&1 || ! grep -rqs 'deb-src' /etc/apt/sources.list /etc/apt/sources.list.d/; then
    log "adding Debian source entries"
    printf 'Types: deb-src\nURIs: http://deb.debian.org/debian\nSuites: bookworm bookworm-updates\nComponents: main\nSigned-By: /usr/share/keyrings/debian-archive-keyring.gpg\n' |
        $sudo tee /etc/apt/sources.list.d/kavro-src.sources >/dev/null
    $sudo apt-get update -qq
fi
for package in dpkg-dev xz-utils libdouble-conversion-dev libpcre2-dev libb2-dev libzstd-dev libsqlite3-dev; do
    dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null | grep -q installed ||
        DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "$package" >/dev/null
done

work="$cache/work"
rm -rf "$work"
mkdir -p "$work"
cd "$work"
log "fetching qt6-base source"
apt-get source --download-only qt6-base >/dev/null 2>&1
dpkg-source -x qt6-base_*.dsc qtbase >/dev/null

log "configuring (Core, Network, Sql, Test with -fsanitize=thread)"
cmake -S qtbase -B build -G Ninja \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_INSTALL_PREFIX="$prefix" \
    -DFEATURE_sanitize_thread=ON \
    -DFEATURE_gui=OFF -DFEATURE_widgets=OFF -DFEATURE_dbus=OFF -DFEATURE_concurrent=OFF \
    -DFEATURE_sql_sqlite=ON -DFEATURE_system_sqlite=ON -DFEATURE_system_zlib=ON \
    -DFEATURE_glib=OFF -DFEATURE_icu=OFF \
    -DQT_BUILD_EXAMPLES=OFF -DQT_BUILD_TESTS=OFF >"$work/configure.log" 2>&1 ||
    { tail -40 "$work/configure.log" >&2; exit 1; }

log "building (about ten minutes on two cores)"
cmake --build build --parallel "$(nproc)" >"$work/build.log" 2>&1 || { tail -40 "$work/build.log" >&2; exit 1; }
cmake --install build >"$work/install.log" 2>&1
touch "$prefix/.complete"
rm -rf "$work"
echo "$prefix"
