// The quick-rule request document that a client posts.
#pragma once

#include <string>

#include "rule_operation/request/event_content.h"

// Parses one request document (zero-terminated) into the model. It checks presence and shape only,
// not whether event, channels and action exist. Of every array only the first element is read; a
// member that is JSON null counts as absent.
//
//   timeprofileGUID  rule.timeprofileGUID, or empty
//   ruleName         rule.ruleName, or "clientRule"
//   eventInfo        receives the event ID and, on success, one camera
//   ActionName       rule.action[0].ActionName; untouched without an action
//   act_chIdx        element 0 of rule.action[0].chIdx; untouched without an action
//
// Returns 0, or the code of the first check that failed, with the refusal text in `err`:
//
//   -101          not JSON
//   -102, -103    rule.event absent, not an array
//   -104          event[0].eventID absent
//   -105, -106    event[0].camera absent, not an array
//   -107          camera[0].chIdx absent
//   -108, -109    alarm event: camera[0].alarm absent, not an array
//   -110          a member has a type that cannot be read as the type it should have, or is an
//                 integer outside 32 bits; the text names the member
//   -120          rule.action not an array
//   -121          action[0].ActionName absent
//   -122, -123    action[0].chIdx absent, not an array
//
// What was read before the failing check is kept; `eventInfo.camera`, `ActionName` and `act_chIdx`
// change only on success.
int parsing_input_content(std::string& err, const char* data, std::string& timeprofileGUID,
                          std::string& ruleName, TEventContent& eventInfo, std::string& ActionName,
                          int& act_chIdx);
