// The requests of request_cases.txt, where the form of a case is described.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tests/fake_platform.h"
#include "tests/request_runner.h"

struct RequestCase {
    std::string name;
    Request request;
    std::vector<std::function<void(FakePlatform&)>> arrangements;  // to be applied in order
    std::string status;
    int code = 0;
    std::string message;  // as JSON
};

// A request that creates a rule for channel 3, recorded on channel 10.
extern const char* const ADD_RULE_BODY;

const std::vector<RequestCase>& request_cases();
