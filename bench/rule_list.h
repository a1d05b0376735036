// A rule list as a recorder has it, of any length.
#pragma once

#include <cstdlib>
#include <string>

#include "rule_operation/shared/json_object.h"

// How many rules there are: the environment variable RULE_BENCH_RULES, or none.
inline int rule_count()
{
    const char* const text = std::getenv("RULE_BENCH_RULES");
    return text == nullptr ? 0 : std::atoi(text);
}

inline JsonObject json_text(const std::string& text)
{
    return JsonObject(json_object_new_string(text.c_str()));
}

inline void put(const JsonObject& object, const char* name, JsonObject value)
{
    json_object_object_add(object.get(), name, value.release());
}

inline JsonObject with_member(const char* name, JsonObject value)
{
    JsonObject object(json_object_new_object());
    put(object, name, std::move(value));
    return object;
}

inline JsonObject one_element(JsonObject value)
{
    JsonObject array(json_object_new_array());
    json_object_array_add(array.get(), value.release());
    return array;
}

// A quick rule with an event on a channel that no request of the benchmark names.
inline JsonObject make_rule(int index)
{
    const std::string number = std::to_string(100000 + index);
    JsonObject sources = with_member("id0", json_text("CA3E7A000000000000000000C0DE0190"));
    JsonObject profile = with_member("EventID", json_text("536936448"));
    put(profile, "SourceNum", json_text("1"));
    put(profile, "SourceIds", std::move(sources));
    JsonObject event = with_member("GUID", json_text("1111111111AAAAAAAAAAAA" + number + "00BE"));
    put(event, "content", with_member("event_profile", std::move(profile)));

    JsonObject rule = with_member("active", json_text("1"));
    put(rule, "TimeProfile", json_text("5C4ED01E000000000000000000000001"));
    put(rule, "CreationMethod", json_text("quick"));
    JsonObject entry = with_member("GUID", json_text("3333333333AAAAAAAAAAAA" + number + "00BE"));
    put(entry, "name", json_text("clientRule"));
    put(entry, "content", with_member("rule", std::move(rule)));
    put(entry, "event", one_element(std::move(event)));
    return entry;
}

inline JsonObject make_rule_list(int count)
{
    JsonObject rules(json_object_new_array());
    for (int i = 0; i < count; ++i) {
        json_object_array_add(rules.get(), make_rule(i).release());
    }
    return with_member("ruleList", std::move(rules));
}
