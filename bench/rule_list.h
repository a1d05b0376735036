// Builds a rule list of any length, in the form in which a recorder returns it.
#pragma once

#include <cstdlib>
#include <string>

#include "rule_operation/shared/json_object.h"

// How many rules there are: the environment variable RULE_BENCH_RULES, or none.
inline int rule_count()
{
    const char* const text = std::getenv("RULE_BENCH_RULES");
    return text == nullptr ? 0 : static_cast<int>(std::strtol(text, nullptr, 10));
}

inline TJsonObject json_text(const std::string& text)
{
    return TJsonObject(json_object_new_string(text.c_str()));
}

inline void put(const TJsonObject& object, const char* name, TJsonObject value)
{
    json_object_object_add(object.get(), name, value.release());
}

inline TJsonObject with_member(const char* name, TJsonObject value)
{
    TJsonObject object(json_object_new_object());
    put(object, name, std::move(value));
    return object;
}

inline TJsonObject one_element(TJsonObject value)
{
    TJsonObject array(json_object_new_array());
    json_object_array_add(array.get(), value.release());
    return array;
}

// A quick rule with an event on a channel that no request of the benchmark names.
inline TJsonObject make_rule(int index)
{
    const std::string number = std::to_string(100000 + index);
    TJsonObject sources = with_member("id0", json_text("CA3E7A000000000000000000C0DE0190"));
    TJsonObject profile = with_member("EventID", json_text("536936448"));
    put(profile, "SourceNum", json_text("1"));
    put(profile, "SourceIds", std::move(sources));
    TJsonObject event = with_member("GUID", json_text("1111111111AAAAAAAAAAAA" + number + "00BE"));
    put(event, "content", with_member("event_profile", std::move(profile)));

    TJsonObject rule = with_member("active", json_text("1"));
    put(rule, "TimeProfile", json_text("5C4ED01E000000000000000000000001"));
    put(rule, "CreationMethod", json_text("quick"));
    TJsonObject entry = with_member("GUID", json_text("3333333333AAAAAAAAAAAA" + number + "00BE"));
    put(entry, "name", json_text("clientRule"));
    put(entry, "content", with_member("rule", std::move(rule)));
    put(entry, "event", one_element(std::move(event)));
    return entry;
}

inline TJsonObject make_rule_list(int count)
{
    TJsonObject rules(json_object_new_array());
    for (int i = 0; i < count; ++i) {
        json_object_array_add(rules.get(), make_rule(i).release());
    }
    return with_member("ruleList", std::move(rules));
}
