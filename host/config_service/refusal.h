// Why the service refuses a request.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace host
{

// The error codes, which replies contain as signed 32-bit numbers in decimal.
enum class ErrorCode : uint32_t {
    bad_http_request = 0x94062A01,  // not HTTP, or beyond the limits of a request
    unknown_path = 0x94062A02,
    wrong_method = 0x94062A03,
    bad_document = 0x94062A04,       // the body is not a JSON document with a list of calls
    bad_call = 0x94062A05,           // something in a call is missing or wrong
    guid_in_use = 0x94062A06,        // a call creates an object that exists
    unknown_reference = 0x94062A07,  // a call refers to a profile or schedule that does not exist
    missing_guid = 0x94062A08,       // the query has no GUID of a rule
    database_failure = 0x94062A09,
    out_of_memory = 0x94062A0A,
    no_such_rule = 0x94062A2A,
};

// Ends the handling of a request; `what()` is the text for the client.
class Refusal : public std::runtime_error
{
 public:
    Refusal(ErrorCode error_code, const std::string& text)
        : std::runtime_error(text), code(error_code)
    {
    }

    // A refusal because of the call at position `call` of its document, counted from 0.
    Refusal(ErrorCode error_code, size_t call, const std::string& text)
        : Refusal(error_code, "call " + std::to_string(call) + ": " + text)
    {
    }

    ErrorCode code;
};

}  // namespace host
