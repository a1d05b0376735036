#include "rule_operation/front_end/method_handlers.h"

#include <string_view>

#include "platform/rule_library.h"
#include "rule_operation/deletion/delete_rules.h"
#include "rule_operation/front_end/add_rule_endpoint.h"

int get_method_fun(std::vector<std::string>* /*tokens*/, json_object** result, tagINPUT* /*input*/)
{
    json_object* document = nullptr;
    const int r = get_all_rules(&document);
    if (r == 0) {
        *result = document;
    }
    return r;
}

int put_method_fun(std::vector<std::string>* /*tokens*/, json_object** result, char* /*data*/,
                   tagINPUT* /*input*/)
{
    *result = nullptr;
    return 0;
}

Response dispatch(CgiRequest& request, std::vector<std::string>& tokens, tagINPUT* input,
                  int& status)
{
    if (request.method == nullptr) {
        status = response::BAD_METHOD;
        return response::bad_method("http method empty");
    }
    const std::string_view method = request.method;
    char* const data = request.body ? request.body->data() : nullptr;
    std::string err;
    if (method == "GET" || method == "PUT") {
        json_object* result = nullptr;
        status = method == "GET" ? get_method_fun(&tokens, &result, input)
                                 : put_method_fun(&tokens, &result, data, input);
        JsonObject document(result);
        return status == 0 ? response::document(std::move(document))
                           : response::from_result(status, err, nullptr);
    }
    if (method == "POST") {
        status = post_method_fun(&tokens, err, data, input);
        return response::from_result(status, err, "Add Rule successful");
    }
    if (method == "DELETE") {
        status = delete_method_fun(&tokens, err, data, input);
        return response::from_result(status, err, "Delete Rule successful");
    }
    status = response::BAD_METHOD;
    return response::bad_method("http method invalid");
}
