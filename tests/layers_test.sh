#!/bin/bash
# Every file includes only what its folder builds on.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

mapfile -t files < <(find platform rule_operation host -name '*.cpp' -o -name '*.h')
# Each line of the table: a folder, and what it may include besides its own headers.
awk '
    function folder(path) { sub("/[^/]*$", "", path); return path }
    FILENAME == "-" { for (i = 1; i <= NF; i++) may_include[$1, $i]; next }
    /^#include "/ && !((folder(FILENAME), folder(substr($2, 2))) in may_include) {
        print FILENAME " includes " $2
        failures++
    }
    END { exit failures > 0 }
' - "${files[@]}" <<'END'
platform
rule_operation/shared platform
rule_operation/request rule_operation/shared
rule_operation/documents platform rule_operation/shared
rule_operation/config_access platform rule_operation/shared
rule_operation/creation platform rule_operation/shared rule_operation/request rule_operation/documents rule_operation/config_access
rule_operation/deletion platform rule_operation/shared rule_operation/config_access
rule_operation/front_end platform rule_operation/shared rule_operation/request rule_operation/config_access rule_operation/creation rule_operation/deletion
host/common
host/platform platform host/common
host/config_service host/common
END
