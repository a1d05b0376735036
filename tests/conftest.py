"""The options and fixtures that several tests share."""

import pytest

from driver import PROJECT, Recorder, stop, wait_until


def pytest_addoption(parser):
    parser.addoption("--bin-dir", default=PROJECT / "build/dev/bin",
                     help="directory of the programs under test")


@pytest.fixture(scope="session")
def bin_dir(pytestconfig):
    return pytestconfig.getoption("bin_dir")


@pytest.fixture(scope="module")
def running_recorder(bin_dir):
    with Recorder(bin_dir) as recorder:
        recorder.start()
        yield recorder
        stop(recorder.service)
        # The findings of a sanitizer would appear in these logs.
        log = (recorder.state / "config_service.log").read_text()
        assert set(log.splitlines()) == {"configuration service listening on 127.0.0.1:10141"}
        assert (recorder.state / "rule_errors.log").read_text() == ""
        assert not any(path.stat().st_mode & 0o077 for path in recorder.state.iterdir())
    assert recorder.web.poll() == 0 and not recorder.state.exists()


@pytest.fixture
def recorder(running_recorder):
    """A running recorder that has no rules and serves no request. The test must leave no program running."""
    client = running_recorder.client
    client.delete([rule["GUID"] for rule in client.list()])
    assert wait_until(lambda: not running_recorder.running_programs())
    yield running_recorder
    assert wait_until(lambda: not running_recorder.running_programs())
