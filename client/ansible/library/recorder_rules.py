#!/usr/bin/python3
"""An Ansible module that makes a recorder's rules match a list."""

import contextlib

from ansible.module_utils.basic import AnsibleModule
from ansible.module_utils.rule_client import (COLUMNS, Applier, NoAnswer, Refused, RuleClient, csv_line,
                                              make_rule, plan, quick_rules, read_lines)

DOCUMENTATION = """
module: recorder_rules
short_description: Make the quick rules of a recorder match a list
description:
  - Adds the rules that are missing, and replaces those that differ if the recorder accepts the new ones.
  - The module sends requests from where it runs, so give the recorders C(ansible_connection=local).
options:
  url:
    description: The address of the recorder's rule endpoint.
    type: str
    required: true
  user:
    description: The user of the recorder.
    type: str
  password:
    description: The password of the user.
    type: str
    default: ""
  rules:
    description: The rules. One of I(rules) and I(file) is required.
    type: list
    elements: dict
    suboptions:
      event: {description: The event ID., type: str, required: true}
      channel: {description: The channel of the camera., type: str, required: true}
      alarm: {description: The alarm input of the camera for the alarm event., type: str}
      action: {description: RecordControl if I(record) is given., type: str}
      record: {description: The channel to record., type: str}
      name: {description: The name of the rule., type: str}
      schedule: {description: The GUID of the schedule; otherwise the one for all day., type: str}
  file:
    description: A CSV file with the rules, whose first line names the columns as under I(rules).
    type: path
  delete_others:
    description: Delete the quick rules that are not in the list.
    type: bool
    default: false
  force:
    description: Do so even if the list has no rules.
    type: bool
    default: false
attributes:
  check_mode: {description: Asks the recorder which rules it would accept., support: full}
  diff_mode: {description: Shows the rules as lines of a CSV file., support: full}
author: The developers of the rule endpoint
"""

EXAMPLES = """
- name: The rules of the car park
  recorder_rules:
    url: "{{ rule_url }}"
    user: "{{ rule_user }}"
    password: "{{ rule_password }}"
    rules:
      - {event: 0x20010000, channel: 3, record: 5, name: Parking}
      - {event: 0x20020000, channel: 5, alarm: 0, name: Dock bell}
    delete_others: true
"""

RETURN = """
outcomes:
  description: How many rules were kept, added, replaced, deleted and refused, or would be in check mode.
  type: dict
  returned: unless the recorder does not answer
refused:
  description: The rules that the recorder refuses, each with the code and text of the refusal.
  type: list
  elements: str
  returned: unless the recorder does not answer
"""


def number_rules(rules):
    """The rules of the task, as read_lines gives those of a file."""
    for i, rule in enumerate(rules):
        try:
            yield f"rules[{i}]", make_rule(**{name: text or "" for name, text in rule.items()})
        except ValueError as failure:
            raise ValueError(f"rules[{i}]: {failure}") from failure


def to_csv(rules):
    return "".join(f"{csv_line(line)}\n" for line in [COLUMNS, *(rule.cells() for rule in sorted(
        rules, key=str))])


def apply(module, client):
    """Applies the list, or asks in check mode. Returns what the module returns."""
    params = module.params
    lines = list(number_rules(params["rules"]) if params["file"] is None else read_lines(params["file"]))
    if params["delete_others"] and not lines and not params["force"]:
        raise ValueError("the list has no rules, so all would be deleted; force does that")
    applier = Applier(client, module.check_mode)
    entries = client.list()
    before = [entry.rule for entry in quick_rules(entries)]
    if texts := applier.put_back():
        entries = client.list()
    for text in texts:
        module.warn(f"after an interrupted run: {text}")
    after = [entry.rule for entry in quick_rules(entries)]
    outcomes = dict.fromkeys(("kept", "added", "replaced", "deleted", "refused"), 0)
    refused = []
    try:
        for step, refusal in applier.take(lines, plan(lines, entries, params["delete_others"])):
            outcomes["refused" if refusal else step.outcome] += 1
            if refusal:
                refused.append(refusal)
            else:
                for entry in step.obsolete:
                    after.remove(entry.rule)
                after += [step.rule] if step.rule else []
    except NoAnswer:
        with contextlib.suppress(NoAnswer, Refused):
            refused += applier.put_back()
        for rule in applier.missing():
            module.warn(f"deleted until the next run: {csv_line(rule.cells())}")
        raise
    diff = {"before": to_csv(before), "after": to_csv(after)}
    return {"changed": diff["before"] != diff["after"], "diff": diff, "outcomes": outcomes,
            "refused": refused}


def main():
    texts = dict.fromkeys(COLUMNS, {"type": "str"})
    module = AnsibleModule(
        argument_spec={
            "url": {"type": "str", "required": True}, "user": {"type": "str"},
            "password": {"type": "str", "no_log": True, "default": ""},
            "rules": {"type": "list", "elements": "dict", "options": {
                **texts, "event": {"type": "str", "required": True},
                "channel": {"type": "str", "required": True}}},
            "file": {"type": "path"}, "delete_others": {"type": "bool", "default": False},
            "force": {"type": "bool", "default": False}},
        mutually_exclusive=[("rules", "file")], required_one_of=[("rules", "file")],
        supports_check_mode=True)
    try:
        client = RuleClient(module.params["url"], module.params["user"], module.params["password"])
        result = apply(module, client)
    except (NoAnswer, Refused, OSError, ValueError) as failure:
        module.fail_json(msg=str(failure))
    if result["refused"]:
        module.fail_json(msg="\n".join(result["refused"]), **result)
    module.exit_json(**result)


if __name__ == "__main__":
    main()
