// The identifiers of new objects on the recorder.
#pragma once

#include <cstddef>
#include <string>

// The length of every GUID.
constexpr size_t GUID_LENGTH = 32;

// What a derived GUID names.
constexpr char EVENT_PROFILE_PREFIX[] = "1111111111";
constexpr char ACTION_PROFILE_PREFIX[] = "2222222222";
constexpr char RULE_PREFIX[] = "3333333333";

// A new random part: 18 upper-case hexadecimal digits. It pauses 100 microseconds for each digit.
// The digits follow from the time stamp modulo 100 alone, so there are 100 different random parts.
std::string guid_rander();

namespace identifiers
{

// A new GUID: prefix, a random part of its own, and the channel in hexadecimal.
std::string derive_guid(const char* prefix, int channel);

// A profile's name: what it is and the channel in decimal, as in "clientEvent0003".
std::string profile_name(const char* kind, int channel);

}  // namespace identifiers
