// Why the service refuses a request.
#pragma once

#include <stdexcept>
#include <string>

// The error codes of a reply. All are negative and share their upper 24 bits.
enum class ErrorCode {
    bad_http_request = -1811535359,  // not HTTP, or beyond the limits of a request
    unknown_path = -1811535358,
    wrong_method = -1811535357,
    bad_document = -1811535356,       // the body is no JSON document with a list of calls
    bad_call = -1811535355,           // a call lacks something or holds something wrong
    guid_in_use = -1811535354,        // a call creates an object that exists
    unknown_reference = -1811535353,  // a call names a profile or schedule that does not exist
    missing_guid = -1811535352,       // the query does not say which rule is meant
    database_failure = -1811535351,
    out_of_memory = -1811535350,
    no_such_rule = -1811535318,
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
