// Dispatch by HTTP method, and the handlers of GET and PUT. The handlers of POST and DELETE are
// declared in add_rule_endpoint.h and deletion/delete_rules.h.
#pragma once

#include <string>
#include <vector>

#include "rule_operation/front_end/cgi_request.h"
#include "rule_operation/front_end/response.h"

struct json_object;
struct tagINPUT;

// Stores the rule list document in `*result`, owned by the caller. Returns the rule library's
// status: 0, -2 when not authorised, any other value on failure; `*result` is then untouched.
int get_method_fun(std::vector<std::string>* tokens, json_object** result, tagINPUT* input);

// Changes nothing: stores null in `*result` and returns 0.
int put_method_fun(std::vector<std::string>* tokens, json_object** result, char* data,
                   tagINPUT* input);

// Passes the request to the handler of its method and makes the response from its result. The
// exit status is the handler's result, or BAD_METHOD for a missing or unknown method.
TResponse dispatch(TCgiRequest& request, std::vector<std::string>& tokens, tagINPUT* input);
