// The add-rule endpoint: serves every POST.
#pragma once

#include <string>
#include <vector>

struct tagINPUT;

// Creates the quick rule that the body (`data`, zero-terminated or null) asks for, when the URI
// parameter func is "addRule". Returns 0, or with the refusal text in `err`:
//
//   -290  no URI parameter func
//   -291  no body
//   -292  func is anything but "addRule"
//   and what `parsing_input_content` and `add_rules` return
int post_method_fun(std::vector<std::string>* tokens, std::string& err, char* data,
                    tagINPUT* input);
