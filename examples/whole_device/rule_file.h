// The rules of the device: the file rules.json, which contains the list of rules as a document.
//
// It is in the directory that the variable RULE_RECORDER_DIR names, and only its owner can read it.
// A change replaces it as a whole, so readers need no lock; writers lock the file rules.lock.
#pragma once

#include <json/value.h>

#include <functional>
#include <string>

namespace device
{

// These throw a std::exception when the file cannot be read, locked or written, or is not JSON.

// Parses a JSON text.
Json::Value parse_json(const std::string& text);

// Reads the text of the list: {"ruleList": [...]}.
std::string read_rule_list();

// Lets `change` change the array of rules, and stores it. If `change` throws, so does the call, and
// the file stays as it is. Waits for other writers for at most `seconds`.
void change_rules(long seconds, const std::function<void(Json::Value& rules)>& change);

}  // namespace device
