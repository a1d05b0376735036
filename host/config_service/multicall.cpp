#include "host/config_service/multicall.h"

#include "host/common/json.h"
#include "host/common/utf8.h"
#include "host/config_service/content.h"
#include "host/config_service/refusal.h"

namespace host
{

namespace
{

constexpr size_t MAX_CALLS = 16;
constexpr size_t MAX_ELEMENTS = 1000;
constexpr size_t MAX_NAME_LENGTH = 4096;

const Json::Value& need_member(const Json::Value& object, const char* name, Json::ValueType type)
{
    const Json::Value* const member = find_member(object, name, type);
    if (member == nullptr) {
        throw Refusal(ErrorCode::bad_call, std::string(name) + " is missing or of another type");
    }
    return *member;
}

std::string need_text(const Json::Value& object, const char* name)
{
    const std::string_view text = read_text(need_member(object, name, Json::stringValue));
    if (text.find('\0') != std::string_view::npos || !is_utf8(text)) {
        throw Refusal(ErrorCode::bad_call, std::string(name) + " has a zero byte or is not UTF-8");
    }
    return std::string(text);
}

std::string read_name(const Json::Value& node)
{
    std::string name = need_text(node, "name");
    if (name.size() > MAX_NAME_LENGTH) {
        throw Refusal(ErrorCode::bad_call,
                      "name is longer than " + std::to_string(MAX_NAME_LENGTH) + " bytes");
    }
    return name;
}

std::string read_guid(const Json::Value& node)
{
    std::string guid = need_text(node, "GUID");
    if (!is_guid(guid)) {
        throw Refusal(ErrorCode::bad_call, "GUID is not 32 hexadecimal digits");
    }
    return guid;
}

int32_t need_number(const Json::Value& object, const char* name)
{
    const Json::Value& number = need_member(object, name, Json::intValue);
    if (!number.isInt()) {
        throw Refusal(ErrorCode::bad_call, std::string(name) + " does not fit in 32 bits");
    }
    return number.asInt();
}

NodeType read_type(const Json::Value& node)
{
    const auto type = static_cast<NodeType>(need_number(node, "type"));
    switch (type) {
        case NodeType::rule:
        case NodeType::event_profile:
        case NodeType::action_profile:
            return type;
    }
    throw Refusal(ErrorCode::bad_call, "type is not 0, 3 or 4");
}

Node read_node(const Json::Value& rule_node)
{
    Node node;
    node.name = read_name(rule_node);
    node.description = need_text(rule_node, "description");
    node.guid = read_guid(rule_node);
    node.type = read_type(rule_node);
    node.active = need_member(rule_node, "active", Json::booleanValue).asBool();
    node.content = need_text(rule_node, "content");
    if (node.type == NodeType::event_profile) {
        node.event_id = need_number(rule_node, "EventID");
    }
    if (need_member(rule_node, "isGroup", Json::booleanValue).asBool()) {
        throw Refusal(ErrorCode::bad_call, "isGroup is true, but there are no groups of rules");
    }
    return node;
}

NewNode read_call(const Json::Value& call)
{
    if (need_text(call, "object") != "Rule" || need_text(call, "method") != "POST") {
        throw Refusal(ErrorCode::bad_call, "the only call is method POST of object Rule");
    }
    const Json::Value& body = need_member(call, "body", Json::objectValue);
    Node node = read_node(need_member(body, "ruleNode", Json::objectValue));
    References references = check_content(node.type, node.content, node.event_id);
    return {std::move(node), std::move(references)};
}

}  // namespace

std::vector<NewNode> read_multicall(std::string_view document)
{
    std::string error;
    const auto root = parse_json(document, MAX_ELEMENTS, error);
    if (!root) {
        throw Refusal(ErrorCode::bad_document, "the body is not a JSON document: " + error);
    }
    const Json::Value* const calls = find_member(*root, "calls", Json::arrayValue);
    if (calls == nullptr || calls->empty() || calls->size() > MAX_CALLS) {
        throw Refusal(ErrorCode::bad_document,
                      "calls is not a list of 1 to " + std::to_string(MAX_CALLS) + " calls");
    }
    std::vector<NewNode> nodes;
    for (const Json::Value& call : *calls) {
        try {
            nodes.push_back(read_call(call));
        } catch (const Refusal& refusal) {
            throw Refusal(refusal.code, nodes.size(), refusal.what());
        }
    }
    return nodes;
}

}  // namespace host
