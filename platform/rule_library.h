// The rule library: every rule on the recorder as one document.
#pragma once

struct json_object;

// Builds the rule list document:
//
//   {"ruleList": [{"GUID": "...", "name": "...",
//                  "content": {"rule": {"CreationMethod": "quick", ...}},
//                  "event": [{"content": {"event_profile": {"EventID": "536936448",
//                                                           "SourceIds": {"id0": "..."}}}}]}]}
//
// where each `content` follows the elements of the stored XML document. Event IDs and sources are
// JSON strings, and the keys of the sources start at `id0` without a gap. A client gets the text
// that json-c prints: any JSON that is parsed for the list must be parsed strictly, because json-c
// keeps the text of a number.
//
// Called for a list and before each new rule. Returns 0 and stores a new json-c object in `*out`,
// which the caller releases with `json_object_put`, so both must link the same json-c; -2 when the
// caller of the request is not authorised; any other value on failure. `*out` is untouched on
// failure.
int get_all_rules(json_object** out);
