// The creation driver: turns one parsed request into one quick rule on the recorder.
#pragma once

#include <string>

#include "rule_operation/request/event_content.h"

// Checks the request in a fixed order, builds the documents of its objects and creates all of them
// with one multicall at the very end.
//
//   timeprofileGUID  in: the requested time profile, or empty; out: the one used
//   ruleName         the name of the rule
//   eventInfo        the event and its camera; only the first camera counts
//   ActionName       "RecordControl", or empty for a rule without an action
//   act_chIdx        the channel that records; read only with that action
//
// Returns 0, with `err` untouched, or the code of the first check that failed, with its text in
// `err`. In the order of the checks:
//
//   -204          the request has no camera
//   -202          the event is not supported
//   -200          the event's channel has no camera, or is outside the table
//   -201          the event profile's GUID is malformed (guards an invariant)
//   -211          the recording channel has no camera, or is outside the table
//   -203          the action profile's GUID is malformed (guards an invariant)
//   -212          the action is not known
//   -101 .. -105  the time profile could not be determined, see `time_profile_factory`
//   -601 .. -603  the rule list could not be read, see `is_event_already_in_rule`
//   -911          a quick rule already covers this event on this channel
//   and what `submit_multicall` returns
int add_rules(std::string& err, std::string& timeprofileGUID, std::string& ruleName,
              TEventContent& eventInfo, std::string& ActionName, int& act_chIdx);
