// Runs a request through the program's own `main`, in this process, on a scriptable platform that
// records its calls.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

struct FakePlatform {
    // What the platform answers, by the words of request_cases.txt: the result of a call, or an
    // array of its result and its reply. Null stands for something that is missing.
    Json::Value answers;

    std::vector<std::string> calls;  // the name of each, followed by its arguments
    std::vector<std::string> log;
    unsigned int pauses = 0;  // the sum in microseconds; no time passes
};

// The only platform of this process, in the state in which the last request left it.
FakePlatform& fake_platform();

// An answer of a service, for FakePlatform::answers.
Json::Value answer(Json::Int64 result, const std::string& reply);

struct Outcome {
    std::string response;
    int exit_status;   // as `main` returns it
    long allocations;  // of the JSON libraries, if these are linked from archives
};

// The members of `request` are words of request_cases.txt: "method", "path", "length" and "body",
// and those for unusual answers of the platform. Three more are positions, counted from 1:
// "throwing_at" of a call that throws, "terminating_at" of a call that terminates the process, and
// "allocation" of an allocation that fails.
//
// By default there are cameras on channels 1, 3, 10 and 191, an all-day profile, no rules and the
// URI parameter func=addRule, and every call succeeds.
Outcome run_request(const Json::Value& request);
