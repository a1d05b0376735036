#include "rule_operation/front_end/dispatch.h"

#include <string_view>
#include <utility>

#include "platform/rule_library.h"
#include "rule_operation/deletion/delete_rules.h"
#include "rule_operation/front_end/add_rule_endpoint.h"
#include "rule_operation/shared/json_object.h"

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

TResponse dispatch(TCgiRequest& request, std::vector<std::string>& tokens, tagINPUT* input)
{
    if (request.method == nullptr) {
        return bad_method_response("http method empty");
    }
    const std::string_view method = request.method;
    char* const data = request.body ? request.body->data() : nullptr;
    std::string err;
    if (method == "GET" || method == "PUT") {
        json_object* result = nullptr;
        const int r = method == "GET" ? get_method_fun(&tokens, &result, input)
                                      : put_method_fun(&tokens, &result, data, input);
        TJsonObject document(result);
        return r == 0 ? document_response(std::move(document)) : result_response(r, err, nullptr);
    }
    if (method == "POST") {
        const int r = post_method_fun(&tokens, err, data, input);
        return result_response(r, err, "Add Rule successful");
    }
    if (method == "DELETE") {
        const int r = delete_method_fun(&tokens, err, data, input);
        return result_response(r, err, "Delete Rule successful");
    }
    return bad_method_response("http method invalid");
}
