// The objects that the service stores: rules, their profiles, and schedules.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/common/config_service.h"

namespace host
{

// Whether `text` is 32 hexadecimal digits of either case.
bool is_guid(std::string_view text);

struct Node {
    std::string name;
    std::string description;
    std::string guid;
    NodeType type = NodeType::rule;
    bool active = true;
    std::string content;              // an XML document in base64
    std::optional<int32_t> event_id;  // of an event profile
};

// The GUIDs that a node's content refers to; only a rule's has any.
struct References {
    std::vector<std::string> event_profiles;
    std::vector<std::string> action_profiles;
    std::string schedule;  // may be empty
};

struct NewNode {
    Node node;
    References references;
};

struct Schedule {
    std::string name;
    std::string guid;
};

}  // namespace host
