#include "platform/rule_library.h"

#include <json-c/json_object.h>
#include <json-c/printbuf.h>

#include <exception>
#include <memory>
#include <string>
#include <string_view>

#include "host/platform/result_codes.h"
#include "host/platform/rule_list.h"
#include "platform/config_client.h"
#include "platform/rule_log.h"

namespace host
{
namespace
{

// Prints the list: the text that the service sent, unchanged.
int print_list(json_object* list, printbuf* output, int /*level*/, int /*flags*/)
{
    const auto* const text = static_cast<const std::string*>(json_object_get_userdata(list));
    return ::printbuf_memappend(output, text->data(), static_cast<int>(text->size()));
}

void release_text(json_object* /*list*/, void* text)
{
    std::unique_ptr<std::string>(static_cast<std::string*>(text)).reset();
}

// The list is a json-c object that prints as the service's text, so the text is never parsed.
int make_rule_list(json_object** out)
{
    constexpr long TIMEOUT_SECONDS = 15;
    constexpr std::string_view START = R"({"ruleList": [)";
    auto text = std::make_unique<std::string>();
    query_object query;
    const long result = rova_GET_request("127.0.0.1", 10141, RULE_LIST_PATH, &query, *text,
                                         TIMEOUT_SECONDS, false, false, 0, nullptr);
    if (result != 0) {
        rule_log("Rule list: the call failed with %ld", result);
        return RULES_NOT_FETCHED;
    }
    if (text->compare(0, START.size(), START) != 0) {
        rule_log("Rule list: the service answered [%s]", text->c_str());
        return RULES_REFUSED;
    }
    json_object* const list = json_object_new_object();
    if (list == nullptr) {
        throw std::bad_alloc();
    }
    json_object_set_serializer(list, print_list, text.release(), release_text);
    *out = list;
    return 0;
}

}  // namespace
}  // namespace host

int get_all_rules(json_object** out)
{
    try {
        return host::make_rule_list(out);
    } catch (const std::exception& exception) {
        rule_log("Rule list: %s", exception.what());
        return host::RULE_LIST_NOT_BUILT;
    }
}
