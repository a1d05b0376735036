"""Prints an SPDX document of what is linked into the program: linked_libraries.py BUILD_DIR VERSION
It names Debian's source packages, which contain the texts of their licences, and the file of any other
archive. Dated SOURCE_DATE_EPOCH, the same program gives the same document."""

import datetime
import gzip
import os
import pathlib
import re
import subprocess
import sys
import time
import uuid

BUILD, VERSION = pathlib.Path(sys.argv[1]).resolve(), sys.argv[2]
PROJECT = pathlib.Path(__file__).resolve().parent.parent
SYSROOT = PROJECT / "build/sysroot-arm64"


def output_of(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def installed_package(path):
    return output_of("dpkg-query", "--search", str(path)).split(": ")[0]


def origin(archive):
    """Name and version of an archive's source package, or its own name; None for one of this build."""
    path = pathlib.Path(os.path.normpath(archive))
    if not path.is_absolute() or path.is_relative_to(BUILD):
        return None
    try:
        return source_package(path)
    except (OSError, subprocess.CalledProcessError):  # the file is not from a Debian package
        return path.name, ""


def source_package(path):
    if path.is_relative_to(PROJECT / "build/archives"):
        return tuple(path.with_name("packages").read_text().strip().split("="))
    if path.is_relative_to(SYSROOT):
        machine = output_of("c++", "-dumpmachine").strip()
        name = installed_package("/" + str(path.relative_to(SYSROOT)).replace(path.parent.name, machine))
        log = SYSROOT / "usr/share/doc" / name.split(":")[0] / "changelog.Debian.gz"
        with gzip.open(log, "rt", encoding="utf-8") as file:
            return re.match(r"(\S+) \((\S+)\)", file.readline()).groups()
    # A cross compiler's libraries are built from the sources of another package.
    shown = output_of("dpkg-query", "--show", "--showformat",
                      "${Built-Using} ${source:Package} (= ${source:Version})", installed_package(path))
    return re.match(r"\s*(\S+) \(= (\S+)\)", shown).groups()


def print_package(name, version, supplier):
    identifier = "SPDXRef-" + re.sub("[^A-Za-z0-9.]", "-", name)
    print(f"\nPackageName: {name}\nSPDXID: {identifier}\nPackageVersion: {version or 'NOASSERTION'}\n"
          f"PackageSupplier: {supplier}\nPackageDownloadLocation: NOASSERTION\nFilesAnalyzed: false\n"
          "PackageLicenseConcluded: NOASSERTION\nPackageLicenseDeclared: NOASSERTION\n"
          "PackageCopyrightText: NOASSERTION")
    return identifier


def main():
    inputs = (BUILD / "rule_operation.cgi.inputs").read_text()
    archives = set(re.findall(r"^  (\S+\.a)\b", inputs, re.M))
    sources = sorted(set(filter(None, map(origin, archives))))
    created = datetime.datetime.fromtimestamp(int(os.environ.get("SOURCE_DATE_EPOCH", time.time())),
                                              datetime.timezone.utc)
    name = f"rule_operation-{VERSION}"
    namespace = uuid.uuid5(uuid.NAMESPACE_OID, f"{name} {created} {sources}")
    print(f"SPDXVersion: SPDX-2.3\nDataLicense: CC0-1.0\nSPDXID: SPDXRef-DOCUMENT\n"
          f"DocumentName: {name}\nDocumentNamespace: urn:uuid:{namespace}\n"
          f"Creator: Tool: {name}\nCreated: {created:%Y-%m-%dT%H:%M:%SZ}")
    program = print_package("rule_operation", VERSION, "NOASSERTION")
    print(f"Relationship: SPDXRef-DOCUMENT DESCRIBES {program}")
    for source, version in sources:
        library = print_package(source, version, "Organization: Debian" if version else "NOASSERTION")
        if version:
            print(f"ExternalRef: PACKAGE-MANAGER purl pkg:deb/debian/{source}@{version}?arch=source")
        print(f"Relationship: {program} STATIC_LINK {library}")


main()
