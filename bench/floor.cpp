// Does the least that reading a rule list takes: floor make|parse builds a list of RULE_BENCH_RULES
// rules and, with "parse", renders and parses it once, as the program must.
#include <json/reader.h>

#include <cstring>
#include <memory>
#include <string_view>

#include "bench/rule_list.h"

int main(int count, char** arguments)
{
    const TJsonObject list = make_rule_list(rule_count());
    if (count > 1 && std::string_view(arguments[1]) == "parse") {
        const char* const text = json_object_to_json_string(list.get());
        const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
        Json::Value rules;
        return reader->parse(text, text + std::strlen(text), &rules, nullptr) ? 0 : 1;
    }
    return 0;
}
