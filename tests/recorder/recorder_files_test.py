"""Tests that the recorder's files are safe on a machine with other users."""

import os
import shutil
import tempfile
from concurrent.futures import ThreadPoolExecutor

import pytest

import recorder_files
from driver import PROJECT, wait_until
from recorder_files import RecorderError, lock_machine, make_scratch_directory, prepare


@pytest.mark.parametrize("owner, mode, is_safe", [
    (0, 0o770, False), (0, 0o707, False), (0, 0o1777, True), (65534, 0o755, False)])
def test_directory_around_it(tmp_path, owner, mode, is_safe):
    """A recorder's directory is refused if other users can rename it."""
    around, link = tmp_path / "around", tmp_path / "link"
    (around / "state").mkdir(parents=True)
    (around / "state").chmod(0o700)
    link.symlink_to(around / "state")
    around.chmod(mode)
    if os.geteuid() == 0:
        os.chown(around, owner, -1)
    elif owner:
        pytest.skip("only root can give a directory away")
    for path in around / "new", link:
        if is_safe:
            assert prepare(path)
        else:
            with pytest.raises(RecorderError, match="other users can rename it in"):
                prepare(path)
    if is_safe and os.geteuid() == 0:
        os.chown(link, 65534, -1, follow_symlinks=False)
        with pytest.raises(RecorderError, match="link is a symbolic link of another user"):
            prepare(link)


@pytest.mark.parametrize("mode", [0o720, 0o702])
def test_directory_in_which_others_can_write_is_refused(tmp_path, mode):
    tmp_path.chmod(mode)
    with pytest.raises(RecorderError, match="other users can write there"):
        prepare(tmp_path)


@pytest.mark.parametrize("name", ["password", "users", "cameras.txt", "rules.db", "rule.log",
                                  "config_service.log", "web_server.log", "rule_errors.log"])
@pytest.mark.parametrize("make", [os.mkfifo, os.mkdir])
def test_what_is_no_file_is_refused(tmp_path, name, make):
    make(tmp_path / name)
    with pytest.raises(RecorderError, match=f"{name}: not a regular file$"):
        prepare(tmp_path)


@pytest.mark.parametrize("password, is_line", [
    (b"", False), (b"\n", False), (b"two\nlines\n", False), (b"\xff\n", False), (b"a\0b", False),
    (511 * b"x", True), (512 * b"x", False), ("ä€".encode() + b"\n", True)])
def test_password_of_a_file(tmp_path, password, is_line):
    (tmp_path / "password").write_bytes(password)
    if is_line:
        assert prepare(tmp_path).encode() == password.rstrip(b"\n")
    else:
        with pytest.raises(RecorderError, match="must hold one line with the password, of at most 511 bytes"):
            prepare(tmp_path)


def test_what_is_there_is_kept(tmp_path):
    log = tmp_path / "rule.log"
    first = prepare(tmp_path)
    (tmp_path / "cameras.txt").write_text("7\n")
    log.write_text("")
    os.truncate(log, 8 * 2**20)
    assert (first, 0o600) == (prepare(tmp_path), (tmp_path / "password").stat().st_mode & 0o777)
    assert (tmp_path / "cameras.txt").read_text() == "7\n" and log.exists()
    os.truncate(log, 8 * 2**20 + 1)
    prepare(tmp_path)
    assert (tmp_path / "rule.log.1").stat().st_size == 8 * 2**20 + 1 and not log.exists()
    assert (tmp_path / "users").read_text().startswith("admin:$5$rounds=1000$")
    assert os.readlink(tmp_path / "www/reference") == str(PROJECT / "build/reference")


def test_only_own_scratch_directories_are_removed(tmp_path, monkeypatch):
    monkeypatch.setattr(tempfile, "tempdir", str(tmp_path))
    first = make_scratch_directory()
    copy = first.with_name("rule-recorder-state.saved")
    shutil.copytree(first, copy)
    other = first.with_name("rule-recorder-state.other")
    other.mkdir()
    if os.geteuid() == 0:
        (other / "scratch").write_text(other.name)
        os.chown(other, 65534, -1)
    second = make_scratch_directory()
    assert {*tmp_path.iterdir()} == {second, copy, other}


@pytest.mark.parametrize("make", [os.mkfifo, os.mkdir, lambda path: os.symlink("elsewhere", path)])
def test_lock_that_is_no_file_is_refused(tmp_path, monkeypatch, make):
    make(tmp_path / "lock")
    monkeypatch.setattr(recorder_files, "LOCK", tmp_path / "lock")
    with pytest.raises(RecorderError, match="cannot lock .*/lock: (not a regular|Too many)"):
        lock_machine()


def test_another_recorder_waits(tmp_path, monkeypatch, capsys):
    monkeypatch.setattr(recorder_files, "LOCK", tmp_path / "lock")
    first = lock_machine()
    assert (tmp_path / "lock").stat().st_mode & 0o777 == 0o644
    with ThreadPoolExecutor() as pool:
        second = pool.submit(lock_machine)
        said = wait_until(lambda: capsys.readouterr().err or second.done())
        is_waiting = not wait_until(second.done, 0.05)
        os.close(first)
    assert said == "waiting for another recorder on port 10141 to end\n" and is_waiting
    os.close(second.result())
