// Where the host's configuration service has the rule list ready.
#pragma once

namespace host
{

constexpr const char* RULE_LIST_PATH = "/host/ruleList";

}  // namespace host
