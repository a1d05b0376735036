#!/bin/bash
# How the program is hardened: hardening_test.sh PROGRAM LIBRULE_OPERATION_A
# The program shows the linker's options, and the archive of its objects the compiler's: a program linked
# static has the C library's checks in any case.
set -euo pipefail

failures=0
# check FILE: against the lines of standard input.
check() {
    while IFS=: read -r what option pattern; do
        if ! readelf --wide "--$option" "$1" | grep -E "$pattern" >/dev/null; then
            echo "$1: no $what"
            failures=$((failures + 1))
        fi
    done
}

check "$1" <<'END'
position independence:file-header:Type: +DYN
position independence:dynamic:FLAGS_1.*PIE
binding at start (full RELRO):dynamic:FLAGS_1.*NOW
read-only relocations:program-headers:GNU_RELRO
stack without execution:program-headers:GNU_STACK .* RW +0x
END
check "$2" <<'END'
stack protector:syms:UND __stack_chk_fail
checked library calls:syms:UND __(v?snprintf|printf|fprintf|memcpy|read|fread)_chk
END
[[ $failures == 0 ]]
