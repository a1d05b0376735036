// Small utilities of the device.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// Appends the base64 form of `length` bytes at `data` to `encoded`: standard alphabet, padded, no
// line breaks. The result is not used by the rule endpoint.
int b64_encode_v2(const unsigned char* data, size_t length, std::string& encoded);

// The current time. The unit and the starting point are the platform's own choice; the rule
// endpoint only needs values whose last two decimal digits differ from one request to the next.
int64_t current_time_stamp();
