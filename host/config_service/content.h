// The XML documents that nodes carry.
#pragma once

#include <optional>
#include <string>

#include "host/config_service/node.h"

namespace host
{

// Checks the content of a node of that type and returns what it names. `event_id` is the event that
// the node itself names; an event profile's content must name the same. Throws
// Refusal with ErrorCode::bad_call.
References check_content(NodeType type, const std::string& content,
                         std::optional<int32_t> event_id);

}  // namespace host
