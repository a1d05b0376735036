// The rule document: ties an event profile and an action profile together under a time profile.
#pragma once

#include <string>

// The document of a rule made by the quick method, base64-encoded. Without an action (`actGUID`
// empty) it has no action elements at all.
std::string get_rule_content(const std::string& evtGUID, const std::string& actGUID,
                             const std::string& timeprofileGUID);
