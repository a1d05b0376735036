#include "host/config_service/content.h"

#include "host/common/base64.h"
#include "host/common/xml_document.h"
#include "host/config_service/refusal.h"

namespace host
{

namespace
{

constexpr size_t MAX_ELEMENTS = 1000;

// The names of the elements of one list: of its length, of the list, and the prefix of its members.
struct ListForm {
    std::string count;
    std::string container;
    std::string prefix;
};

const char* root_name(NodeType type)
{
    switch (type) {
        case NodeType::rule:
            return "rule";
        case NodeType::event_profile:
            return "event_profile";
        case NodeType::action_profile:
            return "action_profile";
    }
    throw Refusal(ErrorCode::bad_call, "unknown type");
}

XmlElement read_document(const std::string& content, const std::string& expected_root)
{
    const std::optional<std::string> document = decode_base64(content);
    if (!document) {
        throw Refusal(ErrorCode::bad_call, "content is not base64");
    }
    std::string error;
    std::optional<XmlElement> root = XmlParser(MAX_ELEMENTS).parse(*document, error);
    if (!root) {
        throw Refusal(ErrorCode::bad_call, "content cannot be read as XML: " + error);
    }
    if (root->name != expected_root) {
        throw Refusal(ErrorCode::bad_call, "content is not a document <" + expected_root + ">");
    }
    return std::move(*root);
}

// The text of a child; empty without one.
std::string child_text(const XmlElement& parent, const std::string& name)
{
    const XmlElement* const child = parent.child(name);
    return child == nullptr ? "" : child->text;
}

// A list without both its elements is empty.
std::vector<std::string> read_list(const XmlElement& root, const ListForm& form)
{
    const XmlElement* const count = root.child(form.count);
    const XmlElement* const container = root.child(form.container);
    if (count == nullptr && container == nullptr) {
        return {};
    }
    if (count == nullptr || container == nullptr ||
        count->text != std::to_string(container->children.size())) {
        throw Refusal(ErrorCode::bad_call,
                      "content: <" + form.count + "> does not agree with <" + form.container + ">");
    }
    std::vector<std::string> members;
    for (const XmlElement& member : container->children) {
        const std::string name = form.prefix + std::to_string(members.size());
        if (member.name != name || member.text.empty()) {
            throw Refusal(ErrorCode::bad_call,
                          "content: no <" + name + "> in <" + form.container + ">");
        }
        members.push_back(member.text);
    }
    return members;
}

std::vector<std::string> read_needed_list(const XmlElement& root, const ListForm& form)
{
    std::vector<std::string> members = read_list(root, form);
    if (members.empty()) {
        throw Refusal(ErrorCode::bad_call, "content: no member in <" + form.container + ">");
    }
    return members;
}

void check_event_profile(const XmlElement& root, std::optional<int32_t> event_id)
{
    if (!event_id || child_text(root, "EventID") != std::to_string(*event_id)) {
        throw Refusal(ErrorCode::bad_call, "content: <EventID> is not the node's EventID");
    }
    read_needed_list(root, {"SourceNum", "SourceIds", "id"});
}

void check_action_profile(const XmlElement& root)
{
    if (child_text(root, "ActionName").empty()) {
        throw Refusal(ErrorCode::bad_call, "content: no <ActionName>");
    }
    read_needed_list(root, {"TargetNum", "TargetIds", "id"});
}

void check_guid(const std::string& text, const char* what)
{
    if (!is_guid(text)) {
        throw Refusal(ErrorCode::bad_call, std::string("content: the GUID of ") + what +
                                               " is not 32 hexadecimal digits");
    }
}

References read_rule(const XmlElement& root)
{
    References references{read_needed_list(root, {"EventProfileNum", "EventProfiles", "evtpf"}),
                          read_list(root, {"ActionProfileNum", "ActionProfiles", "actpf"}),
                          child_text(root, "TimeProfile")};
    for (const std::string& guid : references.event_profiles) {
        check_guid(guid, "an event profile");
    }
    for (const std::string& guid : references.action_profiles) {
        check_guid(guid, "an action profile");
    }
    if (!references.schedule.empty()) {
        check_guid(references.schedule, "the time profile");
    }
    return references;
}

}  // namespace

References check_content(NodeType type, const std::string& content, std::optional<int32_t> event_id)
{
    const XmlElement root = read_document(content, root_name(type));
    switch (type) {
        case NodeType::rule:
            return read_rule(root);
        case NodeType::event_profile:
            check_event_profile(root, event_id);
            break;
        case NodeType::action_profile:
            check_action_profile(root);
            break;
    }
    return {};
}

}  // namespace host
