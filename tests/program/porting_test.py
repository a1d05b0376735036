"""Builds the program with the platforms of docs/porting.md and stand-ins for a device's libraries, and checks
how it is linked and what is installed."""

import os
import re
import subprocess

import pytest

from driver import PROJECT

PAGE = (PROJECT / "docs/porting.md").read_text()
PLATFORMS = dict(zip(["libraries", "wrapper", "own json-c"],
                     re.findall(r"^```cmake\n(.*?)^```", PAGE, re.DOTALL | re.MULTILINE), strict=True))
PLATFORMS["nothing"] = ""
VERSION = re.search(r"VERSION (\d\S+) LANG", (PROJECT / "CMakeLists.txt").read_text())[1]
EXAMPLE = sorted(PROJECT.glob("examples/device_platform/*.cpp"))
LOG = """
#include "platform/rule_log.h"
void device_log(const char* format, ...);
void rule_log(const char* /*format*/, ...) { device_log("line"); }
"""


def run(*command, **options):
    return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **options)


def make_library(path, *arguments):
    run("g++", "-std=c++17", "-shared", "-fPIC", f"-I{PROJECT}", "-o", path, "-x", "c++", *arguments,
        check=True)


@pytest.fixture(scope="module")
def directory(tmp_path_factory):
    """A directory with the platforms, and with the device's libraries in lib. Some of these need
    libvendor.so, which no platform names."""
    path = tmp_path_factory.mktemp("porting")
    (path / "lib").mkdir()
    link = ["-x", "none", "-Wl,--no-as-needed", f"-L{path}/lib"]
    make_library(path / "lib/libvendor.so", "/dev/null", *link, "-ljson-c")
    make_library(path / "lib/libcgi.so", *EXAMPLE, *link, "-lvendor")
    make_library(path / "lib/libconfig.so", "/dev/null", *link, "-lvendor")
    make_library(path / "lib/libdevice.so", "-Drule_log=device_log", *EXAMPLE)
    for name, lists in PLATFORMS.items():
        (path / name).mkdir()
        (path / name / "CMakeLists.txt").write_text(lists)
        (path / name / "device_log.cpp").write_text(LOG)
        (path / name / "device_platform.cpp").write_text(
            "".join(f'#include "{source}"\n' for source in EXAMPLE) + "static int a_warning;\n")
    return path


def build(directory, platform, *options):
    """Configures and builds the platform in the build directory that all cases share; returns the output."""
    done = run("cmake", "-S", PROJECT, "-B", directory / "build", "-G", "Ninja", "-DBUILD_TESTING=OFF",
               "-DCMAKE_BUILD_TYPE=Debug", f"-DDEVICE_LIB_DIR={directory}/lib",
               f"-DRULE_PLATFORM_DIR={directory / platform}", *options)
    if done.returncode:
        return done.stdout
    return done.stdout + run("cmake", "--build", directory / "build").stdout


@pytest.mark.parametrize("platform, link, archives, expected", [
    ("own json-c", "", "", []),
    ("own json-c", "mixed", "JSONCPP;LIBSTDCXX", ["json-c"]),
    ("own json-c", "shared", "", ["json-c", "jsoncpp", "stdc++"]),
    ("libraries", "", "", ["cgi", "json-c", "jsoncpp", "stdc++"]),
    ("libraries", "mixed", "JSONCPP", ["cgi", "json-c", "stdc++"]),
    ("wrapper", "mixed", "JSONCPP;JSON_C", ["device", "stdc++"]),
    ("libraries", "mixed", "JSONCPP;JSON_C", "needs libjson-c"),
    ("wrapper", "static", "", "libdevice.so of the platform's target rule_platform"),
    ("nothing", "", "", "defines no library rule_platform"),
])
def test_platform(platform, link, archives, expected, directory):
    program = directory / "build/bin/rule_operation.cgi"
    program.unlink(missing_ok=True)
    output = build(directory, platform, f"-DRULE_LINK={link}", f"-DRULE_MIXED_ARCHIVES={archives}")
    if isinstance(expected, str):
        assert expected in " ".join(output.split()), output
        assert not program.exists()
    else:
        assert program.exists(), output
        needed = re.findall(r"\[lib(.*)\.so", run("readelf", "--dynamic", program).stdout)
        assert sorted(set(needed) - {"c", "gcc_s", "m"}) == expected


def test_installed_files(directory):
    build(directory, "own json-c", "-DRULE_LINK=static", "-DCMAKE_INSTALL_PREFIX=/usr")
    image = directory / "image"
    print(run("cmake", "--install", directory / "build", "--component", "program", "--prefix", "/opt/rule",
        env={**os.environ, "DESTDIR": image}, check=True).stdout)
    print(run("cpack", "-B", directory / "packed", cwd=directory / "build", check=True).stdout)
    package, = (directory / "packed").glob("*-program.tar.gz")
    (image / "packed").mkdir()
    run("tar", "--extract", "--file", package, "--directory", image / "packed")
    for prefix, root in ("/opt/rule", image), ("/usr", image / "packed"):
        program = root / prefix.lstrip("/") / "libexec/rule_operation/rule_operation.cgi"
        data = root / prefix.lstrip("/") / "share/rule_operation"
        assert f"\nrule_operation {VERSION}\n" in run("strings", program).stdout
        assert (data / "lighttpd.conf").read_text().startswith(
            f'var.rule_program = "{prefix}/libexec/rule_operation/rule_operation.cgi"\n')
        assert "PackageName: libjsoncpp\n" in (data / "rule_operation.spdx").read_text()
