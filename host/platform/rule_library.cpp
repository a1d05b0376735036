#include "platform/rule_library.h"

#include <json-c/json_object.h>
#include <json-c/json_tokener.h>

#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>

#include "host/common/base64.h"
#include "host/common/xml_document.h"
#include "host/platform/result_codes.h"
#include "platform/config_client.h"
#include "platform/rule_log.h"

namespace host
{
namespace
{

constexpr int RULE_TYPE = 0;
constexpr int EVENT_PROFILE_TYPE = 3;
constexpr int ACTION_PROFILE_TYPE = 4;

// The profiles of a list, counted in bytes of their stored content at each place they are put. A
// profile may be named by any number of rules, so a small reply could otherwise make a huge list.
constexpr size_t PROFILE_LIMIT = 64UL * 1024 * 1024;

struct JsonRelease {
    void operator()(json_object* object) const { json_object_put(object); }
};
using Json = std::unique_ptr<json_object, JsonRelease>;

struct TokenerRelease {
    void operator()(json_tokener* tokener) const { json_tokener_free(tokener); }
};

// Ends the building of the list with a result code.
class ListFailure : public std::runtime_error
{
 public:
    ListFailure(int code, const std::string& reason) : std::runtime_error(reason), code_(code) {}
    int code() const { return code_; }

