// The XML documents of nodes.
#pragma once

#include <optional>
#include <string>

#include "host/config_service/node.h"

namespace host
{

// Checks the content of a node of that type and returns the GUIDs that it refers to. `event_id` is
// the event of the node itself; that of an event profile's content must be the same. Throws Refusal
// with ErrorCode::bad_call.
References check_content(NodeType type, const std::string& content,
                         std::optional<int32_t> event_id);

}  // namespace host
