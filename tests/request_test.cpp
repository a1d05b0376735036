// Whole requests through the whole program, each in a process of its own.
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <stdexcept>

#include "tests/fake_platform.h"
#include "tests/request_cases.h"
#include "tests/request_runner.h"

namespace
{

using std::string_literals::operator""s;
using Texts = std::vector<std::string>;

bool starts_with(const std::string& text, const std::string& start)
{
    return text.compare(0, start.size(), start) == 0;
}

// The messages of a log without the function and the line that each begins with.
Texts messages(const Texts& log)
{
    static const std::regex origin(R"(^\[[a-z_]+\]\([0-9]+\) )");
    Texts texts;
    for (const std::string& line : log) {
        EXPECT_TRUE(std::regex_search(line, origin)) << line;
        texts.push_back(std::regex_replace(line, origin, ""));
    }
    return texts;
}

class RequestTest : public testing::Test
{
 protected:
    void SetUp() override { reset_fake_platform(); }
};

TEST_F(RequestTest, EveryCaseGetsItsAnswerAndWritesNothingBeforeTheLastCheck)
{
    for (const RequestCase& item : request_cases()) {
        SCOPED_TRACE(item.name + ": " + item.request.body);
        reset_fake_platform();
        FakePlatform& fake = fake_platform();
        for (const auto& arrange : item.arrangements) {
            arrange(fake);
        }
        const Outcome outcome = run_request(item.request);

        EXPECT_EQ(outcome.response, envelope_text(item.status, item.code, item.message));
        const bool refused_at_the_door = fake.authentication_result != 0 || !fake.has_input;
        EXPECT_EQ(outcome.exit_status, refused_at_the_door ? 0 : item.code & 0xFF);

        const bool submitted = starts_with(item.name, "post ") ||
                               starts_with(item.name, "multicall ") ||
                               (item.request.method == "POST" && item.code == 0);
        EXPECT_EQ(std::count_if(outcome.calls.begin(), outcome.calls.end(),
                                [](const auto& call) { return starts_with(call, "POST "); }),
                  submitted ? 1 : 0);
        EXPECT_EQ(outcome.calls.back(), fake.has_input ? "free input" : "free null");
    }
}

// The random part of every GUID at this time stamp.
std::string random_part(int64_t time_stamp)
{
    std::string digits;
    std::srand(static_cast<unsigned int>(time_stamp % 100));
    for (int i = 0; i < 18; ++i) {
        digits += "0123456789ABCDEF"[std::rand() & 15];
    }
    return digits;
}

TEST_F(RequestTest, AddRuleAsksThePlatformInOrderAndPostsOneDocument)
{
    Request request{"POST",
                    R"({"rule":{"ruleName":"a\"\\/\u0001ä\u0000b","event":[{"eventID":537001984,)"
                    R"("camera":[{"chIdx":3,"alarm":[10]}]}],"action":[{"ActionName":)"
                    R"("RecordControl","chIdx":[10]}]}})"};
    request.path_info = "/rule/add";
    fake_platform().tokenizer_result = 5;
    fake_platform().clock = 1234567;
    const Outcome outcome = run_request(request);

    const std::string part = random_part(67);
    const std::string camera_3 = "CAFE0000000000000000000000000003";
    const std::string call =
        R"({"object": "Rule","method": "POST","body": {"ruleNode": {"name": ")";
    const std::string xml = R"(b64(<?xml version="1.0" encoding="UTF-8"?>)";
    const std::string document =
        R"({"calls": [)" + call + R"(clientEvent0003","isGroup": false,"description": "",)" +
        R"("GUID": "1111111111)" + part + R"(0003","type": 3,"active": true,"content": ")" + xml +
        "<event_profile><EventID>537001984</EventID><SourceNum>1</SourceNum><SourceIds>"
        "<id0>" +
        camera_3 + "A</id0></SourceIds></event_profile>)" + R"(","EventID": 537001984}}},)" + call +
        R"(clientAction0010","isGroup": false,"description": "","GUID": "2222222222)" + part +
        R"(000A","type": 4,"active": true,"content": ")" + xml +
        "<action_profile><ActionName>RecordControl</ActionName><type>1</type>"
        "<DelayStart>0</DelayStart><DelayStop>0</DelayStop><TargetNum>1</TargetNum><TargetIds>"
        "<id0>CAFE0000000000000000000000000010</id0></TargetIds><Params></Params>"
        "</action_profile>)" +
        R"("}}},)" + call + R"(a\"\\/\u0001ä\u0000b","isGroup": false,"description": "",)" +
        R"("GUID": "3333333333)" + part + R"(0003","type": 0,"active": true,"content": ")" + xml +
        "<rule><active>1</active><EventProfileNum>1</EventProfileNum><EventProfiles><evtpf0>"
        "1111111111" +
        part +
        "0003</evtpf0></EventProfiles><TriggerByAllEvents>0</TriggerByAllEvents>"
        "<SimultaneousTime>10</SimultaneousTime><TimeProfile>BBBB</TimeProfile>"
        "<ActionProfileNum>1</ActionProfileNum><ActionProfiles><actpf0>2222222222" +
        part +
        "000A</actpf0></ActionProfiles><ActionTime>10</ActionTime><MaskedTime>10</MaskedTime>"
        "<CreationMethod>quick</CreationMethod></rule>)" +
        R"("}}}]})";
    EXPECT_EQ(outcome.exit_status, 0);
    EXPECT_EQ(
        outcome.calls,
        (Texts{"signals", "input", "camera table", "tokens /rule/add", "authentication 11",
               "parameter func 0", "GET /cfg/Schedule at 127.0.0.1:10141 in 15 s", "rules",
               "POST /cfg/multicalls " + document + " at 127.0.0.1:10141 in 15 s", "free input"}));
}

