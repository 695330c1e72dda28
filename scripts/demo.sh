#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 Kavro developers
# SPDX-License-Identifier: MIT
# The demonstration run by "make demo": a tour of the library on this machine.
set -euo pipefail
build_dir=${1:-build}

demo_home=$(mktemp -d)
trap 'rm -rf "$demo_home"' EXIT
# A configuration of the demo's own, so the user's settings play no part.
export KAVRO_CONFIG="$demo_home/kavro.ini"
printf '[KAVRO]\nType_Image=false\n' > "$KAVRO_CONFIG"

echo "== Kavro demo (configuration: Type_Image switched off)"
"$build_dir/examples/basics/kavro-basics"
echo
echo "== The same in German"
LANG=de_DE.UTF-8 LANGUAGE=de "$build_dir/examples/basics/kavro-basics" | sed -n '/error texts/,/lock/p'
