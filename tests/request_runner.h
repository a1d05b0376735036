// Runs one request through the program's own `main`, in this process, on the fake platform.
#pragma once

#include <json/value.h>

#include <string>

struct Outcome {
    std::string response;
    int exit_status;   // as `main` returns it
    long allocations;  // how often the JSON libraries allocated, when they are linked in
};

// The members of `request` have the names of the words in request_cases.txt: "method", "path",
// "length" and "body", and what the platform answers other than usual; "allocation" is the number,
// from 1, of the one that fails. The fake platform's calls and log are then those of this request.
Outcome run_request(const Json::Value& request);
