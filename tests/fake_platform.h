// A scriptable platform that also records its calls.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

struct FakePlatform {
    // What the platform answers, by the words of request_cases.txt: a call has its result, or its
    // result and its reply; null is what is not there. "throwing_at" is the position of a call that
    // throws.
    Json::Value answers;

    // Each call with its arguments, in order, and each message as logged.
    std::vector<std::string> calls;
    std::vector<std::string> log;
    unsigned int pauses = 0;  // in microseconds; they pass at once
    unsigned int deletions = 0;
    const std::vector<std::string>* tokens = nullptr;  // the program's list, once the path is split
};

// The one platform of this process.
FakePlatform& fake_platform();

// The allocations of the JSON libraries while the program runs.
struct AllocationCount {
    bool is_on;
    long count;
    long failing;  // 0 is none
};

AllocationCount& allocation_count();

// Cameras on channels 1, 3, 10 and 191, a schedule list with an all-day profile, an empty rule
// list, success of every call, and the URI parameter func=addRule.
FakePlatform usual_platform();

// The answer of a service.
Json::Value answer(Json::Int64 result, const std::string& reply);
