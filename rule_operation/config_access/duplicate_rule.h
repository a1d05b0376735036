// Whether a quick rule on the recorder already covers an event on a channel.
#pragma once

// Searches the recorder's rule list for a quick rule for the event `in_eventID` on the channel
// `in_chIdx`, and stores the answer in `found`. The channel of a rule is the decimal number in
// characters 28 to 31 of its event's source ID, counted from 0.
//
// Returns 0 when the list was read, or, with `found` false:
//
//   -601  the rule library could not build the list
//   -602  the list is not JSON
//   -603  the document has no `ruleList`, or it is not an array
int is_event_already_in_rule(bool& found, int in_eventID, int in_chIdx);
