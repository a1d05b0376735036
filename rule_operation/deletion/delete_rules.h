// Deletion of rules by GUID.
#pragma once

#include <string>
#include <vector>

struct tagINPUT;

// Serves a DELETE request: deletes the rules that the array `ruleGUID` of the body (`data`,
// zero-terminated or null) names, one by one in their order. A rule that the service does not know
// is skipped; any other failure ends the deletion, and the rules before it stay deleted. The URI
// parameter GUID is only logged. Returns 0, or with the refusal text in `err`:
//
//   -300  no body
//   -301  the body is not JSON
//   -302  no member `ruleGUID` (or not an object)
//   -303  `ruleGUID` is not an array, or one of its elements is an array or an object; nothing has
//         been deleted
//   -304  the configuration service could not be reached
//   -305  its reply is not JSON or not an object, or has no readable error code
//   -306  it reported an error; `err` stays empty
int delete_method_fun(std::vector<std::string>* tokens, std::string& err, char* data,
                      tagINPUT* input);
