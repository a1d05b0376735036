"""The rules, profiles and schedules in their SQLite database."""

import contextlib
import json
import sqlite3

from rule_nodes import Code, Node, Refusal, Type, read_content, within_call

MAX_ENTRY_LENGTH = 65536  # characters of a rule in the rule list

VERSION = 2  # that of 1.0.0 was 1
SCHEMA = """
    CREATE TABLE schedule (id INTEGER PRIMARY KEY, name TEXT NOT NULL,
        guid TEXT NOT NULL UNIQUE COLLATE NOCASE) STRICT;
    CREATE TABLE node (id INTEGER PRIMARY KEY, name TEXT NOT NULL, description TEXT NOT NULL,
        guid TEXT NOT NULL UNIQUE COLLATE NOCASE, type INTEGER NOT NULL CHECK (type IN (0, 3, 4)),
        active INTEGER NOT NULL, content TEXT NOT NULL, event_id INTEGER) STRICT;
    CREATE TABLE rule_profile (rule INTEGER NOT NULL REFERENCES node ON DELETE CASCADE,
        profile INTEGER NOT NULL REFERENCES node DEFERRABLE INITIALLY DEFERRED,
        PRIMARY KEY (rule, profile)) STRICT, WITHOUT ROWID;
    CREATE INDEX rules_of_profile ON rule_profile (profile);
    INSERT INTO schedule (name, guid) VALUES
        ('_ALL_DAY_', '5C4ED01E000000000000000000000001'),
        ('Working hours', '5C4ED01E000000000000000000000002'),
        ('Night', '5C4ED01E000000000000000000000003')"""
# The column holds a node as the rule list shows it, in JSON; that of a rule includes its profiles.
ADDED_IN_2 = "ALTER TABLE node ADD COLUMN entry TEXT NOT NULL DEFAULT ''"

COLUMNS = "name, description, guid, type, active, content, event_id"


