#include "tests/request_cases.h"

#include <initializer_list>

const char* const ADD_RULE_BODY =
    R"({"rule":{"event":[{"eventID":536936448,"camera":[{"chIdx":3}]}],)"
    R"("action":[{"ActionName":"RecordControl","chIdx":[10]}]}})";

namespace
{

constexpr const char* OK = "200 OK";
constexpr const char* BAD = "400 Bad Request";
constexpr const char* UNAUTHORIZED = "401 Unauthorized";

// A request document with this event, and more members of the rule behind it.
std::string with_event(const std::string& event, const std::string& more = "")
{
    return R"({"rule":{"event":[)" + event + "]" + more + "}}";
}

std::string on_channel(const std::string& channel, const std::string& event_id = "536936448")
{
    return with_event(R"({"eventID":)" + event_id + R"(,"camera":[{"chIdx":)" + channel + "}]}");
}

std::string with_action(const std::string& action)
{
    return with_event(R"({"eventID":536936448,"camera":[{"chIdx":3}]})", ",\"action\":" + action);
}

std::string with_alarm(const std::string& alarm)
{
    return with_event(R"({"eventID":537001984,"camera":[{"chIdx":3)" + alarm + "}]}");
}

std::string quick_rule(const std::string& event_id, const std::string& source)
{
    return R"({"ruleList":[{"GUID":"3","content":{"rule":{"CreationMethod":"quick"}},"event":)"
           R"([{"content":{"event_profile":{"EventID":")" +
           event_id + R"(","SourceIds":{"id0":")" + source + R"("}}}}]}]})";
}

std::string levels(int count)
{
    return std::string(static_cast<size_t>(count), '[');
}

std::vector<RequestCase> front_end_cases()
{
    const auto refuse_caller = [](FakePlatform& fake) { fake.authentication_result = -7; };
    const auto func = [](const char* value) {
        return [value](FakePlatform& fake) { fake.parameters = {{"func", value}}; };
    };
    const std::string body = ADD_RULE_BODY;
    const std::string full = body + std::string(4095 - body.size(), ' ');
    const Request too_long{"POST", full + " "};
    return {
        {"method empty", {std::nullopt}, OK, -3, "http method empty"},
        {"method is empty text", {""}, OK, -3, "http method invalid"},
        {"method in lower case", {"get"}, OK, -3, "http method invalid"},
        {"caller refused", {"POST", body}, UNAUTHORIZED, -2, "Authorized failed", refuse_caller},
        {"caller before method", {"X"}, UNAUTHORIZED, -2, "Authorized failed", refuse_caller},
        {"no input handle",
         {"GET"},
         UNAUTHORIZED,
         -2,
         "Authorized failed",
         [](FakePlatform& fake) { fake.has_input = false; }},
        {"list refused",
         {"GET"},
         UNAUTHORIZED,
         -2,
         "Authorized failed",
         [](FakePlatform& fake) { fake.rules_result = -2; }},
        {"list failed",
         {"GET"},
         BAD,
         5,
         "Request failed",
         [](FakePlatform& fake) { fake.rules_result = 5; }},
        {"no func",
         {"POST", body},
         BAD,
         -290,
         "post uri can not get func parameter",
         [](FakePlatform& fake) { fake.parameters.clear(); }},
        {"no func and no body",
         {"POST"},
         BAD,
         -290,
         "post uri can not get func parameter",
         [](FakePlatform& fake) {
             fake.parameters = {{"Func", "addRule"}};
         }},
        {"no body", {"POST"}, BAD, -291, "content data is NULL"},
        {"body of 4,096 bytes", too_long, BAD, -291, "content data is NULL"},
        {"length negative", {"POST", body, "-5"}, BAD, -291, "content data is NULL"},
        {"length no number", {"POST", body, "x9"}, BAD, -291, "content data is NULL"},
        {"length 0", {"POST", body, "0"}, BAD, -291, "content data is NULL"},
        {"length beyond 64 bits",
         {"POST", body, "9" + std::string(30, '9')},
         BAD,
         -291,
         "content data is NULL"},
        {"func empty", {"POST", body}, BAD, -292, "uri input func=[] not supported", func("")},
        {"func in lower case",
         {"POST", body},
         BAD,
         -292,
         "uri input func=[addrule] not supported",
         func("addrule")},
        {"func with percent signs",
         {"POST", body},
         BAD,
         -292,
         "uri input func=[%s%n] not supported",
         func("%s%n")},
        {"rule added", {"POST", body}, OK, 0, "Add Rule successful"},
        {"body of 4,095 bytes", {"POST", full}, OK, 0, "Add Rule successful"},
        {"length with letters behind",
         {"POST", body, std::to_string(body.size()) + "abc"},
         OK,
         0,
         "Add Rule successful"},
        {"length kept in 32 bits",
         {"POST", body, std::to_string((1ULL << 32) + body.size())},
         OK,
         0,
         "Add Rule successful"},
        {"zero byte ends the body",
         {"POST", body + std::string(1, '\0') + "}"},
         OK,
         0,
         "Add Rule successful"},
        {"input ends early",
         {"POST", body, "300", std::nullopt, true},
         OK,
         0,
         "Add Rule successful"},
        {"input ends too early",
         {"POST", body.substr(0, 9), "300", std::nullopt, true},
         BAD,
         -101,
         "Error input Json format error"},
    };
}

