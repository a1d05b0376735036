// Runs a request through the program's own `main`, in this process, on a scriptable platform that
// also records its calls.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

struct FakePlatform {
    // What the platform answers, by the words of request_cases.txt: a call has its result, or its
    // result and its reply; null is what is not there.
    Json::Value answers;

    std::vector<std::string> calls;  // each with its arguments
    std::vector<std::string> log;
    unsigned int pauses = 0;  // in microseconds; they pass at once
};

// The one platform of this process, as the last request has left it.
FakePlatform& fake_platform();

// The answer of a service.
Json::Value answer(Json::Int64 result, const std::string& reply);

struct Outcome {
    std::string response;
    int exit_status;   // as `main` returns it
    long allocations;  // how often the JSON libraries allocated, when they are linked in
};

// The members of `request` have the names of the words in request_cases.txt: "method", "path",
// "length" and "body", and what the platform answers other than usual. "throwing_at" and
// "terminating_at" are the positions, from 1, of a call that throws and of one that terminates the
// process, and "allocation" that of an allocation that fails.
//
// Usually cameras are on channels 1, 3, 10 and 191, there is an all-day profile, no rule, and the
// URI parameter func=addRule, and every call succeeds.
Outcome run_request(const Json::Value& request);
