#!/bin/bash
# Every file includes only what its folder builds on.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

declare -A may_include=(
    [platform]=''
    [rule_operation/shared]='platform rule_operation/shared'
    [rule_operation/request]='rule_operation/shared'
    [rule_operation/documents]='platform rule_operation/shared'
    [rule_operation/config_access]='platform rule_operation/shared'
    [rule_operation/creation]='platform rule_operation/shared rule_operation/request
        rule_operation/documents rule_operation/config_access'
    [rule_operation/deletion]='platform rule_operation/shared rule_operation/config_access'
    [rule_operation/front_end]='platform rule_operation/shared rule_operation/request
        rule_operation/config_access rule_operation/creation rule_operation/deletion'
    [host/common]=''
    [host/platform]='platform host/common'
    [host/config_service]='host/common'
    [host/camera_cache]='platform'
)

failures=0
for folder in platform rule_operation/* host/*/; do
    folder=${folder%/}
    [[ $folder != rule_operation/CMakeLists.txt && $folder != host/web_server ]] || continue
    if [[ ! -v may_include[$folder] ]]; then
        echo "$folder: a folder without a place in the order"
        failures=$((failures + 1))
        continue
    fi
    while IFS=: read -r file _ header; do
        header=${header#*\"}
        if [[ " $folder ${may_include[$folder]} " != *[[:space:]]"${header%/*}"[[:space:]]* ]]; then
            echo "$file includes $header"
            failures=$((failures + 1))
        fi
    done < <(grep -n '^#include "' "$folder"/*.cpp "$folder"/*.h 2>/dev/null)
done
[[ $failures == 0 ]]
