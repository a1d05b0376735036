#!/bin/bash
# How the linked programs are hardened: hardening_test.sh PROGRAM...
set -euo pipefail

failures=0
for program in "$@"; do
    while IFS=: read -r what option pattern; do
        if ! readelf --wide "--$option" "$program" | grep -E "$pattern" >/dev/null; then
            echo "$program: no $what"
            failures=$((failures + 1))
        fi
    done <<'END'
position independence:file-header:Type: +DYN
position independence:dynamic:FLAGS_1.*PIE
binding at start (full RELRO):dynamic:FLAGS_1.*NOW
read-only relocations:program-headers:GNU_RELRO
stack without execution:program-headers:GNU_STACK .* RW +0x
stack protector:dyn-syms:__stack_chk_fail
checked library calls:dyn-syms:__(v?snprintf|printf|fprintf|memcpy|read|fread)_chk
END
done
[[ $failures == 0 ]]
