// The requests that are answered with an envelope, each with the answer it must get.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tests/fake_platform.h"
#include "tests/request_runner.h"

struct RequestCase {
    const char* name;
    Request request;
    const char* status;
    int code;
    std::string message;  // as JSON
    std::function<void(FakePlatform&)> arrange = [](FakePlatform&) {};
};

// A request that creates a rule: motion on channel 3, recorded on channel 10.
extern const char* const ADD_RULE_BODY;

const std::vector<RequestCase>& request_cases();
