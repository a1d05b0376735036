// The one response of a request: status line, content type, JSON body. This is the only place that
// knows HTTP.
#pragma once

#include <string>

#include "rule_operation/shared/json_object.h"

struct Response {
    const char* status_line;
    JsonObject body;  // null: the body is the JSON literal null
};

// Writes the head of a response to standard output: the status line, which brings its own line end,
// the content type, and the empty line. Returns the result of the last write.
int http_header_output(const char* status);

namespace response
{

// The answer to a caller who may not use the endpoint.
Response not_authorised();

// The answer to a request whose HTTP method is missing or unknown: code BAD_METHOD with status 200.
Response bad_method(const char* message);
constexpr int BAD_METHOD = -3;

// A document as it is.
Response document(JsonObject body);

// The answer for a handler's result: -2 is not authorised, 0 the success text, anything else a
// failure with `err` as its text, or "Request failed" when the handler left none.
Response from_result(int result, const std::string& err, const char* success_text);

// Writes a response to standard output. Never throws; failing writes are ignored.
void write(const Response& response);

// Writes the response of last resort, code INTERNAL_ERROR, for a request that could not be answered
// otherwise. It needs no memory and never throws.
void write_internal_error();
constexpr int INTERNAL_ERROR = -4;

}  // namespace response
