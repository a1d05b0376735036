#include "host/config_service/store.h"

#include "host/config_service/refusal.h"

namespace host
{

namespace
{

constexpr int64_t SCHEMA_VERSION = 1;

constexpr const char* SCHEMA[] = {
    "CREATE TABLE schedule (id INTEGER PRIMARY KEY, name TEXT NOT NULL,"
    " guid TEXT NOT NULL UNIQUE COLLATE NOCASE) STRICT",
    "CREATE TABLE node (id INTEGER PRIMARY KEY, name TEXT NOT NULL, description TEXT NOT NULL,"
    " guid TEXT NOT NULL UNIQUE COLLATE NOCASE, type INTEGER NOT NULL CHECK (type IN (0, 3, 4)),"
    " active INTEGER NOT NULL, content TEXT NOT NULL, event_id INTEGER) STRICT",
    "CREATE TABLE rule_profile (rule INTEGER NOT NULL REFERENCES node ON DELETE CASCADE,"
    " profile INTEGER NOT NULL REFERENCES node DEFERRABLE INITIALLY DEFERRED,"
    " PRIMARY KEY (rule, profile)) STRICT, WITHOUT ROWID",
    "CREATE INDEX rules_of_profile ON rule_profile (profile)",
    "INSERT INTO schedule (name, guid) VALUES"
    " ('_ALL_DAY_', '5C4ED01E000000000000000000000001'),"
    " ('Working hours', '5C4ED01E000000000000000000000002'),"
    " ('Night', '5C4ED01E000000000000000000000003')",
    "PRAGMA user_version = 1",
};

const char* type_name(NodeType type)
{
    return type == NodeType::event_profile ? "event profile" : "action profile";
}

}  // namespace

Store::Store(const std::string& file) : database_(file)
{
    database_.run("PRAGMA foreign_keys = ON");
    database_.run("PRAGMA journal_mode = WAL");
    database_.run("PRAGMA synchronous = FULL");
    set_up();
}

void Store::set_up()
{
    Transaction transaction(database_);
    Statement version(database_, "PRAGMA user_version");
    version.step();
    Statement tables(database_, "SELECT count(*) FROM sqlite_schema");
    tables.step();
    if (version.number(0) == SCHEMA_VERSION) {
        return;
    }
    if (version.number(0) != 0 || tables.number(0) != 0) {
        throw DatabaseError("the file is not a rule database");
    }
    for (const char* const statement : SCHEMA) {
        database_.run(statement);
    }
    transaction.commit();
}

std::vector<Schedule> Store::schedules()
{
    std::vector<Schedule> schedules;
    Statement statement(database_, "SELECT name, guid FROM schedule ORDER BY id");
    while (statement.step()) {
        schedules.push_back({statement.text(0), statement.text(1)});
    }
    return schedules;
}

void Store::visit_nodes(const std::function<void(const Node&)>& visit)
{
    Statement statement(database_,
                        "SELECT name, description, guid, type, active, content, event_id FROM node"
                        " ORDER BY id");
    while (statement.step()) {
        visit({statement.text(0), statement.text(1), statement.text(2),
               static_cast<NodeType>(statement.number(3)), statement.number(4) != 0,
               statement.text(5), statement.optional_number(6)});
    }
}

void Store::add_nodes(const std::vector<NewNode>& nodes)
{
    Transaction transaction(database_);
    for (size_t i = 0; i < nodes.size(); ++i) {
        add_node(i, nodes[i]);
    }
    transaction.commit();
}

void Store::add_node(size_t call, const NewNode& added)
{
    check_unused(call, added.node.guid);
    if (!added.references.schedule.empty()) {
        check_schedule(call, added.references.schedule);
    }
    const int64_t id = insert(added.node);
    for (const std::string& profile : added.references.event_profiles) {
        refer(call, id, profile, NodeType::event_profile);
    }
    for (const std::string& profile : added.references.action_profiles) {
        refer(call, id, profile, NodeType::action_profile);
    }
}

void Store::check_unused(size_t call, const std::string& guid)
{
    Statement statement(database_, "SELECT 1 FROM node WHERE guid = ?");
    if (statement.bind(1, guid).step()) {
        throw Refusal(ErrorCode::guid_in_use, call, "GUID " + guid + " is already in use");
    }
}

void Store::check_schedule(size_t call, const std::string& guid)
{
    Statement statement(database_, "SELECT 1 FROM schedule WHERE guid = ?");
    if (!statement.bind(1, guid).step()) {
        throw Refusal(ErrorCode::unknown_reference, call, "there is no schedule " + guid);
    }
}

int64_t Store::insert(const Node& node)
{
    Statement statement(database_,
                        "INSERT INTO node (name, description, guid, type, active, content,"
                        " event_id) VALUES (?, ?, ?, ?, ?, ?, ?)");
    statement.bind(1, node.name)
        .bind(2, node.description)
        .bind(3, node.guid)
        .bind(4, static_cast<int64_t>(node.type))
        .bind(5, static_cast<int64_t>(node.active))
        .bind(6, node.content)
        .bind(7, node.event_id)
        .step();
    return sqlite3_last_insert_rowid(database_.get());
}

void Store::refer(size_t call, int64_t rule, const std::string& profile, NodeType type)
{
    Statement found(database_, "SELECT id FROM node WHERE guid = ? AND type = ?");
    if (!found.bind(1, profile).bind(2, static_cast<int64_t>(type)).step()) {
        throw Refusal(ErrorCode::unknown_reference, call,
                      std::string("there is no ") + type_name(type) + " " + profile);
    }
    Statement reference(database_,
                        "INSERT OR IGNORE INTO rule_profile (rule, profile) VALUES (?, ?)");
    reference.bind(1, rule).bind(2, found.number(0)).step();
}

void Store::delete_rule(const std::string& guid)
{
    Transaction transaction(database_);
    Statement found(database_, "SELECT id FROM node WHERE guid = ? AND type = 0");
    if (!found.bind(1, guid).step()) {
        throw Refusal(ErrorCode::no_such_rule, "there is no rule with this GUID");
    }
    const int64_t rule = found.number(0);
    Statement profiles(
        database_,
        "DELETE FROM node WHERE id IN (SELECT profile FROM rule_profile WHERE rule = ?1)"
        " AND NOT EXISTS (SELECT 1 FROM rule_profile WHERE profile = node.id AND rule <> ?1)");
    profiles.bind(1, rule).step();
    Statement node(database_, "DELETE FROM node WHERE id = ?");
    node.bind(1, rule).step();
    transaction.commit();
}

}  // namespace host
