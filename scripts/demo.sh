#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 Kavro developers
# SPDX-License-Identifier: MIT
# The demonstration run by "make demo": the reference server on a temporary
# store and a free port, a walk through the kavro tool against it, and the
# offline tour of the library. Leaves nothing running.
set -euo pipefail
build_dir=${1:-build}

demo_home=$(mktemp -d)
server_pids=()
cleanup() {
    for pid in "${server_pids[@]}"; do
        kill -TERM "$pid" 2>/dev/null || true
        wait "$pid" 2>/dev/null || true
    done
    rm -rf "$demo_home"
}
trap cleanup EXIT
# A configuration of the demo's own, so the user's settings play no part.
export KAVRO_CONFIG="$demo_home/kavro.ini"
printf '[KAVRO]\nType_Image=false\n' > "$KAVRO_CONFIG"
export USER=${USER:-demo}

start_server() { # STORE [ARGUMENTS...]: starts a server, sets $port and appends to $server_pids
    local store=$1
    shift
    rm -f "$demo_home/port"
    mkfifo "$demo_home/port"
    # The log, audit trail included, goes to a file of the store's own.
    "$build_dir/server/kavro-server" --store "$store" --listen 127.0.0.1:0 "$@" > "$demo_home/port" \
        2> "$store.log" &
    server_pids+=("$!")
    read -r port < "$demo_home/port" || { cat "$store.log" >&2; exit 1; }
}
# Shows each command as typed, then its output.
kavro() {
    local shown=("$@")
    echo "\$ kavro ${shown[*]}"
    "$build_dir/cli/kavro" --port "$port" "$@"
}

echo "== Starting kavro-server on a temporary store"
start_server "$demo_home/store"
first_port=$port
echo "listening on 127.0.0.1:$port"

echo
echo "== The kavro tool"
kavro ping
head -c 300000 /dev/urandom > "$demo_home/scan.bin"
printf 'Kavro demo report\n' > "$demo_home/report.txt"
kavro --user alice put "$demo_home/report.txt" "$demo_home/scan.bin" --comment "demo upload"
guid=$("$build_dir/cli/kavro" --port "$port" --json query --name report |
    sed -n 's/.*"guid":"\([0-9a-f-]*\)".*/\1/p')
kavro files "$guid"
kavro get "kavro:///$guid/2" -o "$demo_home/scan.copy"
cmp "$demo_home/scan.bin" "$demo_home/scan.copy" && echo "(the copy is byte for byte the original)"
kavro meta "$guid"
kavro query --comment demo

echo
echo "== Alice reads while Bob wants to write: the write lock is refused"
mkfifo "$demo_home/go"
"$build_dir/cli/kavro" --port "$port" --user alice get "kavro:///$guid/2" |
    { read -r _ < "$demo_home/go"; cat > /dev/null; } &
reader=$!
until "$build_dir/cli/kavro" --port "$port" --json query --name report --lock 2 | grep -q '"count":1'; do
    sleep 0.1
done
kavro --user bob get "kavro:///$guid/2" --write -o "$demo_home/bob.bin" || echo "(refused, exit code $?)"
echo > "$demo_home/go"
wait "$reader"
kavro --user bob get "kavro:///$guid/2" --write -o "$demo_home/bob.bin" && echo "(now Bob has it)"

echo
echo "== References, export, and import into a second server"
kavro --app viewer ref add "$guid"
kavro --json meta "$guid" | grep -o '"references":[0-9]*'
kavro export "$demo_home/store/archives/demo" "$guid"
start_server "$demo_home/store2" --archive-root "$demo_home/store/archives"
echo "a second server listens on 127.0.0.1:$port"
kavro import "$demo_home/store/archives/demo"
kavro files "$guid"
port=$first_port
kavro rm "$guid"
kavro exists "$guid"

echo
echo "== TLS with client certificates: alice's lock, which bob cannot release and the administrator can"
certs=$demo_home/certs
bash "$(dirname "$0")/make-certificates.sh" "$certs"
start_server "$demo_home/store3" --tls-cert "$certs/server.pem" --tls-key "$certs/server.key" \
    --tls-client-ca "$certs/ca.pem" --admin admin
echo "a TLS server listens on 127.0.0.1:$port; users prove who they are by certificate, admin may act for others"
as() { # USER ARGUMENTS...: the kavro tool with USER's certificate
    local user=$1
    shift
    "$build_dir/cli/kavro" --port "$port" --cacert "$certs/ca.pem" --cert "$certs/$user.pem" \
        --key "$certs/$user.key" "$@"
}
shown_as() { # the same, shown as typed
    echo "\$ kavro --cacert ca.pem --cert $1.pem --key $1.key ${*:2}"
    as "$@"
}
shown_as alice put "$demo_home/scan.bin"
guid=$(as alice --json query --name scan | sed -n 's/.*"guid":"\([0-9a-f-]*\)".*/\1/p')
# alice's tool takes a read lock and is killed while it holds it, as a crash would: the lock stays.
mkfifo "$demo_home/stuck"
"$build_dir/cli/kavro" --port "$port" --cacert "$certs/ca.pem" --cert "$certs/alice.pem" --key "$certs/alice.key" \
    get "kavro:///$guid/1" > "$demo_home/stuck" &
getter=$!
disown "$getter"
exec 3< "$demo_home/stuck"
until as alice --json query --name scan --lock 2 | grep -q '"count":1'; do
    sleep 0.1
done
kill -KILL "$getter"
while kill -0 "$getter" 2>/dev/null; do
    sleep 0.05
done
exec 3<&-
echo "(alice's tool was killed while it held a read lock on kavro:///$guid/1)"
shown_as bob unlock "kavro:///$guid/1" --owner alice || echo "(refused, exit code $?: bob cannot act for alice)"
shown_as bob rm "$guid" || echo "(refused, exit code $?: bob did not create the group)"
shown_as admin unlock "kavro:///$guid/1" --owner alice && echo "(the administrator released alice's lock)"
shown_as alice rm "$guid"
echo "The audit trail:"
grep -o ' audit .*' "$demo_home/store3.log" | tail -n 4

echo
echo "== Offline tour (configuration: Type_Image switched off)"
"$build_dir/examples/basics/kavro-basics"
echo
echo "== The same in German"
LANG=de_DE.UTF-8 LANGUAGE=de "$build_dir/examples/basics/kavro-basics" | sed -n '/error texts/,/lock/p'
