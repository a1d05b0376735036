"""Tests the Ansible module recorder_rules on the host recorder, by itself and in the example playbook."""

import json
import os
import re
import runpy
import subprocess
import sys

import ansible.module_utils.basic
import pytest

import rule_client
from driver import PROJECT
from rule_client import Rule, read_entry

LIST = "event,channel,record,name\n536936448,3,5,Parking\n"
MODULE = PROJECT / "client/ansible/library/recorder_rules.py"
NIGHT = "5C4ED01E000000000000000000000003"
REFUSED = "event,channel\n537264129,9\n"
LINE = "536936448,3,,RecordControl,5,Parking,"


@pytest.fixture
def play(recorder, tmp_path):
    """Returns a function that runs the playbook for three hosts. It checks the two that fail, and returns the
    output, the result of the third, and the rules on the recorder."""
    hosts = {"here": recorder.url, "refusing": recorder.url,
             "away": recorder.url.replace("http:", "https:")}
    inventory = {"recorders": {
        "hosts": {name: {"rule_url": url, "delete_others": name == "here"} for name, url in hosts.items()},
        "vars": {"ansible_connection": "local", "ansible_python_interpreter": "/usr/bin/python3",
                 "rule_user": recorder.user, "rule_password": recorder.password}}}
    (tmp_path / "recorders.yml").write_text(json.dumps(inventory))
    for folder in "library", "module_utils":
        (tmp_path / folder).symlink_to(PROJECT / "client/ansible" / folder)
    (tmp_path / "rules.yml").write_bytes((PROJECT / "client/ansible/rules.yml").read_bytes())
    (tmp_path / "files").mkdir()
    (tmp_path / "files/rules.csv").write_text(LIST)
    (tmp_path / "files/refusing.csv").write_text(REFUSED)

    def run(*options):
        done = subprocess.run(
            ["ansible-playbook", "-i", "recorders.yml", "rules.yml", *options], cwd=tmp_path,
            env={**os.environ, "HOME": str(tmp_path), "LC_ALL": "C.UTF-8",
                 "ANSIBLE_CALLBACKS_ENABLED": "tree", "ANSIBLE_CALLBACK_TREE_DIR": str(tmp_path / "results")},
            capture_output=True, text=True)
        texts = {name: (tmp_path / "results" / name).read_text() for name in hosts}
        assert recorder.password not in done.stdout + done.stderr + "".join(texts.values())
        hosts.update((name, json.loads(text)) for name, text in texts.items())
        assert done.stdout.count("failed=1") == 2 and "WRONG_VERSION_NUMBER" in hosts["away"]["msg"]
        assert hosts["refusing"]["msg"] == (
            "{}/files/refusing.csv:2: event 537264129 on channel 9, 'clientRule': "
            "Error ch-9 GUID is NULL, please check camera is added (-200)".format(tmp_path))
        assert not hosts["refusing"]["changed"] and hosts["refusing"]["outcomes"]["refused"] == 1
        return done.stdout, hosts["here"], [read_entry(entry).rule for entry in recorder.client.list()]
    return run


def test_the_example_playbook(play, recorder):
    other = Rule(536936448, 4)
    recorder.client.add(other)
    shown, result, rules = play("--check", "--diff")
    assert result["changed"] and result["outcomes"]["added"] == 1
    assert [rule[:2] for rule in rules] == [other[:2]]
    assert set(re.findall("^[+-][0-9].{16}", shown, re.MULTILINE)) == {f"+{LINE[:17]}", "-536936448,4,,,,cl"}
    _, result, rules = play()
    assert result["changed"] and result["outcomes"] == {"kept": 0, "added": 1, "replaced": 0, "deleted": 1,
                                                        "refused": 0}
    assert [rule[:5] for rule in rules] == [(536936448, 3, None, 5, "Parking")]
    assert play()[1]["changed"] is False


