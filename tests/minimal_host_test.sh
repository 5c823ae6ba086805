#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-2-Clause
# Copyright (c) 2026, the mp4vdec authors

# The example host decodes real streams through the shared library: every picture has its recorded MD5.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

fail() {
    echo "FAILED: $*"
    failures=$((failures + 1))
}

# host LIBRARY STREAM: pictures to $work/pictures, messages to $work/messages; sets status
host() {
    status=0
    ${MP4VDEC_EMULATOR:-} "$MP4VDEC_MINIMAL_HOST" "$@" >"$work/pictures" 2>"$work/messages" || status=$?
}

# check STREAM WIDTH HEIGHT
check() {
    host "$MP4VDEC_SHARED_LIBRARY" "$here/streams/$1.m4v"
    [ "$status" -eq 0 ] || fail "$1: exit status $status, $(cat "$work/messages")"
    split -b $(($2 * $3 * 3 / 2)) --filter=md5sum "$work/pictures" | cut -d' ' -f1 >"$work/got"
    awk '!/^#/ { print $2 }' "$here/streams/$1.md5" >"$work/want"
    [ -s "$work/want" ] || fail "$1: no pictures are expected"
    cmp -s "$work/want" "$work/got" || fail "$1: other pictures than recorded"
}

check o02_qcif_camera_q8 176 144
check o06_pal_interlaced 720 576

head -c 3000 "$here/streams/o02_qcif_camera_q8.m4v" >"$work/half.m4v"
host "$MP4VDEC_SHARED_LIBRARY" "$work/half.m4v"
[ "$status" -eq 1 ] || fail "half a stream: exit status $status instead of 1"
grep -q '^byte 2931: ERR_VID_MPEG4DEC_' "$work/messages" || fail "half a stream: $(cat "$work/messages")"

host "$work/none.so" "$work/half.m4v"
[ "$status" -eq 3 ] || fail "no library: exit status $status instead of 3"
host "$MP4VDEC_SHARED_LIBRARY" "$work/none.m4v"
[ "$status" -eq 3 ] || fail "no stream: exit status $status instead of 3"
host
[ "$status" -eq 2 ] || fail "no arguments: exit status $status instead of 2"

[ $failures -eq 0 ] && echo "the example host is fine"
exit $((failures > 0))
