"""Every file includes only what its folder builds on."""

import re

from recorder import PROJECT

# Each folder, with what it may include besides its own headers.
LAYERS = """
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
"""


def test_layers():
    may_include = {line.split()[0]: line.split() for line in LAYERS.strip().splitlines()}
    for top in ("platform", "rule_operation", "host"):
        for path in (*PROJECT.glob(f"{top}/**/*.h"), *PROJECT.glob(f"{top}/**/*.cpp")):
            folder = str(path.relative_to(PROJECT).parent)
            included = re.findall(r'^#include "(?:(.*)/)?[^/]+"', path.read_text(), re.MULTILINE)
            assert set(included) <= set(may_include[folder]), path
