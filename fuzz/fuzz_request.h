// Runs one request and checks what every request must hold to.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/fake_platform.h"
#include "tests/request_runner.h"

// The entry of each fuzz program.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// The parts of an input between lines that hold just "--"; empty parts where it has fewer than
// `count`, and the last one takes the rest.
std::vector<std::string> split_input(const uint8_t* data, size_t size, size_t count);

// A request with the parameters func and GUID, unless `func` is empty. A caller whose func is
// "stranger" is refused.
Json::Value request_of(const std::string& method, const std::string& body, const std::string& func);

// An answer as the input gives it: a reply, or, when it begins with '!', a failed call whose result
// is the number after it if that is negative and not one of the front end's own codes.
Json::Value read_answer(const std::string& section);

struct FuzzOutcome {
    std::string status;  // "200 OK"
    bool has_envelope = false;
    int code = 0;          // of the envelope
    std::string services;  // the services called, each "GET ", "rules ", "POST " or "DELETE "
};

// Ends the process with a message when the request was not answered with exactly one well-formed
// response, its envelope is not as documented, or more than one POST was sent or anything after it.
FuzzOutcome run_fuzz_request(const Json::Value& request);

// Ends the process with a message unless `holds`.
void require(bool holds, const char* what);
