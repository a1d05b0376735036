// The path under which the host's configuration service returns the rule list.
#pragma once

namespace host
{

constexpr const char* RULE_LIST_PATH = "/host/ruleList";

}  // namespace host
