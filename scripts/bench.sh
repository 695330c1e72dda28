#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 Kavro developers
# SPDX-License-Identifier: MIT
# "make bench": runs every benchmark, prints its figures, and collects the
# machine-readable lines (those starting with "{") into bench/results.json.
set -euo pipefail
build_dir=${1:-build}
results=bench/results.json
lines=$(mktemp)
postgresql_state=$(mktemp -u)
# The PostgreSQL cluster bench_scale uses goes whatever happens ("stop" does nothing when none was started).
trap 'rm -f "$lines"; bash scripts/test-postgresql.sh stop "$postgresql_state"' EXIT

run() {
    "$@" | tee /dev/stderr | grep '^{' >> "$lines" || true
}

echo "== Framing through the separator (against memcpy)"
run "$build_dir/bench/bench_xmlseparator"
echo
echo "== Blocking round trip against kavro-server (against a raw socket client)"
run taskset -c 0 "$build_dir/bench/bench_roundtrip" pinned
run "$build_dir/bench/bench_roundtrip" unpinned
echo
echo "== A 50,000-group QueryFileGroups reply (against QXmlStreamReader and pugixml on the same bytes)"
run "$build_dir/bench/bench_largereply"
echo
echo "== kavro-server on 100,000 file groups: queries (against the store's own query), writes from 8 connections (against 1)"
run "$build_dir/bench/bench_server"
echo
echo "== kavro-server under 1, 10 and 50 clients at once: SQLite, PostgreSQL, two servers on one PostgreSQL database"
if bash scripts/test-postgresql.sh start "$postgresql_state"; then
    export KAVRO_TEST_POSTGRESQL=$postgresql_state
fi
run "$build_dir/bench/bench_scale"
echo
echo "== The SOAP-over-HTTP peer: blocking GetUserList through KDSoap (Qt 5), as shipped and with TCP_NODELAY"
if [ "$(dpkg-query -W -f='${db:Status-Status}' libkdsoap-dev 2>/dev/null || true)" = "installed" ]; then
    # A project of its own: Debian's KDSoap is built on Qt 5.
    cmake -S bench/peers -B "$build_dir/peers" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKAVRO_WERROR=ON >/dev/null
    cmake --build "$build_dir/peers" -- --quiet
    run taskset -c 0 "$build_dir/peers/kdsoap_roundtrip" pinned
else
    echo "skipped: KDSoap is not installed (bash scripts/install-deps.sh --bench installs it)"
fi

{
    printf '{\n  "machine": "%s, %s CPUs",\n  "date": "%s",\n  "figures": [\n' \
        "$(uname -srm)" "$(nproc)" "$(date -u +%Y-%m-%dT%H:%M:%SZ)"
    sed 's/^/    /; $!s/$/,/' "$lines"
    printf '  ]\n}\n'
} > "$results"
echo
echo "written: $results"
