"""The Ansible module recorder_rules, run by the example playbook on the host recorder."""

import json
import os
import re
import subprocess

import pytest

from driver import PROJECT
from rule_client import Rule, read_entry

LIST = "event,channel,record,name\n536936448,3,5,Parking\n"
REFUSED = "event,channel\n537264129,9\n"
LINE = "536936448,3,,RecordControl,5,Parking,"


@pytest.fixture
def play(recorder, tmp_path):
    """Runs the playbook for three hosts; returns the result of each."""
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


def test_its_documentation():
    done = subprocess.run(["ansible-doc", "-M", PROJECT / "client/ansible/library", "-j", "recorder_rules"],
                          capture_output=True, text=True, check=True, env={**os.environ, "LC_ALL": "C.UTF-8"})
    page = json.loads(done.stdout)["recorder_rules"]
    assert set(page["doc"]["options"]) == {"url", "user", "password", "rules", "file", "delete_others", "force"}
    assert "recorder_rules" in page["examples"] and set(page["return"]) == {"outcomes", "refused"}
