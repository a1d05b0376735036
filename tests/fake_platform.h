// A scriptable platform that also records its calls.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

struct FakePlatform {
    // What the platform answers, by the words of request_cases.txt: a call has its result, or its
    // result and its reply; null is what is not there. "throwing_at" is the position, from 1, of a
    // call that throws.
    Json::Value answers;

    std::vector<std::string> calls;  // each with its arguments
    Json::Value log;                 // a list of the messages
    unsigned int pauses = 0;         // in microseconds; they pass at once
};

// The one platform of this process.
FakePlatform& fake_platform();

// Replaces it. Cameras are on channels 1, 3, 10 and 191, there is an all-day profile, no rule, and
// the URI parameter func=addRule, and every call succeeds, unless `answers` say otherwise.
void reset_platform(const Json::Value& answers);

// The answer of a service.
Json::Value answer(Json::Int64 result, const std::string& reply);

// The allocations of the JSON libraries while the program runs.
struct AllocationCount {
    bool is_on;
    long count;
    long failing;  // 0 is none
};

extern AllocationCount allocations;