std::vector<RequestCase> document_cases()
{
    struct Row {
        std::string body;
        int code;
        const char* message;
    };
    const std::vector<Row> rows = {
        {"{", -101, "Error input Json format error"},
        {levels(1100), -101, "Error input Json format error"},
        {levels(4095), -101, "Error input Json format error"},
        {"{}", -102, "Error input Json no event object"},
        {"null", -102, "Error input Json no event object"},
        {"[1]", -102, "Error input Json no event object"},
        {R"({"rule":"x"})", -102, "Error input Json no event object"},
        {R"({"rule":{"event":null}})", -102, "Error input Json no event object"},
        {R"({"rule":{"event":{}}})", -103, "Error input Json event object not array"},
        {R"({"rule":{"event":[]}})", -104, "Error input Json no event->eventID object"},
        {with_event("[7]"), -104, "Error input Json no event->eventID object"},
        {with_event(R"({"eventID":1})"), -105, "Error input Json no event->camera object"},
        {with_event(R"({"eventID":1,"camera":{}})"), -106,
         "Error input Json no event->camera object not array"},
        {with_event(R"({"eventID":1,"camera":[]})"), -107,
         "Error input Json no event->camera->chIdx object"},
        {with_alarm(""), -108, "Error input Json no event->camera->alarm object"},
        {with_alarm(R"(,"alarm":{})"), -109,
         "Error input Json no event->camera->alarm object not array"},
        {with_action("{}"), -120, "Error input Json action object not array"},
        {with_action("[]"), -121, "Error input Json no action->ActionName object"},
        {with_action(R"([{"ActionName":"x"}])"), -122, "Error input Json no action->chIdx object"},
        {with_action(R"([{"ActionName":[],"chIdx":5}])"), -123,
         "Error input Json no action->chIdx object not array"},
        {R"({"rule":{"timeprofileGUID":[]}})", -110,
         "Error input Json timeprofileGUID object not string"},
        {R"({"rule":{"ruleName":{}}})", -110, "Error input Json ruleName object not string"},
        {with_event(R"({"eventID":"536936448"})"), -110,
         "Error input Json event->eventID object not integer"},
        {on_channel("2147483648"), -110,
         "Error input Json event->camera->chIdx object not integer"},
        {on_channel("-2147483649"), -110,
         "Error input Json event->camera->chIdx object not integer"},
        {on_channel("1e99"), -110, "Error input Json event->camera->chIdx object not integer"},
        {with_alarm(R"(,"alarm":["2"])"), -110,
         "Error input Json event->camera->alarm object not integer"},
        {with_action(R"([{"ActionName":{},"chIdx":[5]}])"), -110,
         "Error input Json action->ActionName object not string"},
        {with_action(R"([{"ActionName":"x","chIdx":[[]]}])"), -110,
         "Error input Json action->chIdx object not integer"},
        {with_action("null"), 0, "Add Rule successful"},
        {"// accepted\n" + on_channel("true") + " behind", -200,
         "Error ch-1 GUID is NULL, please check camera is added"},
        {on_channel("3.9"), 0, "Add Rule successful"},
        {with_alarm(R"(,"alarm":[])"), 0, "Add Rule successful"},
        {with_event(R"({"eventID":536936448,"camera":[{"chIdx":3,"alarm":7},9]},[])"), 0,
         "Add Rule successful"},
    };
    std::vector<RequestCase> cases;
    for (const Row& row : rows) {
        cases.push_back({"request document",
                         {"POST", row.body},
                         row.code == 0 ? OK : BAD,
                         row.code,
                         row.message});
    }
    return cases;
}

