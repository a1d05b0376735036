// The kinds of objects that a rule is made of, and the identifiers of new ones.
#pragma once

#include <cstddef>
#include <string>

// What distinguishes one kind of object on the recorder.
struct TObjectKind {
    const char* guid_prefix;  // the first ten characters of its GUID
    const char* name;         // the beginning of its name; null: the client chooses the name
    int type;                 // its `type` in the multicall
};

constexpr TObjectKind EVENT_PROFILE{"1111111111", "clientEvent", 3};
constexpr TObjectKind ACTION_PROFILE{"2222222222", "clientAction", 4};
constexpr TObjectKind RULE{"3333333333", nullptr, 0};

// The length of every GUID.
constexpr size_t GUID_LENGTH = 32;

// A new random part: 18 upper-case hexadecimal digits. It pauses 100 microseconds for each digit.
// The digits depend only on the time stamp modulo 100, so there are 100 different random parts.
std::string guid_rander();

// A new GUID: the kind's prefix, a random part of its own, and the channel in hexadecimal.
std::string derive_guid(const TObjectKind& kind, int channel);

// The name of a profile: the kind's name and the channel in decimal, as in "clientEvent0003".
std::string profile_name(const TObjectKind& kind, int channel);