@pytest.fixture
def module(recorder, tmp_path, monkeypatch, capsys):
    """Returns a function that runs the module in this process and returns its result."""
    monkeypatch.setitem(sys.modules, "ansible.module_utils.rule_client", rule_client)
    monkeypatch.setenv("XDG_STATE_HOME", str(tmp_path))
    # Later versions of Ansible also need to know in which form they get the arguments.
    monkeypatch.setattr(ansible.module_utils.basic, "_ANSIBLE_PROFILE", "legacy", raising=False)
    main = runpy.run_path(str(MODULE))["main"]

    def run(**arguments):
        login = {"url": recorder.url, "user": recorder.user, "password": recorder.password}
        monkeypatch.setattr(ansible.module_utils.basic, "_ANSIBLE_ARGS", json.dumps(
            {"ANSIBLE_MODULE_ARGS": {**login, **arguments}}).encode())
        pytest.raises(SystemExit, main)
        printed = capsys.readouterr().out
        assert "module_args" in printed and recorder.password not in printed
        return json.loads(printed)
    return run


def test_a_list_of_rules(module, recorder):
    rules = [{"event": 0x20010000, "channel": 3, "record": 0, "action": "RecordControl", "name": "a, b"},
             {"event": "0x20020000", "channel": 5, "alarm": 0, "schedule": NIGHT}]
    wanted = {Rule(0x20010000, 3, record=0, name="a, b"), Rule(0x20020000, 5, alarm=0, schedule=NIGHT)}
    result = module(rules=rules)
    assert (result["changed"], result["outcomes"]["added"]) == (True, 2)
    created = [read_entry(entry).rule for entry in recorder.client.list()]
    assert all(any(rule.met_by(other) for other in created) for rule in wanted)
    assert module(rules=[{"event": "x", "channel": 3}])["msg"] == "rules[0]: not a number from 0: 'x'"
    assert module(rules=[], delete_others=True)["msg"].startswith("the list has no rules")
    result = module(rules=[rules[0] | {"record": 9}])
    assert result["failed"] and not result["changed"]
    assert "(-211); the rule that was there stays" in result["msg"]
    assert module(rules=[], delete_others=True, force=True)["outcomes"]["deleted"] == 2
    assert module(rules=[], password="wrong")["msg"] == "Authorized failed (-2)"


def test_a_recorder_that_goes_away(module, recorder, monkeypatch):
    """The connection is lost when the old rule is deleted, and is back for the next run."""
    recorder.client.add(Rule(0x20010000, 3))
    request = rule_client.RuleClient.request
    gone = []

    def go_away(client, method, *arguments):
        if gone:
            raise ConnectionRefusedError(111, "Connection refused")
        gone.extend([method] * (method == "DELETE"))
        return request(client, method, *arguments)

    with monkeypatch.context() as patched:
        patched.setattr(rule_client.RuleClient, "request", go_away)
        patched.setattr("time.sleep", lambda _: None)
        result = module(rules=[{"event": 0x20010000, "channel": 3, "name": "new"}])
    assert result["msg"].endswith(": Connection refused") and not recorder.client.list()
    assert "deleted until the next run: 536936448,3,,,,clientRule," in str(result["warnings"][0])
    result = module(rules=[{"event": 0x20010000, "channel": 3, "record": 9}])
    assert "after an interrupted run: put back event 536936448 on " in str(result["warnings"][-1])
    assert result["changed"] and [entry["name"] for entry in recorder.client.list()] == ["clientRule"]


def test_its_documentation():
    done = subprocess.run(["ansible-doc", "-M", PROJECT / "client/ansible/library", "-j", "recorder_rules"],
                          capture_output=True, text=True, check=True, env={**os.environ, "LC_ALL": "C.UTF-8"})
    page = json.loads(done.stdout)["recorder_rules"]
    assert set(page["doc"]["options"]) == {"url", "user", "password", "rules", "file", "delete_others",
                                           "force"}
    assert "recorder_rules" in page["examples"] and set(page["return"]) == {"outcomes", "refused"}
