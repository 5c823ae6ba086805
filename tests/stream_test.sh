#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-2-Clause
# Copyright (c) 2026, the mp4vdec authors

# Decodes real streams with the player and compares every picture with its recorded MD5, for both deblocking
# thresholds. Streams outside the supported subset must be refused with the right error. A second folder of streams
# may be named by MP4VDEC_STREAMS.
set -euo pipefail

player=${MP4VDEC_PLAYER:?path of the player}
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
checked=0

fail() {
    echo "FAILED: $*"
    failures=$((failures + 1))
}

# expected NAME FIELD: a field of the list of streams that are not decoded in full
expected() {
    awk -F'\t' -v name="$1" -v field="$2" '$1 == name { print $field }' "$here/streams/EXPECTED.tsv"
}

# decode STREAM THRESHOLD: pictures to $work/got, report to $work/report; sets status
decode() {
    status=0
    "$player" decode "$1" --framemd5 - --deblock-threshold "$2" >"$work/got" 2>"$work/report" || status=$?
}

# pictures MD5FILE COLUMN: the wanted lines; nothing when there is no file
pictures() {
    if [ -e "$1" ]; then
        awk -v column="$2" '!/^#/ { print $1, $column }' "$1"
    fi
}

check() {
    local stream=$1 name=$2 threshold=$3 column=$4
    local want_status want_error
    want_status=$(expected "$name" 2)
    want_error=$(expected "$name" 3)
    decode "$stream" "$threshold"
    if [ "$want_status" = any ]; then
        [ "$status" -le 1 ] || fail "$name: exit status $status"
        return
    fi
    if [ "$status" -ne "${want_status:-0}" ]; then
        fail "$name: exit status $status instead of ${want_status:-0}"
        tail -n 3 "$work/report"
    fi
    if [ -n "$want_error" ] && ! grep -q "\b$want_error\b" "$work/report"; then
        fail "$name: $want_error is not reported"
    fi
    if grep -o 'ERR_VID_[A-Z0-9_]*' "$work/report" | grep -qvx "${want_error:-none}"; then
        fail "$name: other errors are reported"
    fi
    pictures "${stream%.*}.md5" "$column" >"$work/want"
    if ! cmp -s "$work/want" "$work/got"; then
        fail "$name: pictures differ with deblocking threshold $threshold (< want, > got)"
        diff "$work/want" "$work/got" | head -n 6 || true
    fi
}

check_folder() {
    local stream name
    for stream in "$1"/*.m4v "$1"/*.263; do
        [ -e "$stream" ] || continue
        name=$(basename "${stream%.*}")
        if [ ! -e "${stream%.*}.md5" ] && [ -z "$(expected "$name" 2)" ]; then
            fail "$name: nothing is recorded about it"
            continue
        fi
        check "$stream" "$name" 10 2
        check "$stream" "$name" 30 3
        checked=$((checked + 1))
    done
}

check_folder "$here/streams"
[ "$checked" -ge 45 ] || fail "only $checked streams were found in $here/streams"
if [ -n "${MP4VDEC_STREAMS:-}" ]; then
    before=$checked
    check_folder "$MP4VDEC_STREAMS"
    [ "$checked" -gt "$before" ] || fail "no streams were found in $MP4VDEC_STREAMS"
fi
echo "$checked streams, $failures failures"
[ "$failures" -eq 0 ]
