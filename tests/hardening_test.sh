#!/bin/bash
# How the linked programs are hardened: hardening_test.sh PROGRAM...
set -euo pipefail

failures=0

# check PROGRAM WHAT PATTERN READELF_OPTION: what readelf prints must match.
check() {
    if ! readelf --wide "$4" "$1" | grep -E "$3" >/dev/null; then
        echo "$1: no $2"
        failures=$((failures + 1))
    fi
}

for program in "$@"; do
    check "$program" 'position independence' 'Type: +DYN' --file-header
    check "$program" 'position independence' 'FLAGS_1.*PIE' --dynamic
    check "$program" 'binding at start (full RELRO)' 'FLAGS_1.*NOW' --dynamic
    check "$program" 'read-only relocations' 'GNU_RELRO' --program-headers
    check "$program" 'stack without execution' 'GNU_STACK .* RW +0x' --program-headers
    check "$program" 'stack protector' '__stack_chk_fail' --dyn-syms
    check "$program" 'checked library calls' '__(v?snprintf|printf|fprintf|memcpy|read|fread)_chk' \
        --dyn-syms
done
[[ $failures == 0 ]]
