#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# What "brix serve --audit" and "--log" cost with small files: 4,000 files of 2,000 bytes are put and got, by
# turns without a record, with an audit and with lines of text. Prints milliseconds elapsed and milliseconds
# of the server's processor time for each run.
#   benchmarks/auditcost.sh [BRIX] [ROUNDS]
set -euo pipefail

brix=${1:-build/release/bin/brix}
rounds=${2:-9}
# In memory where that can be had: a disk's file system makes files the more slowly the more were just removed, which
# changes a run by more than a record costs.
scratch=/dev/shm
[ -d "$scratch" ] && [ -w "$scratch" ] || scratch=${TMPDIR:-/tmp}
work=$(mktemp -d -p "$scratch")
trap 'rm -rf "$work"' EXIT
export BRIX_PASSWORD=secret
mkdir "$work/home" "$work/files"
for i in $(seq 1 4000); do head -c 2000 /dev/urandom >"$work/files/$i"; done
"$brix" --quiet user add "$work/users.json" ann --home "$work/home" >/dev/null

milliseconds() { echo $(($(date +%s%N) / 1000000)); }

run() { # NAME OPTIONS...
    local name=$1 begin middle end line cpu
    shift
    coproc server { exec "$brix" --quiet serve --users "$work/users.json" "$@"; }
    local pid=$server_PID
    read -r line <&"${server[0]}"
    local url=brix://ann@${line#listening on }
    rm -rf "$work/home/files" "$work/back"
    begin=$(milliseconds)
    "$brix" --quiet put -r "$work/files" "$url/files"
    middle=$(milliseconds)
    "$brix" --quiet get -r "$url/files" "$work/back"
    end=$(milliseconds)
    cpu=$(awk '{ print ($14 + $15) * 10 }' "/proc/$pid/stat")
    kill -TERM "$pid"
    wait "$pid" || true
    echo "$name: put $((middle - begin)), get $((end - middle)), server $cpu"
}

for _ in $(seq 1 "$rounds"); do
    run plain
    run audit --audit "$work/audit.log" --audit-user op
    run text --log "$work/text.log"
done
