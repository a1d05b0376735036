// The rules, profiles and schedules in their database.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "host/config_service/database.h"
#include "host/config_service/node.h"

namespace host
{

// GUIDs are compared case-insensitively. Every operation throws DatabaseError when the database
// fails, or std::bad_alloc, and then has changed nothing. The changes of an operation that has
// returned survive a crash and a power failure. A crash right after a failed write can still leave
// the whole change.
class Store
{
 public:
    // Opens the database, and sets up a new one with a few schedules.
    explicit Store(const std::string& file);

    std::vector<Schedule> schedules();

    // Visits all nodes in the order of their creation.
    void visit_nodes(const std::function<void(const Node&)>& visit);

    // Adds all nodes or none; each may refer to those before it. Throws Refusal, with the node's
    // index as that of the call, with guid_in_use or unknown_reference.
    void add_nodes(const std::vector<NewNode>& nodes);

    // Deletes a rule and the profiles that no other rule refers to. Throws Refusal with
    // no_such_rule when the GUID is not a rule's.
    void delete_rule(const std::string& guid);

 private:
    void set_up();
    void add_node(size_t call, const NewNode& added);
    void check_unused(size_t call, const std::string& guid);
    void check_schedule(size_t call, const std::string& guid);
    int64_t insert(const Node& node);
    void refer(size_t call, int64_t rule, const std::string& profile, NodeType type);

    Database database_;
};

}  // namespace host