std::vector<RequestCase> creation_cases()
{
    const std::string body = ADD_RULE_BODY;
    const std::string profile = R"({"rule":{"timeprofileGUID":"CCCC",)" + body.substr(9);
    const std::string no_camera = "GUID is NULL, please check camera is added";
    const auto recorded_on = [](const char* channel) {
        return with_action(R"([{"ActionName":"RecordControl","chIdx":[)" + std::string(channel) +
                           "]}]");
    };
    const auto action = [](const std::string& name) {
        return with_action(R"([{"ActionName":")" + name + R"(","chIdx":[99]}])");
    };
    const auto schedules = [](long result, const char* reply) {
        return [=](FakePlatform& fake) { fake.schedules = {result, reply}; };
    };
    const auto multicall = [](long result, const char* reply) {
        return [=](FakePlatform& fake) { fake.multicall = {result, reply}; };
    };
    const auto rules = [](const std::string& document) {
        return [=](FakePlatform& fake) { fake.rules = document; };
    };
    const std::string post_failed =
        "Error ROVA POST request \\/cfg\\/multicalls add event Rule fail";
    const std::string source = "0000000000000000000000000000";
    const std::string long_name(1100, 'x');
    return {
        {"event not supported",
         {"POST", on_channel("999", "536936449")},
         BAD,
         -202,
         "Error input eventID=0x20010001 unsupported"},
        {"event negative",
         {"POST", on_channel("3", "-1")},
         BAD,
         -202,
         "Error input eventID=0xFFFFFFFF unsupported"},
        {"no camera", {"POST", on_channel("4")}, BAD, -200, "Error ch-4 " + no_camera},
        {"camera flag clear",
         {"POST", body},
         BAD,
         -200,
         "Error ch-3 " + no_camera,
         [](FakePlatform& fake) { fake.cameras[3].first = 0xFE; }},
        {"camera without GUID",
         {"POST", body},
         BAD,
         -200,
         "Error ch-3 " + no_camera,
         [](FakePlatform& fake) {
             fake.cameras[3] = {1, ""};
         }},
        {"all flags set",
         {"POST", body},
         OK,
         0,
         "Add Rule successful",
         [](FakePlatform& fake) { fake.cameras[3].first = 0xFF; }},
        {"channel 191", {"POST", on_channel("191")}, OK, 0, "Add Rule successful"},
        {"channel 192", {"POST", on_channel("192")}, BAD, -200, "Error ch-192 " + no_camera},
        {"channel -1", {"POST", on_channel("-1")}, BAD, -200, "Error ch--1 " + no_camera},
        {"recording channel",
         {"POST", recorded_on("4")},
         BAD,
         -211,
         "Error recording act ch-4 " + no_camera},
        {"recording channel 192",
         {"POST", recorded_on("192")},
         BAD,
         -211,
         "Error recording act ch-192 " + no_camera},
        {"recording channel -2147483648",
         {"POST", recorded_on("-2147483648")},
         BAD,
         -211,
         "Error recording act ch--2147483648 " + no_camera},
        {"action in lower case",
         {"POST", action("recordControl")},
         BAD,
         -212,
         "Error input ActionName=[recordControl] unsupported"},
        {"action with a zero byte",
         {"POST", action("RecordControl\\u0000")},
         BAD,
         -212,
         "Error input ActionName=[RecordControl] unsupported"},
        {"action too long for a text",
         {"POST", action(long_name)},
         BAD,
         -212,
         "Error input ActionName=[" + std::string(999, 'x')},
        {"action empty", {"POST", action("")}, OK, 0, "Add Rule successful"},
        {"schedules not to be had",
         {"POST", body},
         BAD,
         -101,
         "Internal error get time profile guid fail ret=-101",
         schedules(-7, "{}")},
        {"schedules no JSON",
         {"POST", body},
         BAD,
         -102,
         "Internal error get time profile guid fail ret=-102",
         schedules(0, "")},
        {"schedules no object",
         {"POST", body},
         BAD,
         -102,
         "Internal error get time profile guid fail ret=-102",
         schedules(0, "[]")},
        {"schedules refused",
         {"POST", body},
         BAD,
         -103,
         "Internal error get time profile guid fail ret=-103",
         schedules(0, "{\"err_code\":9}")},
        {"no schedule at all", {"POST", body}, OK, 0, "Add Rule successful", schedules(0, "{}")},
        {"time profile unknown",
         {"POST", profile},
         BAD,
         -104,
         "Error check time profile [CCCC] fail ret=-104",
         rules(quick_rule("536936448", source))},
        {"schedules not to be had, time profile named",
         {"POST", profile},
         BAD,
         -101,
         "Error check time profile [CCCC] fail ret=-101",
         schedules(-7, "{}")},
        {"schedules no JSON, time profile named",
         {"POST", profile},
         BAD,
         -102,
         "Error check time profile [CCCC] fail ret=-102",
         schedules(0, "")},
        {"schedules refused, time profile named",
         {"POST", profile},
         BAD,
         -103,
         "Error check time profile [CCCC] fail ret=-103",
         schedules(0, "{\"err_code\":9}")},
        {"list not to be had",
         {"POST", body},
         BAD,
         -601,
         "Internal error get all rule list fail ret=-601",
         [](FakePlatform& fake) { fake.rules_result = -2; }},
        {"list no JSON",
         {"POST", body},
         BAD,
         -602,
         "Internal error get all rule list fail ret=-602",
         rules("{\"x\":NaN}")},
        {"list without rules",
         {"POST", body},
         BAD,
         -603,
         "Internal error get all rule list fail ret=-603",
         rules("")},
        {"already covered",
         {"POST", body},
         BAD,
         -911,
         "Warning chIdx=3, eventID=536936448 already added in quick mode rule list",
         rules(quick_rule("536936448", source + "0003"))},
        {"post failed", {"POST", body}, BAD, 7, post_failed, multicall(7, "")},
        {"post result kept in 32 bits",
         {"POST", body},
         BAD,
         -9,
         post_failed,
         multicall((1L << 32) - 9, "")},
        {"post not authorised",
         {"POST", body},
         UNAUTHORIZED,
         -2,
         "Authorized failed",
         multicall(-2, "")},
        {"multicall reply no JSON",
         {"POST", body},
         BAD,
         -220,
         "Error add rule multicall reply Json format error",
         multicall(0, "")},
        {"multicall error code of a wrong type",
         {"POST", body},
         BAD,
         -220,
         "Error add rule multicall reply Json format error",
         multicall(0, "{\"err_code\":\"0\"}")},
        {"multicall refused",
         {"POST", body},
         BAD,
         -221,
         "Error add rule multicall reply fail",
         multicall(0, R"({"err_code":-5,"err_str":["odd"]})")},
        {"multicall reply empty object",
         {"POST", body},
         OK,
         0,
         "Add Rule successful",
         multicall(0, "{}")},
    };
}

