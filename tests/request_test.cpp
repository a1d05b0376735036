// Whole requests through the whole program.
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <stdexcept>

#include "tests/fake_platform.h"
#include "tests/request_cases.h"
#include "tests/request_runner.h"

namespace
{

using Texts = std::vector<std::string>;

bool starts_with(const std::string& text, const std::string& start)
{
    return text.compare(0, start.size(), start) == 0;
}

// The messages of the log without the function and the line that each begins with.
Texts messages()
{
    static const std::regex origin(R"(^\[[a-z_]+\]\([0-9]+\) )");
    Texts texts;
    for (const std::string& line : fake_platform().log) {
        EXPECT_TRUE(std::regex_search(line, origin)) << line;
        texts.push_back(std::regex_replace(line, origin, ""));
    }
    return texts;
}

void check(const RequestCase& item)
{
    SCOPED_TRACE(item.name + ": " + item.request.body);
    fake_platform() = item.platform;
    const Outcome outcome = run_request(item.request);
    const Texts& calls = fake_platform().calls;

    EXPECT_EQ(outcome.response, item.response);
    const bool turned_away = starts_with(item.name, "caller ") || !item.platform.has_input;
    EXPECT_EQ(outcome.exit_status, turned_away ? item.platform.tokenizer_result : item.code);
    EXPECT_EQ(calls.back(), item.platform.has_input ? "free input" : "free null");
    EXPECT_TRUE(item.calls.empty() || item.calls == calls) << testing::PrintToString(calls);
    EXPECT_TRUE(item.log.empty() || item.log == messages()) << testing::PrintToString(messages());

    const auto is_post = [](const auto& call) { return starts_with(call, "POST "); };
    const bool submitted = starts_with(item.name, "post ") ||
                           starts_with(item.name, "multicall ") ||
                           (item.request.method == "POST" && item.code == 0);
    EXPECT_EQ(std::count_if(calls.begin(), calls.end(), is_post), submitted ? 1 : 0);
    for (const std::string& text : item.posted) {
        const auto post = std::find_if(calls.begin(), calls.end(), is_post);
        EXPECT_TRUE(post != calls.end() && post->find(text) != std::string::npos) << text;
    }
}

TEST(RequestTest, EveryCaseGetsItsAnswerAndWritesNothingBeforeTheLastCheck)
{
    const std::vector<RequestCase> cases = read_request_cases();
    EXPECT_GT(cases.size(), 100U);
    for (const RequestCase& item : cases) {
        check(item);
    }
}

TEST(RequestTest, WithoutTheCameraTableNothingIsAnswered)
{
    fake_platform() = usual_platform();
    fake_platform().table_result = 77;
    const Outcome outcome = run_request({"PUT"});
    EXPECT_EQ(outcome.response, "");
    EXPECT_EQ(outcome.exit_status, 77);
    EXPECT_EQ(fake_platform().calls, (Texts{"signals", "input", "camera table"}));
    EXPECT_EQ(messages(), (Texts{"Error get_cmsvr_conf_array fail ret=77"}));
}

// Wherever an exception comes from, one failure is answered and nothing follows it.
TEST(RequestTest, AnExceptionIsAnsweredOnce)
{
    fake_platform() = usual_platform();
    run_request({"POST", ADD_RULE_BODY});
    const Texts calls = fake_platform().calls;
    ASSERT_EQ(calls.back(), "free input");
    for (size_t i = 0; i + 1 < calls.size(); ++i) {
        SCOPED_TRACE(calls[i]);
        fake_platform().before_call = [&](const std::string& call) {
            if (call == calls[i]) {
                throw std::runtime_error("from the platform");
            }
        };
        const Outcome outcome = run_request({"POST", ADD_RULE_BODY});
        EXPECT_EQ(outcome.response,
                  "Status: 400 Bad Request\r\nContent-type: application/json\r\n\r\n"
                  "{ \"ret_code\": -4, \"ret_mesg\": \"Internal error\" }\n\n");
        EXPECT_EQ(outcome.exit_status, -4);
    }
}

}  // namespace
