// The requests of request_cases.txt, where the form of a case is described.
#pragma once

#include <string>
#include <vector>

#include "tests/fake_platform.h"
#include "tests/request_runner.h"

// A request that creates a rule for channel 3, recorded on channel 10.
inline constexpr const char* ADD_RULE_BODY =
    R"({"rule":{"event":[{"eventID":536936448,"camera":[{"chIdx":3}]}],)"
    R"("action":[{"ActionName":"RecordControl","chIdx":[10]}]}})";

struct RequestCase {
    std::string name;
    Request request = {"POST", ADD_RULE_BODY};
    FakePlatform platform = usual_platform();
    std::string response;  // to the byte
    int code = 0;
    std::vector<std::string> posted;
    std::vector<std::string> calls;  // all of them, unless empty
    std::vector<std::string> log;    // all messages, unless empty
};

// Throws when a line cannot be read.
std::vector<RequestCase> read_request_cases();
