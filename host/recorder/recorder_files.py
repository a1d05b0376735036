"""The files of a host recorder, protected from other users of the machine: the lock that allows only one
recorder, the directory, and the files that exist before the recorder starts."""

import contextlib
import fcntl
import os
import pathlib
import secrets
import shutil
import stat
import subprocess
import sys
import tempfile

PROJECT = pathlib.Path(__file__).resolve().parents[2]
LOCK = "/tmp/rule-recorder.lock"
SCRATCH_PREFIX = "rule-recorder-state."
SCRATCH_MARK = "scratch"  # the file in such a directory that contains its name
USER = "admin"
MAX_PASSWORD_LENGTH = 511  # bytes; crypt(3) accepts no more
MAX_LOG_SIZE = 8 * 1024 * 1024
# The files that the recorder opens in its directory.
FILES = ("password", "users", "cameras.txt", "rules.db", "rules.db-wal", "rules.db-shm", "rule.log",
         "config_service.log", "web_server.log", "rule_errors.log")


class RecorderError(Exception):
    """A recorder cannot run; the text says why."""


def lock_machine():
    """Waits until no other recorder runs on this machine, and keeps others waiting until the
    descriptor that it returns is closed."""
    # An existing file may be another user's, so it is opened for reading only and without O_CREAT.
    flags = os.O_RDONLY | os.O_NONBLOCK | os.O_NOFOLLOW
    try:
        try:
            descriptor = os.open(LOCK, flags | os.O_CREAT | os.O_EXCL)
            os.fchmod(descriptor, 0o644)
        except FileExistsError:
            descriptor = os.open(LOCK, flags)
    except OSError as error:
        raise RecorderError(f"cannot lock {LOCK}: {error.strerror}") from error
    if not stat.S_ISREG(os.fstat(descriptor).st_mode):
        raise RecorderError(f"cannot lock {LOCK}: not a regular file")
    try:
        fcntl.flock(descriptor, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except BlockingIOError:
        print("waiting for another recorder on port 10141 to end", file=sys.stderr)
        fcntl.flock(descriptor, fcntl.LOCK_EX)
    return descriptor


def make_scratch_directory():
    """Creates a directory that its caller removes, and removes those of killed recorders: whoever
    has the lock runs the only one. A copy of such a directory has another name and stays."""
    for path in pathlib.Path(tempfile.gettempdir()).glob(SCRATCH_PREFIX + "*/"):
        with contextlib.suppress(OSError, UnicodeDecodeError):
            if (path.lstat().st_uid == os.geteuid() and
                    (path / SCRATCH_MARK).read_text() == path.name):
                shutil.rmtree(path, ignore_errors=True)
    path = pathlib.Path(tempfile.mkdtemp(prefix=SCRATCH_PREFIX))
    write_file(path / SCRATCH_MARK, path.name)
    return path


def prepare(state):
    """Creates the missing files in the directory `state`; returns the password."""
    try:
        make_private_directory(state)
        for name in FILES:
            if (state / name).exists() and not (state / name).is_file():
                raise RecorderError(f"{state / name}: not a regular file")
        if (state / "rule.log").exists() and (state / "rule.log").stat().st_size > MAX_LOG_SIZE:
            (state / "rule.log").replace(state / "rule.log.1")
        (state / "www").mkdir(exist_ok=True)
        reference = state / "www/reference"
        reference.unlink(missing_ok=True)
        reference.symlink_to(PROJECT / "build/reference")
        if not (state / "cameras.txt").exists():
            write_file(state / "cameras.txt",
                       (PROJECT / "host/recorder/cameras.txt").read_text())
        password = read_or_make_password(state / "password")
        write_file(state / "users", f"{USER}:{hash_password(password)}\n")
    except OSError as error:
        raise RecorderError(f"no recorder can be kept in {state}: "
                            f"{error.filename}: {error.strerror}") from error
    return password


def make_private_directory(path):
    """Creates the directory if it is missing. Refuses one that other users can change, rename or replace."""
    for part in (path, *path.parents):
        if part.is_symlink() and part.lstat().st_uid not in (0, os.geteuid()):
            raise RecorderError(f"{part} is a symbolic link of another user")
    path.mkdir(mode=0o700, parents=True, exist_ok=True)
    status = path.stat()
    if status.st_uid != os.geteuid() or status.st_mode & (stat.S_IWGRP | stat.S_IWOTH):
        raise RecorderError(f"{path}: other users can write there")
    for parent in {*path.parents, *path.resolve().parents}:
        status = parent.stat()
        is_shared = status.st_mode & (stat.S_IWGRP | stat.S_IWOTH) and not status.st_mode & stat.S_ISVTX
        if status.st_uid not in (0, os.geteuid()) or is_shared:
            raise RecorderError(f"{path}: other users can rename it in {parent}")


def write_file(path, text):
    """Writes the file as a whole or not at all, and to the disk; only its owner can read it."""
    new = path.with_name(path.name + ".new")
    with open(os.open(new, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o600), "w") as file:
        file.write(text)
        file.flush()
        os.fsync(file.fileno())
    new.replace(path)
    directory = os.open(path.parent, os.O_RDONLY)
    os.fsync(directory)
    os.close(directory)


def read_or_make_password(path):
    if not path.exists():
        write_file(path, secrets.token_hex(12) + "\n")
    try:
        password = path.read_text(encoding="utf-8").rstrip("\n")
    except UnicodeDecodeError:
        password = ""
    if not 0 < len(password.encode()) <= MAX_PASSWORD_LENGTH or "\n" in password or "\0" in password:
        raise RecorderError(f"{path} must hold one line with the password, of at most {MAX_PASSWORD_LENGTH}"
                            " bytes of UTF-8; without the file the recorder makes one")
    return password


def hash_password(password):
    """The hash of crypt(3), with few rounds because every request computes it."""
    return subprocess.run(["mkpasswd", "--method=sha256crypt", "--rounds=1000", "--stdin"],
                          input=password, text=True, check=True, stdout=subprocess.PIPE).stdout.strip()
