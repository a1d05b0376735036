#include "rule_operation/config_access/duplicate_rule.h"

#include <cstddef>
#include <cstdlib>
#include <optional>
#include <string>

#include "platform/rule_library.h"
#include "rule_operation/shared/diagnostics.h"
#include "rule_operation/shared/json_object.h"
#include "rule_operation/shared/json_reader.h"

namespace
{

constexpr int MAX_SOURCES = 128;

// The position of the camera's channel in a source ID.
constexpr size_t CHANNEL_POSITION = 28;
constexpr size_t CHANNEL_LENGTH = 4;

int to_int(const std::string& decimal)
{
    return static_cast<int>(std::strtol(decimal.c_str(), nullptr, 10));
}

// Whether one of the event's sources is on the channel. Sources after a gap in their keys do not
// count; a source ID that is too short for a channel matches none.
bool has_source_on_channel(TJsonValue sources, int event_index, int in_chIdx)
{
    for (int j = 0; j < MAX_SOURCES; ++j) {
        const TJsonValue source = sources.member("id" + std::to_string(j));
        const std::optional<std::string> ch_guid = source.text();
        if (source.is_absent() || !ch_guid) {
            return false;
        }
        if (ch_guid->size() < CHANNEL_POSITION) {
            continue;
        }
        const int chidx = to_int(ch_guid->substr(CHANNEL_POSITION, CHANNEL_LENGTH));
        RULE_LOG("--------->i=%d j=%d ch_guid=[%s] get chidx=%d in_chIdx=%d", event_index, j,
                 ch_guid->c_str(), chidx, in_chIdx);
        if (chidx == in_chIdx) {
            return true;
        }
    }
    return false;
}

// Whether one of the rule's events is the one sought.
bool covers(TJsonValue rule, int in_eventID, int in_chIdx)
{
    const TJsonValue events = rule.member("event");
    for (unsigned int i = 0; i < events.size(); ++i) {
        const TJsonValue profile = events.element(i).member("content").member("event_profile");
        const std::string evtID = profile.member("EventID").text_or_empty();
        const int index = static_cast<int>(i);
        RULE_LOG("--------->i=%d evtID=[%s] in_eventID=%d", index, evtID.c_str(), in_eventID);
        if (to_int(evtID) == in_eventID &&
            has_source_on_channel(profile.member("SourceIds"), index, in_chIdx)) {
            return true;
        }
    }
    return false;
}

bool is_quick_rule(TJsonValue rule, unsigned int idx)
{
    const TJsonValue method = rule.member("content").member("rule").member("CreationMethod");
    const std::optional<std::string> creationMethod = method.text();
    if (method.is_absent() || !creationMethod) {
        return false;
    }
    RULE_LOG("--------->idx=%d creationMethod=[%s] rule GUID=[%s]", static_cast<int>(idx),
             creationMethod->c_str(), rule.member("GUID").text_or_empty().c_str());
    return *creationMethod == "quick";
}

}  // namespace

int is_event_already_in_rule(bool& found, int in_eventID, int in_chIdx)
{
    found = false;
    json_object* out = nullptr;
    if (const int r = get_all_rules(&out); r != 0) {
        RULE_LOG("Error get_all_rules fail ret=%d", r);
        return -601;
    }
    TJsonObject list(out);
    const std::string rulelistStr(json_text(list));
    list.reset();

    std::string errors;
    const std::optional<TJsonDocument> document = TJsonDocument::parse(rulelistStr, &errors);
    if (!document) {
        RULE_LOG("Error input json rulelistStr=[%s] errors=[%s]\n", rulelistStr.c_str(),
                 errors.c_str());
        return -602;
    }
    const TJsonValue rules = document->root().member("ruleList");
    if (!rules.is_array()) {
        RULE_LOG("Error input, no rulelistStr array req=[%s]", rulelistStr.c_str());
        return -603;
    }
    RULE_LOG("Get rule_list_json array size=%d", static_cast<int>(rules.size()));
    for (unsigned int idx = 0; idx < rules.size() && !found; ++idx) {
        const TJsonValue rule = rules.element(idx);
        found = is_quick_rule(rule, idx) && covers(rule, in_eventID, in_chIdx);
    }
    return 0;
}
