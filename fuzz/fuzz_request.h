// Runs one request and checks what holds for every request.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/fake_platform.h"
#include "tests/request_runner.h"

// The entry of each fuzz program.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// The `count` parts of an input between lines that contain only "--". Missing parts are empty, and
// the last one takes the rest.
std::vector<std::string> split_input(const uint8_t* data, size_t size, size_t count);

// A request with the parameters func and GUID, unless `func` is empty. A caller whose func is
// "stranger" is refused.
Json::Value request_of(const std::string& method, const std::string& body, const std::string& func);

// An answer from a part of the input: a reply, or, when it begins with '!', a failed call whose
// result is the number after it if that is negative and not one of the front end's own codes.
Json::Value read_answer(const std::string& section);

struct FuzzOutcome {
    std::string status;  // "200 OK"
    bool has_envelope = false;
    int code = 0;          // of the envelope
    std::string services;  // the services called, each "GET ", "rules ", "POST " or "DELETE "
};

// Ends the process with a message unless the request was answered with exactly one well-formed
// response, whose envelope is as documented, and at most one POST was sent, with nothing after it.
FuzzOutcome run_fuzz_request(const Json::Value& request);

// Ends the process with a message unless `holds`.
void require(bool holds, const char* what);
