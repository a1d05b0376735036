// What any program of this kind pays: it loads the two JSON libraries, parses one small document
// and prints one. With the argument "pauses" it also makes the pauses of one request to add a rule;
// with RULE_BENCH_RULES it makes, renders and parses a rule list of that length.
#include <json/reader.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>

#include "bench/rule_list.h"

namespace
{

constexpr int PAUSES = 54;
constexpr unsigned int PAUSE_MICROSECONDS = 100;

Json::Value parse(const char* text, size_t length)
{
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    Json::Value root;
    reader->parse(text, text + length, &root, nullptr);
    return root;
}

}  // namespace

int main(int count, char** arguments)
{
    const char document[] = R"({"rule":{"event":[{"eventID":536936448,"camera":[{"chIdx":3}]}]}})";
    const Json::Value root = parse(document, sizeof document - 1);
    const std::string_view mode = count > 1 ? arguments[1] : "";
    if (mode == "make" || mode == "parse") {
        const TJsonObject list = make_rule_list(rule_count());
        if (mode == "parse") {
            const char* const text = json_object_to_json_string(list.get());
            const Json::Value rules = parse(text, std::strlen(text));
        }
    }
    if (mode == "pauses") {
        prctl(PR_SET_TIMERSLACK, 1UL);
        for (int i = 0; i < PAUSES; ++i) {
            usleep(PAUSE_MICROSECONDS);
        }
    }
    const TJsonObject answer =
        with_member("ret_code", TJsonObject(json_object_new_int(root.isNull())));
    std::printf("Status: 200 OK\r\n\r\n%s\n\n", json_object_to_json_string(answer.get()));
}
