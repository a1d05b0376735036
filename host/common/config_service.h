// Definitions shared by the configuration service and its clients on the host.
#pragma once

#include <cstdint>

namespace host
{

constexpr const char* SERVICE_ADDRESS = "127.0.0.1";
constexpr uint16_t SERVICE_PORT = 10141;
constexpr const char* RULE_PATH = "/cfg/Rule";

// The kind of a node of the service: its member "type".
enum class NodeType { rule = 0, event_profile = 3, action_profile = 4 };

}  // namespace host
