"""The recorder's files on a machine with other users."""

import os

import pytest

from recorder_files import RecorderError, lock_machine, prepare


def test_directory_in_which_others_can_write_is_refused(tmp_path):
    tmp_path.chmod(0o770)
    with pytest.raises(RecorderError, match="other users can write there"):
        prepare(tmp_path)


@pytest.mark.parametrize("password", ["", "\n", "two\nlines\n"])
def test_password_that_is_no_line_is_refused(tmp_path, password):
    (tmp_path / "password").write_text(password)
    with pytest.raises(RecorderError, match="must hold one line"):
        prepare(tmp_path)


def test_password_is_kept(tmp_path):
    first = prepare(tmp_path)
    assert (first, 0o600) == (prepare(tmp_path), (tmp_path / "password").stat().st_mode & 0o777)


@pytest.mark.parametrize("make", [os.mkfifo, os.mkdir, lambda path: os.symlink("elsewhere", path)])
def test_lock_that_is_no_file_is_refused(tmp_path, monkeypatch, make):
    make(tmp_path / "lock")
    monkeypatch.setattr("recorder_files.LOCK", tmp_path / "lock")
    with pytest.raises(RecorderError, match="cannot lock"):
        lock_machine()