TEST_F(RequestTest, ListAndPutAnswerWithTheirDocument)
{
    fake_platform().rules = R"({"ruleList":[{"GUID":"a/b"}]})";
    EXPECT_EQ(run_request({"GET"}).response,
              response_text("200 OK", R"({ "ruleList": [ { "GUID": "a\/b" } ] })"));
    fake_platform().rules = "";
    EXPECT_EQ(run_request({"GET"}).response, response_text("200 OK", "null"));
    const Outcome put = run_request({"PUT", "body", "4096"});
    EXPECT_EQ(put.response, response_text("200 OK", "null"));
    EXPECT_EQ(put.exit_status, 0);
}

TEST_F(RequestTest, WithoutTheCameraTableNothingIsAnswered)
{
    fake_platform().table_result = 77;
    const Outcome outcome = run_request({"PUT"});
    EXPECT_EQ(outcome.response, "");
    EXPECT_EQ(outcome.exit_status, 77);
    EXPECT_EQ(outcome.calls, (Texts{"signals", "input", "camera table"}));
    EXPECT_EQ(messages(outcome.log), (Texts{"Error get_cmsvr_conf_array fail ret=77"}));
}

TEST_F(RequestTest, RefusedCallerLeavesTheTokenizersResult)
{
    fake_platform().authentication_result = 1;
    fake_platform().tokenizer_result = 9;
    Request request{"POST", ADD_RULE_BODY};
    request.path_info = "";
    EXPECT_EQ(run_request(request).exit_status, 9);
}

// Wherever an exception comes from, one failure is answered and nothing follows it.
TEST_F(RequestTest, AnExceptionIsAnsweredOnce)
{
    const Texts calls = run_request({"POST", ADD_RULE_BODY}).calls;
    ASSERT_EQ(calls.back(), "free input");
    for (size_t i = 0; i + 1 < calls.size(); ++i) {
        SCOPED_TRACE(calls[i]);
        fake_platform().before_call = [&](const std::string& call) {
            if (call == calls[i]) {
                throw std::runtime_error("from the platform");
            }
        };
        const Outcome outcome = run_request({"POST", ADD_RULE_BODY});
        EXPECT_EQ(outcome.response, envelope_text("400 Bad Request", -4, "Internal error"));
        EXPECT_EQ(outcome.exit_status, -4 & 0xFF);
    }
}

