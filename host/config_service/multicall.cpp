#include "host/config_service/multicall.h"

#include <limits>

#include "host/config_service/content.h"
#include "host/config_service/json.h"
#include "host/config_service/refusal.h"

namespace host
{

namespace
{

constexpr size_t MAX_CALLS = 16;
constexpr size_t MAX_NAME_LENGTH = 4096;

json_object* need_member(json_object* object, const char* name, json_type type)
{
    json_object* const member = find_member(object, name, type);
    if (member == nullptr) {
        throw Refusal(ErrorCode::bad_call,
                      std::string(name) + " is missing or not of type " + json_type_to_name(type));
    }
    return member;
}

std::string need_text(json_object* object, const char* name)
{
    std::optional<std::string> text = read_text(need_member(object, name, json_type_string));
    if (!text) {
        throw Refusal(ErrorCode::bad_call, std::string(name) + " has a zero byte");
    }
    return std::move(*text);
}

std::string read_name(json_object* node)
{
    std::string name = need_text(node, "name");
    if (name.empty() || name.size() > MAX_NAME_LENGTH) {
        throw Refusal(ErrorCode::bad_call,
                      "name is empty or longer than " + std::to_string(MAX_NAME_LENGTH) + " bytes");
    }
    return name;
}

std::string read_guid(json_object* node)
{
    std::string guid = need_text(node, "GUID");
    if (!is_guid(guid)) {
        throw Refusal(ErrorCode::bad_call, "GUID is not 32 hexadecimal digits");
    }
    return guid;
}

NodeType read_type(json_object* node)
{
    const auto type =
        static_cast<NodeType>(json_object_get_int(need_member(node, "type", json_type_int)));
    switch (type) {
        case NodeType::rule:
        case NodeType::event_profile:
        case NodeType::action_profile:
            return type;
    }
    throw Refusal(ErrorCode::bad_call, "type is not 0, 3 or 4");
}

int32_t read_event_id(json_object* node)
{
    const int64_t event_id = json_object_get_int64(need_member(node, "EventID", json_type_int));
    if (event_id < std::numeric_limits<int32_t>::min() ||
        event_id > std::numeric_limits<int32_t>::max()) {
        throw Refusal(ErrorCode::bad_call, "EventID does not fit in 32 bits");
    }
    return static_cast<int32_t>(event_id);
}

Node read_node(json_object* rule_node)
{
    Node node;
    node.name = read_name(rule_node);
    node.description = need_text(rule_node, "description");
    node.guid = read_guid(rule_node);
    node.type = read_type(rule_node);
    node.active = json_object_get_boolean(need_member(rule_node, "active", json_type_boolean)) != 0;
    node.content = need_text(rule_node, "content");
    if (node.type == NodeType::event_profile) {
        node.event_id = read_event_id(rule_node);
    }
    if (json_object_get_boolean(need_member(rule_node, "isGroup", json_type_boolean)) != 0) {
        throw Refusal(ErrorCode::bad_call, "isGroup is true, but there are no groups of rules");
    }
    return node;
}

NewNode read_call(json_object* call)
{
    if (need_text(call, "object") != "Rule" || need_text(call, "method") != "POST") {
        throw Refusal(ErrorCode::bad_call, "the only call is method POST of object Rule");
    }
    json_object* const body = need_member(call, "body", json_type_object);
    Node node = read_node(need_member(body, "ruleNode", json_type_object));
    References references = check_content(node.type, node.content, node.event_id);
    return {std::move(node), std::move(references)};
}

}  // namespace

std::vector<NewNode> read_multicall(std::string_view document)
{
    std::string error;
    const JsonDocument root = parse_json(document, error);
    if (root == nullptr) {
        throw Refusal(ErrorCode::bad_document, "the body is not a JSON document: " + error);
    }
    json_object* const calls = find_member(root.get(), "calls", json_type_array);
    const size_t count = calls == nullptr ? 0 : json_object_array_length(calls);
    if (count == 0 || count > MAX_CALLS) {
        throw Refusal(ErrorCode::bad_document,
                      "calls is not a list of 1 to " + std::to_string(MAX_CALLS) + " calls");
    }
    std::vector<NewNode> nodes;
    for (size_t i = 0; i < count; ++i) {
        try {
            nodes.push_back(read_call(json_object_array_get_idx(calls, i)));
        } catch (const Refusal& refusal) {
            throw Refusal(refusal.code, i, refusal.what());
        }
    }
    return nodes;
}

}  // namespace host
