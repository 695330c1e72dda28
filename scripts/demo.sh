#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 Kavro developers
# SPDX-License-Identifier: MIT
# The demonstration run by "make demo": the reference server on a temporary
# store and a free port, a session of the archive example against it, and
# the offline tour of the library. Leaves nothing running.
set -euo pipefail
build_dir=${1:-build}

demo_home=$(mktemp -d)
server_pid=""
cleanup() {
    if [ -n "$server_pid" ]; then
        kill -TERM "$server_pid" 2>/dev/null || true
        wait "$server_pid" 2>/dev/null || true
    fi
    rm -rf "$demo_home"
}
trap cleanup EXIT
# A configuration of the demo's own, so the user's settings play no part.
export KAVRO_CONFIG="$demo_home/kavro.ini"
printf '[KAVRO]\nType_Image=false\n' > "$KAVRO_CONFIG"
export USER=${USER:-demo}

echo "== Starting kavro-server on a temporary store"
mkfifo "$demo_home/port"
"$build_dir/server/kavro-server" --store "$demo_home/store" --listen 127.0.0.1:0 > "$demo_home/port" &
server_pid=$!
read -r port < "$demo_home/port"
echo "listening on 127.0.0.1:$port"

echo
echo "== Archiving a file and reading it back"
printf 'Kavro demo file\n' > "$demo_home/report.txt"
"$build_dir/examples/archive/kavro-archive" 127.0.0.1 "$port" "$demo_home/report.txt"

echo
echo "== Offline tour (configuration: Type_Image switched off)"
"$build_dir/examples/basics/kavro-basics"
echo
echo "== The same in German"
LANG=de_DE.UTF-8 LANGUAGE=de "$build_dir/examples/basics/kavro-basics" | sed -n '/error texts/,/lock/p'