TEST_F(RequestTest, DeletionSendsEachGuidAsTextInOrder)
{
    fake_platform().parameters = {{"GUID", "logged only"}};
    const Outcome outcome =
        run_request({"DELETE", R"({"ruleGUID":["A","A",12,true,null,"b\u0000c"]})"});
    const auto sent = [](const std::string& guid) {
        return "DELETE /cfg/Rule?GUID=" + guid + " at 127.0.0.1:10141 in 15 s";
    };
    EXPECT_EQ(outcome.response, envelope_text("200 OK", 0, "Delete Rule successful"));
    EXPECT_EQ(Texts(outcome.calls.begin() + 4, outcome.calls.end()),
              (Texts{"parameter GUID 0", sent("A"), sent("A"), sent("12"), sent("true"), sent(""),
                     sent("b\0c"s), "free input"}));
}

TEST_F(RequestTest, DeletionStopsAtTheFirstFailureAndLogsItsWay)
{
    const std::string unknown = R"({"err_code":-1811535318})";
    const std::string refused = R"({"err_code":1,"err_str":"no"})";
    fake_platform().parameters = {{"GUID", "logged only"}};
    fake_platform().deletions = {{0, unknown}, {0, refused}};
    const std::string body = R"({"ruleGUID":["A","B","C"]})";
    EXPECT_EQ(messages(run_request({"DELETE", body}).log),
              (Texts{"Get uri input GUID=[logged only]",
                     "delete method input content data=[" + body + "]", "<0> Delete GUID list [A]",
                     "<0> Delete rule reply=[" + unknown + "]",
                     "<0> Warning delete rule, get no such rule reply, will skip",
                     "<1> Delete GUID list [B]", "<1> Delete rule reply=[" + refused + "]",
                     "<1> Error delete rule reply err_code=1, err_str=[no]"}));
}

TEST_F(RequestTest, AddRuleLogsItsWay)
{
    const std::string source = std::string(28, '0');
    fake_platform().rules =
        R"({"ruleList":[{"content":{"rule":{}}},{"GUID":"G1","content":{"rule":{"CreationMethod":)"
        R"("Quick"}}},{"GUID":"G2","content":{"rule":{"CreationMethod":"quick"}},"event":[)"
        R"({"content":{"event_profile":{"EventID":"7"}}},{"content":{"event_profile":{"EventID":)"
        R"("536936448","SourceIds":{"id0":")" +
        source + R"(0004","id1":")" + source +
        R"(0003"}}}}]},{"content":{"rule":{"CreationMethod":"never read"}}}]})";
    Request request{"POST", ADD_RULE_BODY};
    request.path_info = "/p";
    EXPECT_EQ(
        messages(run_request(request).log),
        (Texts{
            "PathInfo = /p",
            "post method input content data=[" + std::string(ADD_RULE_BODY) +
                "], uri input func=[addRule]",
            "Get eventID=0x20010000, chIdx=3, alarmIdx=-1, ActionName=[RecordControl] act_chIdx=10",
            "eventInfo.camera size=1", "get eventID=0x20010000 (536936448), chIdx=3, alarmIdx=-1",
            "Get rule_list_json array size=4",
            "--------->idx=1 creationMethod=[Quick] rule GUID=[G1]",
            "--------->idx=2 creationMethod=[quick] rule GUID=[G2]",
            "--------->i=0 evtID=[7] in_eventID=536936448",
            "--------->i=1 evtID=[536936448] in_eventID=536936448",
            "--------->i=1 j=0 ch_guid=[" + source + "0004] get chidx=4 in_chIdx=3",
            "--------->i=1 j=1 ch_guid=[" + source + "0003] get chidx=3 in_chIdx=3",
            "Warning chIdx=3, eventID=536936448 already added in quick mode rule list"}));
}

}  // namespace