std::vector<RequestCase> deletion_cases()
{
    const auto answers = [](std::initializer_list<Answer> list) {
        return [list = std::deque<Answer>(list)](FakePlatform& fake) { fake.deletions = list; };
    };
    const Answer unknown{0, R"({"err_code":-1811535318,"err_str":"no such rule"})"};
    const Request three{"DELETE", R"({"ruleGUID":["A","B","C"]})"};
    return {
        {"delete nothing given", {"DELETE"}, BAD, -300, "input data is NULL"},
        {"delete no JSON", {"DELETE", "x"}, BAD, -301, "Error input Json format error"},
        {"delete too deep", {"DELETE", levels(2000)}, BAD, -301, "Error input Json format error"},
        {"delete null", {"DELETE", "null"}, BAD, -302, "Error input Json no ruleGUID object"},
        {"delete an array", {"DELETE", "[]"}, BAD, -302, "Error input Json no ruleGUID object"},
        {"delete no list",
         {"DELETE", R"({"ruleGUID":"A"})"},
         BAD,
         -303,
         "Error input Json ruleGUID object not array"},
        {"delete an object",
         {"DELETE", R"({"ruleGUID":["A",{}]})"},
         BAD,
         -303,
         "<1> Error input Json ruleGUID object not string"},
        {"delete empty list", {"DELETE", R"({"ruleGUID":[]})"}, OK, 0, "Delete Rule successful"},
        {"delete with an unknown rule", three, OK, 0, "Delete Rule successful",
         answers({{}, unknown, {}})},
        {"delete fails at the second", three, BAD, -304,
         "<1> Error ROVA Delete \\/cfg\\/Rule fail ret=-7", answers({{}, {-7, ""}})},
        {"delete reply no object", three, BAD, -305,
         "<0> Error delete rule reply Json format error", answers({{0, "7"}})},
        {"delete error code beyond 32 bits", three, BAD, -305,
         "<0> Error delete rule reply Json format error",
         answers({{0, "{\"err_code\":2483432000}"}})},
        {"delete refused", three, BAD, -306, "Request failed", answers({{0, "{\"err_code\":1}"}})},
    };
}

}  // namespace

const std::vector<RequestCase>& request_cases()
{
    static const std::vector<RequestCase> cases = [] {
        std::vector<RequestCase> all;
        for (auto* part : {front_end_cases, document_cases, creation_cases, deletion_cases}) {
            const std::vector<RequestCase> more = part();
            all.insert(all.end(), more.begin(), more.end());
        }
        return all;
    }();
    return cases;
}