 private:
    int code_;
};

Json owned(json_object* object)
{
    if (object == nullptr) {
        throw std::bad_alloc();
    }
    return Json(object);
}

Json make_text(std::string_view text)
{
    return owned(json_object_new_string_len(text.data(), static_cast<int>(text.size())));
}

void add_member(const Json& object, const char* name, Json value)
{
    if (json_object_object_add(object.get(), name, value.get()) != 0) {
        throw std::bad_alloc();
    }
    (void)value.release();
}

void add_element(const Json& array, Json value)
{
    if (json_object_array_add(array.get(), value.get()) != 0) {
        throw std::bad_alloc();
    }
    (void)value.release();
}

// The member `name` of that type, or null. Still owned by `object`.
json_object* find_member(json_object* object, const char* name, json_type type)
{
    json_object* member = nullptr;
    json_object_object_get_ex(object, name, &member);
    return json_object_is_type(member, type) != 0 ? member : nullptr;
}

// The text member `name`, valid as long as `object`; empty when there is none.
std::string_view text_member(json_object* object, const char* name)
{
    json_object* text = find_member(object, name, json_type_string);
    if (text == nullptr) {
        return "";
    }
    return {json_object_get_string(text), static_cast<size_t>(json_object_get_string_len(text))};
}

// Of elements of the same name the first one counts.
Json to_json(const XmlElement& element)
{
    if (element.children.empty()) {
        return make_text(element.text);
    }
    Json object = owned(json_object_new_object());
    for (const auto& child : element.children) {
        if (json_object_object_get_ex(object.get(), child.name.c_str(), nullptr) == 0) {
            add_member(object, child.name.c_str(), to_json(child));
        }
    }
    return object;
}

// The XML document stored in `node`. Nothing when it is not readable, which is logged.
std::optional<XmlElement> read_content(json_object* node)
{
    std::string error = "not base64";
    const auto document = decode_base64(text_member(node, "content"));
    auto root = document ? parse_xml(*document, error) : std::nullopt;
    if (!root) {
        rule_log("Rule list: content of [%s]: %s", std::string(text_member(node, "GUID")).c_str(),
                 error.c_str());
    }
    return root;
}

// What the entries of rules and profiles have in common.
Json make_entry(json_object* node, const std::optional<XmlElement>& root)
{
    Json entry = owned(json_object_new_object());
    add_member(entry, "GUID", make_text(text_member(node, "GUID")));
    add_member(entry, "name", make_text(text_member(node, "name")));
    if (root) {
        Json content = owned(json_object_new_object());
        add_member(content, root->name.c_str(), to_json(*root));
        add_member(entry, "content", std::move(content));
    }
    return entry;
}

struct Profile {
    Json entry;
    size_t size;  // of the stored content
};
using Profiles = std::unordered_map<std::string_view, Profile>;  // by GUID

bool has_type(json_object* node, int type)
{
    json_object* member = find_member(node, "type", json_type_int);
    return member != nullptr && json_object_get_int64(member) == type;
}

Profiles read_profiles(json_object* nodes, int type)
{
    Profiles profiles;
    for (size_t i = 0; i < json_object_array_length(nodes); ++i) {
        json_object* node = json_object_array_get_idx(nodes, i);
        if (has_type(node, type)) {
            profiles.try_emplace(
                text_member(node, "GUID"),
                Profile{make_entry(node, read_content(node)), text_member(node, "content").size()});
        }
    }
    return profiles;
}

// The profiles that the elements named `prefix` and a number inside `container` refer to. Takes
// their sizes from `room`. A reference without a profile is left out.
Json referred_profiles(const XmlElement* container, std::string_view prefix,
                       const Profiles& profiles, size_t& room)
{
    Json list = owned(json_object_new_array());
    if (container == nullptr) {
        return list;
    }
    for (const auto& reference : container->children) {
        const auto found = profiles.find(reference.text);
        if (reference.name.compare(0, prefix.size(), prefix) != 0 || found == profiles.end()) {
            continue;
        }
        if (found->second.size > room) {
            throw ListFailure(RULE_LIST_TOO_LARGE, "the rules name too many profiles");
        }
        room -= found->second.size;
        add_element(list, Json(json_object_get(found->second.entry.get())));
    }
    return list;
}

Json make_rule_list(json_object* nodes)
{
    const Profiles events = read_profiles(nodes, EVENT_PROFILE_TYPE);
    const Profiles actions = read_profiles(nodes, ACTION_PROFILE_TYPE);
    size_t room = PROFILE_LIMIT;
    Json rules = owned(json_object_new_array());
    for (size_t i = 0; i < json_object_array_length(nodes); ++i) {
        json_object* node = json_object_array_get_idx(nodes, i);
        if (!has_type(node, RULE_TYPE)) {
            continue;
        }
        const auto root = read_content(node);
        const auto* event_list = root ? root->child("EventProfiles") : nullptr;
        const auto* action_list = root ? root->child("ActionProfiles") : nullptr;
        Json rule = make_entry(node, root);
        add_member(rule, "event", referred_profiles(event_list, "evtpf", events, room));
        add_member(rule, "action", referred_profiles(action_list, "actpf", actions, room));
        add_element(rules, std::move(rule));
    }
    Json document = owned(json_object_new_object());
    add_member(document, "ruleList", std::move(rules));
    return document;
}

Json parse_reply(const std::string& reply)
{
    const std::unique_ptr<json_tokener, TokenerRelease> tokener(json_tokener_new());
    if (!tokener) {
        throw std::bad_alloc();
    }
    json_tokener_set_flags(tokener.get(), JSON_TOKENER_STRICT | JSON_TOKENER_VALIDATE_UTF8);
    Json root(json_tokener_parse_ex(tokener.get(), reply.data(), static_cast<int>(reply.size())));
    const auto error = json_tokener_get_error(tokener.get());
    if (error != json_tokener_success) {
        throw ListFailure(RULES_NOT_READABLE, error == json_tokener_continue
                                                  ? "the reply ends too early"
                                                  : json_tokener_error_desc(error));
    }
    return root;
}

// The nodes in the reply of the configuration service, owned by `root`.
json_object* nodes_of_reply(json_object* root)
{
    json_object* err_code = find_member(root, "err_code", json_type_int);
    if (err_code == nullptr) {
        throw ListFailure(RULES_NOT_READABLE, "the reply has no err_code");
    }
    if (json_object_get_int64(err_code) != 0) {
        throw ListFailure(RULES_REFUSED, "the service answered with err_code " +
                                             std::to_string(json_object_get_int64(err_code)));
    }
    json_object* nodes = find_member(root, "content", json_type_array);
    if (nodes == nullptr) {
        throw ListFailure(RULES_NOT_READABLE, "the reply has no content");
    }
    return nodes;
}

Json fetch_rule_list()
{
    constexpr int PORT = 10141;
    constexpr long TIME_LIMIT = 15;
    std::string reply;
    query_object query;
    const long result = rova_GET_request("127.0.0.1", PORT, "/cfg/Rule", &query, reply, TIME_LIMIT,
                                         false, false, 0, nullptr);
    if (result != 0) {
        throw ListFailure(RULES_NOT_FETCHED, "the call failed with " + std::to_string(result));
    }
    const Json root = parse_reply(reply);
    return make_rule_list(nodes_of_reply(root.get()));
}

}  // namespace
}  // namespace host

int get_all_rules(json_object** out)
{
    try {
        *out = host::fetch_rule_list().release();
        return 0;
    } catch (const host::ListFailure& failure) {
        rule_log("Rule list: %s", failure.what());
        return failure.code();
    } catch (const std::exception& exception) {
        rule_log("Rule list: %s", exception.what());
        return host::RULE_LIST_NOT_BUILT;
    }
}
