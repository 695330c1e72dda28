#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 Kavro developers
# SPDX-License-Identifier: MIT
# A throwaway PostgreSQL cluster for the tests, in a temporary directory on a
# free port of 127.0.0.1, without fsync: made with initdb, run with pg_ctl,
# removed again. Run as root, the cluster runs as the user postgres (initdb
# refuses root). The user "kavro" owns it and connects without a password.
#   scripts/test-postgresql.sh start STATE   starts it; STATE then holds its URL and directory
#   scripts/test-postgresql.sh stop STATE    stops and removes it
set -euo pipefail
action=${1:?usage: test-postgresql.sh start|stop STATE}
state=${2:?usage: test-postgresql.sh start|stop STATE}

bin=$(find /usr/lib/postgresql -maxdepth 2 -name bin -type d 2>/dev/null | sort -V | tail -n 1)
[ -n "$bin" ] || { echo "test-postgresql: no PostgreSQL server found; run scripts/install-deps.sh" >&2; exit 1; }

as_owner() {
    if [ "$(id -u)" -eq 0 ]; then
        runuser -u postgres -- "$@"
    else
        "$@"
    fi
}

case $action in
start)
    directory=$(mktemp -d /tmp/kavro-postgresql-XXXXXX)
    chmod 755 "$directory"
    [ "$(id -u)" -ne 0 ] || chown postgres: "$directory"
    as_owner "$bin/initdb" -D "$directory/data" -U kavro --auth=trust -E UTF8 --locale=C.UTF-8 >/dev/null
    # A port taken by someone else fails the start: the next one is tried.
    for attempt in $(seq 1 20); do
        port=$((20000 + (RANDOM % 20000)))
        if as_owner "$bin/pg_ctl" -D "$directory/data" -l "$directory/log" -w -t 60 start \
            -o "-p $port -k $directory -c listen_addresses=127.0.0.1 -c fsync=off -c synchronous_commit=off -c full_page_writes=off -c max_connections=300" \
            >/dev/null; then
            printf 'postgresql://kavro@127.0.0.1:%s/\n%s\n' "$port" "$directory" > "$state"
            exit 0
        fi
    done
    cat "$directory/log" >&2
    rm -rf "$directory"
    exit 1
    ;;
stop)
    [ -f "$state" ] || exit 0
    directory=$(sed -n 2p "$state")
    as_owner "$bin/pg_ctl" -D "$directory/data" -m immediate -w stop >/dev/null 2>&1 || true
    rm -rf "$directory" "$state"
    ;;
*)
    echo "usage: test-postgresql.sh start|stop STATE" >&2
    exit 2
    ;;
esac
