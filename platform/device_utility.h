// Small utilities of the device.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// Appends the base64 form of `length` bytes at `data` to `encoded`: standard alphabet, padded, no
// line breaks. Called for each profile of a new rule and for the rule; the result is ignored.
int b64_encode_v2(const unsigned char* data, size_t length, std::string& encoded);

// The current time. The platform chooses the unit and the starting point; the rule endpoint only
// needs values whose last two decimal digits differ from one request to the next. Called up to
// three times in a request, at least 1.8 ms apart. GUIDs are derived from it: with a clock that
// counts seconds, a second rule on a channel within one second is refused with -221.
int64_t current_time_stamp();
