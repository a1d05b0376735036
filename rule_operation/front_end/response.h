// The one response of a request: status line, content type, JSON body. This is the only place that
// knows status lines and headers.
#pragma once

#include <string>

#include "rule_operation/shared/json_object.h"

struct TResponse {
    const char* status_line;
    TJsonObject body;  // null: the body is the JSON literal null
    int exit_status;   // of the process
};

constexpr int NOT_AUTHORISED = -2;
constexpr int BAD_METHOD = -3;
constexpr int INTERNAL_ERROR = -4;

// Writes the head of a response to standard output: the status line, which includes its line end,
// the content type, and the empty line. Returns the result of the last write.
int http_header_output(const char* status);

// The responses. Each throws std::bad_alloc when memory does not suffice.

// To a caller who may not use the endpoint: code NOT_AUTHORISED.
TResponse not_authorised_response(int exit_status);

// To a request whose HTTP method is missing or unknown: code BAD_METHOD with status 200.
TResponse bad_method_response(const char* message);

// A document, unchanged.
TResponse document_response(TJsonObject body);

// For a handler's result: NOT_AUTHORISED, 0 with the success text, or any other code as a failure
// with `err` as its text, or "Request failed" if `err` is empty.
TResponse result_response(int result, const std::string& err, const char* success_text);

// The terminate handler once a response has begun: ends the process with the status INTERNAL_ERROR,
// without a second response.
[[noreturn]] void exit_answered();

// Writes a response to standard output; failing writes are ignored. Throws std::bad_alloc when
// memory does not suffice to print the body, before anything is written, and nothing else.
void write_response(const TResponse& response);

// Writes the response of last resort, code INTERNAL_ERROR, for a request that could not be answered
// otherwise. It allocates no memory and never throws.
void write_internal_error();
