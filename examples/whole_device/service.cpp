// The configuration service and the rule library, both in the process and on the same file.
#include <json-c/json_tokener.h>

#include <map>
#include <memory>
#include <new>
#include <set>
#include <stdexcept>
#include <string>

#include "examples/whole_device/content.h"
#include "examples/whole_device/rule_file.h"
#include "platform/config_client.h"
#include "platform/rule_library.h"
#include "platform/rule_log.h"

namespace device
{

namespace
{

// The result of a call that has not been served.
constexpr int UNAVAILABLE = -1;

// The codes with which the service refuses a request.
constexpr int BAD_REQUEST = 1;
constexpr int GUID_IN_USE = 2;
constexpr int NO_SUCH_RULE = -1811535318;

constexpr const char* SUCCESS = R"({"err_code": 0, "err_str": ""})";
constexpr const char* SCHEDULES =
    R"({"err_code": 0, "err_str": "", "content": [)"
    R"({"name": "_ALL_DAY_", "GUID": "5EDC0000000000000000000000000001"}, )"
    R"({"name": "Weekend", "GUID": "5EDC0000000000000000000000000002"}]})";

struct Refusal : std::runtime_error {
    Refusal(int error_code, const char* text) : std::runtime_error(text), code(error_code) {}
    int code;
};

using Profiles = std::map<std::string, Json::Value>;  // by GUID

// The profiles that the elements of `names` name, as an array. They are removed from `profiles`.
Json::Value take_profiles(const Json::Value& names, Profiles& profiles)
{
    Json::Value taken(Json::arrayValue);
    for (const Json::Value& name : names) {
        const auto profile = profiles.find(name.asString());
        if (profile == profiles.end()) {
            throw Refusal(BAD_REQUEST, "the rule names a profile that no call creates");
        }
        taken.append(profile->second);
        profiles.erase(profile);
    }
    return taken;
}

// The rule that a multicall creates, as an entry of the list. Its profiles belong to no other rule
// and are a part of the entry, so they are deleted with it.
Json::Value read_multicall(const std::string& document)
{
    Profiles profiles;
    Json::Value rule;
    const Json::Value root = parse_json(document);
    for (const Json::Value& call : root["calls"]) {
        const Json::Value& node = call["body"]["ruleNode"];
        Json::Value entry;
        entry["GUID"] = node["GUID"].asString();
        entry["name"] = node["name"].asString();
        entry["content"] = read_content(node["content"].asString());
        if (entry["content"].isNull()) {
            throw Refusal(BAD_REQUEST, "content is not an XML document in base64");
        }
        if (rule.isNull() && entry["content"].isMember("rule")) {
            rule = entry;
        } else if (!profiles.try_emplace(node["GUID"].asString(), entry).second) {
            throw Refusal(GUID_IN_USE, "two profiles have the same GUID");
        }
    }
    const Json::Value content = rule["content"]["rule"];
    rule["event"] = take_profiles(content["EventProfiles"], profiles);
    rule["action"] = take_profiles(content["ActionProfiles"], profiles);
    if (content.isNull() || !profiles.empty()) {
        throw Refusal(BAD_REQUEST, "the calls are not one rule and its profiles");
    }
    return rule;
}

// Adds the GUIDs of a rule and its profiles to `guids`. False if one of them is there already.
bool add_guids(const Json::Value& rule, std::set<std::string>& guids)
{
    bool is_new = guids.insert(rule["GUID"].asString()).second;
    for (const char* const kind : {"event", "action"}) {
        for (const Json::Value& profile : rule[kind]) {
            is_new = guids.insert(profile["GUID"].asString()).second && is_new;
        }
    }
    return is_new;
}

void create_rule(const std::string& document, long seconds)
{
    const Json::Value rule = read_multicall(document);
    change_rules(seconds, [&rule](Json::Value& rules) {
        std::set<std::string> guids;
        for (const Json::Value& other : rules) {
            add_guids(other, guids);
        }
        if (!add_guids(rule, guids)) {
            throw Refusal(GUID_IN_USE, "a GUID is in use");
        }
        rules.append(rule);
    });
}

void delete_rule(const std::string& guid, long seconds)
{
    change_rules(seconds, [&guid](Json::Value& rules) {
        for (Json::ArrayIndex i = 0; i < rules.size(); ++i) {
            if (rules[i]["GUID"] == guid) {
                rules.removeIndex(i, nullptr);
                return;
            }
        }
        throw Refusal(NO_SUCH_RULE, "there is no rule with this GUID");
    });
}

// Carries an operation out and sets `reply` to its reply, or to the one that refuses it.
template <typename Operation>
int serve(std::string& reply, Operation operation)
{
    try {
        reply = operation();
        return 0;
    } catch (const Refusal& refusal) {
        reply = R"({"err_code": )" + std::to_string(refusal.code) + R"(, "err_str": ")" +
                refusal.what() + R"("})";
        return 0;
    } catch (const std::exception& failure) {
        rule_log("Configuration service: %s", failure.what());
        return UNAVAILABLE;
    }
}

}  // namespace

}  // namespace device

// Only called for the schedules, which never change. Without the rules there is no service.
long rova_GET_request(const char* /*host*/, int /*port*/, const char* /*path*/,
                      query_object* /*query*/, std::string& reply, long /*timeout*/, bool, bool,
                      int, char**)
{
    return device::serve(reply, [] {
        device::read_rule_list();
        return device::SCHEDULES;
    });
}

long rova_POST_request(const char* /*host*/, int /*port*/, const char* /*path*/, std::string body,
                       std::string& reply, long timeout, bool, bool, int, char**)
{
    return device::serve(reply, [&] {
        device::create_rule(body, timeout);
        return device::SUCCESS;
    });
}

long rova_DELETE_request(const char* /*host*/, int /*port*/, const char* /*path*/,
                         query_object* query, std::string& reply, long timeout, bool, bool, int,
                         char**)
{
    return device::serve(reply, [&] {
        device::delete_rule(query->params["GUID"], timeout);
        return device::SUCCESS;
    });
}

int get_all_rules(json_object** out)
{
    json_object* list = nullptr;
    std::string reply;
    const int result = device::serve(reply, [&list] {
        const std::string text = device::read_rule_list();
        const std::unique_ptr<json_tokener, decltype(&json_tokener_free)> tokener(
            json_tokener_new(), json_tokener_free);
        if (tokener == nullptr) {
            throw std::bad_alloc();
        }
        json_tokener_set_flags(tokener.get(), JSON_TOKENER_STRICT | JSON_TOKENER_VALIDATE_UTF8);
        list = json_tokener_parse_ex(tokener.get(), text.c_str(), static_cast<int>(text.size()));
        if (list == nullptr) {
            throw std::runtime_error("rules.json is not JSON");
        }
        return "";
    });
    if (result == 0) {
        *out = list;
    }
    return result;
}
