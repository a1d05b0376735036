#include "platform/rule_library.h"

#include <json-c/json_object.h>

#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>

#include "host/common/base64.h"
#include "host/common/config_service.h"
#include "host/common/json.h"
#include "host/common/utf8.h"
#include "host/common/xml_document.h"
#include "host/platform/result_codes.h"
#include "platform/config_client.h"
#include "platform/rule_log.h"

namespace host
{
namespace
{

constexpr size_t MAX_ELEMENTS = 250000;

// The bytes of the profiles in a list, counted each time a profile is inserted. Any number of rules
// may refer to a profile, so a small reply could otherwise lead to a huge list.
constexpr size_t PROFILE_LIMIT = 64UL * 1024 * 1024;

// The size of a profile in a list without its texts.
constexpr size_t PROFILE_OVERHEAD = 64;

struct JsonRelease {
    void operator()(json_object* object) const { json_object_put(object); }
};
using JsonObject = std::unique_ptr<json_object, JsonRelease>;

// Ends the building of the list with a result code.
class ListFailure : public std::runtime_error
{
 public:
    ListFailure(int code, const std::string& reason) : std::runtime_error(reason), code_(code) {}
    int code() const { return code_; }

 private:
    int code_;
};

JsonObject owned(json_object* object)
{
    if (object == nullptr) {
        throw std::bad_alloc();
    }
    return JsonObject(object);
}

JsonObject make_text(std::string_view text)
{
    return owned(json_object_new_string_len(text.data(), static_cast<int>(text.size())));
}

// The object must not have the member yet.
void add_member(const JsonObject& object, const char* name, JsonObject value)
{
    if (json_object_object_add_ex(object.get(), name, value.get(), JSON_C_OBJECT_ADD_KEY_IS_NEW) !=
        0) {
        throw std::bad_alloc();
    }
    (void)value.release();
}

void add_element(const JsonObject& array, JsonObject value)
{
    if (json_object_array_add(array.get(), value.get()) != 0) {
        throw std::bad_alloc();
    }
    (void)value.release();
}

// The text member `name`, valid as long as `object`; empty when there is none.
std::string_view text_member(const Json::Value& object, std::string_view name)
{
    const Json::Value* const text = find_member(object, name, Json::stringValue);
    return text == nullptr ? "" : read_text(*text);
}

// Of elements of the same name the first one counts.
JsonObject to_json(const XmlElement& element)
{
    if (element.children.empty()) {
        return make_text(element.text);
    }
    JsonObject object = owned(json_object_new_object());
    for (const auto& child : element.children) {
        if (json_object_object_get_ex(object.get(), child.name.c_str(), nullptr) == 0) {
            add_member(object, child.name.c_str(), to_json(child));
        }
    }
    return object;
}

// The XML document stored in `node`. Nothing when it is not readable, which is logged.
std::optional<XmlElement> read_content(const Json::Value& node, XmlParser& parser)
{
    std::string error = "not base64";
    const auto document = decode_base64(text_member(node, "content"));
    auto root = document ? parser.parse(*document, error) : std::nullopt;
    if (parser.elements_left() == 0) {
        throw ListFailure(RULE_LIST_TOO_LARGE, "the rules have too many elements");
    }
    if (!root) {
        rule_log("Rule list: content of [%s]: %s", std::string(text_member(node, "GUID")).c_str(),
                 error.c_str());
    }
    return root;
}

// The common part of the entries of rules and profiles.
JsonObject make_entry(const Json::Value& node, const std::optional<XmlElement>& root)
{
    JsonObject entry = owned(json_object_new_object());
    for (const char* const name : {"GUID", "name"}) {
        const std::string_view text = text_member(node, name);
        if (!is_utf8(text)) {
            throw ListFailure(RULES_NOT_READABLE, std::string("a ") + name + " is not UTF-8");
        }
        add_member(entry, name, make_text(text));
    }
    if (root) {
        JsonObject content = owned(json_object_new_object());
        add_member(content, root->name.c_str(), to_json(*root));
        add_member(entry, "content", std::move(content));
    }
    return entry;
}

struct Profile {
    JsonObject entry;
    size_t size;
};
using Profiles = std::unordered_map<std::string_view, Profile>;  // by GUID

bool has_type(const Json::Value& node, NodeType type)
{
    const Json::Value* const member = find_member(node, "type", Json::intValue);
    return member != nullptr && member->asLargestInt() == static_cast<int>(type);
}

Profiles read_profiles(const Json::Value& nodes, NodeType type, XmlParser& parser)
{
    Profiles profiles;
    for (const Json::Value& node : nodes) {
        if (has_type(node, type)) {
            const std::string_view guid = text_member(node, "GUID");
            const size_t size = guid.size() + text_member(node, "name").size() +
                                text_member(node, "content").size() + PROFILE_OVERHEAD;
            profiles.try_emplace(guid, Profile{make_entry(node, read_content(node, parser)), size});
        }
    }
    return profiles;
}

// The profiles that the elements named `prefix` and a number inside `container` refer to. Takes
// their sizes from `room`. A reference without a profile is omitted.
JsonObject referred_profiles(const XmlElement* container, std::string_view prefix,
                             const Profiles& profiles, size_t& room)
{
    JsonObject list = owned(json_object_new_array());
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
        add_element(list, JsonObject(json_object_get(found->second.entry.get())));
    }
    return list;
}

JsonObject make_rule_list(const Json::Value& nodes)
{
    XmlParser parser(MAX_ELEMENTS);
    const Profiles events = read_profiles(nodes, NodeType::event_profile, parser);
    const Profiles actions = read_profiles(nodes, NodeType::action_profile, parser);
    size_t room = PROFILE_LIMIT;
    JsonObject rules = owned(json_object_new_array());
    for (const Json::Value& node : nodes) {
        if (!has_type(node, NodeType::rule)) {
            continue;
        }
        const auto root = read_content(node, parser);
        const auto* event_list = root ? root->child("EventProfiles") : nullptr;
        const auto* action_list = root ? root->child("ActionProfiles") : nullptr;
        JsonObject rule = make_entry(node, root);
        add_member(rule, "event", referred_profiles(event_list, "evtpf", events, room));
        add_member(rule, "action", referred_profiles(action_list, "actpf", actions, room));
        add_element(rules, std::move(rule));
    }
    JsonObject document = owned(json_object_new_object());
    add_member(document, "ruleList", std::move(rules));
    return document;
}

// The contents of the configuration service.
Json::Value fetch_nodes()
{
    constexpr long TIME_LIMIT = 15;
    std::string reply;
    query_object query;
    const long result = rova_GET_request(SERVICE_ADDRESS, SERVICE_PORT, RULE_PATH, &query, reply,
                                         TIME_LIMIT, false, false, 0, nullptr);
    if (result != 0) {
        throw ListFailure(RULES_NOT_FETCHED, "the call failed with " + std::to_string(result));
    }
    std::string error;
    auto root = parse_json(reply, MAX_ELEMENTS, error);
    const Json::Value* const code = root ? find_member(*root, "err_code", Json::intValue) : nullptr;
    if (code == nullptr) {
        throw ListFailure(RULES_NOT_READABLE, root ? "the reply has no err_code" : error);
    }
    if (*code != 0) {
        throw ListFailure(RULES_REFUSED, "the service answered with err_code " + code->asString());
    }
    if (find_member(*root, "content", Json::arrayValue) == nullptr) {
        throw ListFailure(RULES_NOT_READABLE, "the reply has no content");
    }
    Json::Value nodes;
    nodes.swap((*root)["content"]);
    return nodes;
}

}  // namespace
}  // namespace host

int get_all_rules(json_object** out)
{
    try {
        *out = host::make_rule_list(host::fetch_nodes()).release();
        return 0;
    } catch (const host::ListFailure& failure) {
        rule_log("Rule list: %s", failure.what());
        return failure.code();
    } catch (const std::exception& exception) {
        rule_log("Rule list: %s", exception.what());
        return host::RULE_LIST_NOT_BUILT;
    }
}
