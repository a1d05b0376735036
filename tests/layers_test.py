"""Checks that every file includes only from the folders that docs/architecture.md allows it."""

import re

from driver import PROJECT


def test_layers():
    page = (PROJECT / "docs/architecture.md").read_text()
    rows = re.findall(r"^\| `(\S+)/` \| .* \| (`.*`|nothing) \|$", page, re.MULTILINE)
    may_include = {folder: re.findall(r"`(\w+)`", others) for folder, others in rows}
    for top in ("platform", "rule_operation", "host"):
        for path in (*PROJECT.glob(f"{top}/**/*.h"), *PROJECT.glob(f"{top}/**/*.cpp")):
            folder = str(path.relative_to(PROJECT).parent)
            included = re.findall(r'^#include "(?:([^"\n]*)/)?[^/"\n]+"', path.read_text(), re.MULTILINE)
            for other in set(included) - {folder}:
                assert other.removeprefix(f"{top}/") in may_include[folder], path
