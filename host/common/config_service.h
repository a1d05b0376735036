// What the configuration service and its clients on the host agree on.
#pragma once

#include <cstdint>

namespace host
{

constexpr const char* SERVICE_ADDRESS = "127.0.0.1";
constexpr uint16_t SERVICE_PORT = 10141;
constexpr const char* RULE_PATH = "/cfg/Rule";

// What a node of the service is: its member "type".
enum class NodeType { rule = 0, event_profile = 3, action_profile = 4 };

}  // namespace host
