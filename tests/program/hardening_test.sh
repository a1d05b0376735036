#!/bin/bash
# Checks how the program is hardened: hardening_test.sh PROGRAM LIBRULE_OPERATION_A
# The program shows the linker's options. The compiler's are looked up in the archive of the program's objects,
# because a static program contains the C library's checks in any case.
set -euo pipefail

# check FILE OPTION PATTERN: fails unless readelf with OPTION prints a line that matches PATTERN.
check() {
    if ! readelf --wide "$2" "$1" | grep -E "$3" >/dev/null; then
        echo "$1: $2 shows no $3"
        exit 1
    fi
}

# Position independence and binding at start, read-only relocations, a non-executable stack.
check "$1" --dynamic 'FLAGS_1.* NOW .*PIE'
check "$1" --program-headers GNU_RELRO
check "$1" --program-headers 'GNU_STACK .* RW +0x'
# Stack protector, checked library calls.
check "$2" --syms 'UND __stack_chk_fail'
check "$2" --syms 'UND __(v?snprintf|printf|fprintf|memcpy|read|fread)_chk'
