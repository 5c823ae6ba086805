# SPDX-License-Identifier: BSD-2-Clause
# Copyright (c) 2026, the mp4vdec authors

# What bash completes behind "mp4vdec".
_mp4vdec() {
    local word=$2 previous=$3 words=
    COMPREPLY=()
    if [ "$COMP_CWORD" -eq 1 ]; then
        words="decode info compare inspect --help --version"
    else
        case $previous in
            --format) words="y4m i420 nv12 png" ;;
            --on-error) words="skip stop repeat" ;;
            --deblock-threshold) words="10 30" ;;
            --skip | --limit | --fps | --jobs | -j | --verify | --picture | --chunk) return ;;
        esac
        if [[ $word == -* && -z $words ]]; then
            words=$("$1" "${COMP_WORDS[1]}" --help 2>/dev/null | grep -oE -- '^  +-[-a-z0-9,]*' | tr ',' ' ')
        fi
    fi
    if [ -n "$words" ]; then
        mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
    else
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
    fi
}
complete -o filenames -F _mp4vdec mp4vdec