class RuleDatabase:
    """A connection to the database, for one operation at a time. GUIDs are compared case-insensitively.
    Each operation raises sqlite3.Error when the database fails, and then has changed nothing. What an
    operation has changed or shown survives a crash and a power failure. A crash right after a failed
    write can still leave the whole change."""

    def __init__(self, file):
        """Opens the file. Sets up a new one with a few schedules; converts one of 1.0.0 and keeps a copy of
        it beside it. Raises ValueError for a database of another kind."""
        self.connection = sqlite3.connect(file, timeout=2, isolation_level=None,
                                          check_same_thread=False)
        version = self._value("PRAGMA user_version")
        is_new = version == 0 and self._value("SELECT count(*) FROM sqlite_schema") == 0
        if not is_new and version not in (1, VERSION):
            raise ValueError("the file is not a rule database")
        for setting in "foreign_keys = ON", "journal_mode = WAL", "synchronous = FULL":
            self._run("PRAGMA " + setting)
        if version == 1:
            with contextlib.closing(sqlite3.connect(f"{file}.before-1.1")) as copy:
                # Otherwise a power failure could bring back the journal that empties the copy.
                copy.execute("PRAGMA synchronous = EXTRA")
                self.connection.backup(copy)
        if version != VERSION:
            self._set_up(is_new)
        self._make_durable()

    def _set_up(self, is_new):
        with self._transaction():
            for statement in SCHEMA.split(";") if is_new else ():
                self._run(statement)
            self._run(ADDED_IN_2)
            for identity, *columns in self._run(f"SELECT id, {COLUMNS} FROM node"
                                                " ORDER BY type = 0").fetchall():
                node = Node(*columns)
                content = read_content(node)
                entry = compose_entry(node, content, self._profiles(content))
                self._run("UPDATE node SET entry = ? WHERE id = ?", entry, identity)
            self._run(f"PRAGMA user_version = {VERSION}")

    def _make_durable(self):
        """Moves the log into the database: what a crashed service left there may not be on the disk."""
        is_busy, *_ = self._run("PRAGMA wal_checkpoint(TRUNCATE)").fetchone()
        if is_busy:
            raise ValueError("another process uses the database")

    def is_stuck(self, error):
        """Whether no transaction can succeed after this error, because one could not be undone or a lock
        could not be released."""
        return (self.connection.in_transaction or
                getattr(error, "sqlite_errorcode", None) == sqlite3.SQLITE_PROTOCOL)

    def schedules(self):
        rows = self._run("SELECT name, guid FROM schedule ORDER BY id")
        return [{"name": name, "GUID": guid} for name, guid in rows]

    def nodes(self):
        """All nodes in the order of their creation."""
        return [Node(*row) for row in self._run(f"SELECT {COLUMNS} FROM node ORDER BY id")]

    def rule_list(self):
        """The rule list as JSON text."""
        rules = self._run("SELECT entry FROM node WHERE type = 0 ORDER BY id")
        return '{"ruleList": [' + ", ".join(entry for entry, in rules) + "]}"

    def add(self, nodes):
        """Adds all nodes, each with its content, or none; each may refer to those before it. Raises
        Refusal with GUID_IN_USE or UNKNOWN_REFERENCE."""
        with self._transaction():
            for position, (node, content) in enumerate(nodes):
                with within_call(position):
                    self._add(node, content)

    def _add(self, node, content):
        if self._value("SELECT 1 FROM node WHERE guid = ?", node.guid):
            raise Refusal(Code.GUID_IN_USE, f"GUID {node.guid} is already in use")
        if content.schedule and not self._value("SELECT 1 FROM schedule WHERE guid = ?",
                                                content.schedule):
            raise Refusal(Code.UNKNOWN_REFERENCE, f"there is no schedule {content.schedule}")
        profiles = self._profiles(content)
        added = self._run(f"INSERT INTO node ({COLUMNS}, entry) VALUES (?, ?, ?, ?, ?, ?, ?, ?)",
                          *node, compose_entry(node, content, profiles))
        for _, profile, _ in profiles:
            self._run("INSERT OR IGNORE INTO rule_profile VALUES (?, ?)", added.lastrowid, profile)

    def _profiles(self, content):
        """Returns the type, the row ID and the entry of each profile that a rule names."""
        profiles = []
        for kind, guid in content.profiles:
            found = self._run("SELECT id, entry FROM node WHERE guid = ? AND type = ?",
                              guid, kind).fetchone()
            if not found:
                name = kind.name.lower().replace("_", " ")
                raise Refusal(Code.UNKNOWN_REFERENCE, f"there is no {name} {guid}")
            profiles.append((kind, *found))
        return profiles

    def delete_rule(self, guid):
        """Deletes a rule and the profiles that no other rule refers to. Raises Refusal with
        NO_SUCH_RULE when the GUID is not a rule's."""
        with self._transaction():
            rule = self._value("SELECT id FROM node WHERE guid = ? AND type = 0", guid)
            if rule is None:
                raise Refusal(Code.NO_SUCH_RULE, "there is no rule with this GUID")
            self._run("DELETE FROM node WHERE id IN"
                      " (SELECT profile FROM rule_profile WHERE rule = ?1) AND NOT EXISTS"
                      " (SELECT 1 FROM rule_profile WHERE profile = node.id AND rule <> ?1)", rule)
            self._run("DELETE FROM node WHERE id = ?", rule)

    @contextlib.contextmanager
    def _transaction(self):
        self._run("BEGIN IMMEDIATE")
        try:
            yield
            self._run("COMMIT")
        finally:
            if self.connection.in_transaction:
                self._run("ROLLBACK")

    def _run(self, statement, *parameters):
        return self.connection.execute(statement, parameters)

    def _value(self, statement, *parameters):
        """The first value of the first row, or None."""
        return (self._run(statement, *parameters).fetchone() or (None,))[0]


def compose_entry(node, content, profiles):
    entry = json.dumps({"GUID": node.guid, "name": node.name, "content": content.document},
                       ensure_ascii=False)
    if node.type == Type.RULE:
        events, actions = (", ".join(profile for kind, _, profile in profiles if kind == wanted)
                           for wanted in (Type.EVENT_PROFILE, Type.ACTION_PROFILE))
        entry = f'{entry[:-1]}, "event": [{events}], "action": [{actions}]}}'
    if len(entry) > MAX_ENTRY_LENGTH:
        raise Refusal(Code.BAD_CALL, "the object is too large for the rule list")
    return entry
