// The rule document: connects an event profile, an action profile and a time profile.
#pragma once

#include <string>

// The document of a quick rule, base64-encoded. Without an action (`actGUID` empty) it has no
// action elements at all.
std::string get_rule_content(const std::string& evtGUID, const std::string& actGUID,
                             const std::string& timeprofileGUID);
