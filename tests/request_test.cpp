// Whole requests through the whole program: those of request_cases.txt, where the form of a case is
// described, and failures of the platform.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <stdexcept>

#include "tests/fake_platform.h"
#include "tests/request_runner.h"

namespace
{

using Texts = std::vector<std::string>;

// A request that creates a rule for channel 3, recorded on channel 10.
constexpr const char* ADD_RULE_BODY =
    R"({"rule":{"event":[{"eventID":536936448,"camera":[{"chIdx":3}]}],)"
    R"("action":[{"ActionName":"RecordControl","chIdx":[10]}]}})";

struct RequestCase {
    std::string name;
    Request request = {"POST", ADD_RULE_BODY};
    FakePlatform platform = usual_platform();
    std::string response;  // to the byte
    int exit_status = 0;
    bool submits = false;  // the document that creates a rule
    Texts posted;          // parts of it
    Texts calls;           // all of them, unless empty
    Texts log;             // all messages, unless empty
};

void replace(std::string& text, const std::string& from, const std::string& to)
{
    const size_t position = text.find(from);
    if (position != std::string::npos) {
        text.replace(position, from.size(), to);
    }
}

std::string expand(std::string text)
{
    static const std::regex repetition(R"(\{([^{}]{1,60})\*([0-9]+)\})");
    for (std::smatch match; std::regex_search(text, match, repetition);) {
        std::string repeated;
        for (int i = 0; i < std::stoi(match[2]); ++i) {
            repeated += std::regex_replace(match[1].str(), std::regex("#"), std::to_string(i));
        }
        text = match.prefix().str() + repeated + match.suffix().str();
    }
    replace(text, "ADD_RULE", ADD_RULE_BODY);
    replace(text, "\\0", std::string(1, '\0'));
    replace(text, "\\xff", "\xff");
    return text;
}

// Takes the first word off a line; the rest begins behind one blank.
std::string take_word(std::string& line)
{
    const size_t end = line.find(' ');
    std::string word = line.substr(0, end);
    line.erase(0, end == std::string::npos ? end : end + 1);
    return word;
}

// A number and the rest of the line.
Answer read_answer(std::string value)
{
    const long result = std::stol(take_word(value));
    return {result, value};
}

void read_request(RequestCase& item, std::string value)
{
    const std::string method = take_word(value);
    item.request = {method == "\"\"" ? "" : method, value};
    if (method == "-") {
        item.request.method.reset();
    }
}

void read_camera(RequestCase& item, const std::string& value)
{
    const auto [channel, rest] = read_answer(value);
    const auto [first_byte, guid] = read_answer(rest);
    item.platform.cameras[static_cast<int>(channel)] = {static_cast<unsigned char>(first_byte),
                                                        guid};
}

void read_rule(RequestCase& item, std::string value)
{
    std::string& rules = item.platform.rules.reply;
    rules = R"({"ruleList":["x",{"content":"y"},{"content":{"rule":{"CreationMethod":METHOD}},)"
            R"("event":[{"content":{"event_profile":{"EventID":EVENT,"SourceIds":SOURCES}}}]}]})";
    replace(rules, "METHOD", take_word(value));
    replace(rules, "EVENT", take_word(value));
    replace(rules, "SOURCES", value);
}

std::string response_text(const std::string& status, const std::string& body)
{
    const std::map<std::string, std::string> texts = {
        {"200", "200 OK"}, {"400", "400 Bad Request"}, {"401", "401 Unauthorized"}};
    return "Status: " + texts.at(status) + "\r\nContent-type: application/json\r\n\r\n" + body +
           "\n\n";
}

void read_envelope(RequestCase& item, std::string value)
{
    const std::string status = take_word(value);
    const auto [code, text] = read_answer(value);
    item.exit_status = static_cast<int>(code);
    item.submits = item.submits || (code == 0 && item.request.method == "POST");
    item.response = response_text(status, R"({ "ret_code": )" + std::to_string(code) +
                                              R"(, "ret_mesg": ")" + text + R"(" })");
}

const std::map<std::string, void (*)(RequestCase&, std::string)> LINES = {
    {"=", [](auto& item, auto value) { item.name = value; }},
    {"request", [](auto& item, auto value) { read_request(item, value); }},
    {"length", [](auto& item, auto value) { item.request.content_length = value; }},
    {"path", [](auto& item, auto value) { item.request.path_info = value; }},
    {"no_input", [](auto& item, auto) { item.platform.has_input = false; }},
    {"parameter",
     [](auto& item, auto value) {
         item.platform.parameters = {{take_word(value), value}};
     }},
    {"no_parameter", [](auto& item, auto) { item.platform.parameters.clear(); }},
    {"authentication",
     [](auto& item, auto value) { item.platform.authentication_result = std::stoi(value); }},
    {"tokenizer",
     [](auto& item, auto value) { item.platform.tokenizer_result = std::stoi(value); }},
    {"clock", [](auto& item, auto value) { item.platform.clock = std::stol(value); }},
    {"table", [](auto& item, auto value) { item.platform.table_result = std::stoi(value); }},
    {"camera", [](auto& item, auto value) { read_camera(item, value); }},
    {"schedules", [](auto& item, auto value) { item.platform.schedules = read_answer(value); }},
    {"rules", [](auto& item, auto value) { item.platform.rules = read_answer(value); }},
    {"rule", [](auto& item, auto value) { read_rule(item, value); }},
    {"multicall", [](auto& item, auto value) { item.platform.multicall = read_answer(value); }},
    {"deletion",
     [](auto& item, auto value) { item.platform.deletions.push_back(read_answer(value)); }},
    {">", [](auto& item, auto value) { read_envelope(item, value); }},
    {">>", [](auto& item, auto value) { item.response = response_text(take_word(value), value); }},
    {"exits", [](auto& item, auto value) { item.exit_status = std::stoi(value); }},
    {"submits", [](auto& item, auto) { item.submits = true; }},
    {"posts", [](auto& item, auto value) { item.posted.push_back(value); }},
    {"call", [](auto& item, auto value) { item.calls.push_back(value); }},
    {"log", [](auto& item, auto value) { item.log.push_back(value); }},
};

std::vector<RequestCase> read_request_cases()
{
    std::ifstream file(SOURCE_DIR "/tests/request_cases.txt");
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    std::istringstream lines(std::regex_replace(text, std::regex("\n  "), ""));
    std::vector<RequestCase> cases;
    for (std::string line; std::getline(lines, line);) {
        line = expand(line);
        const std::string word = take_word(line);
        if (word == "=") {
            cases.emplace_back();
        }
        if (!word.empty() && word != "#") {
            LINES.at(word)(cases.back(), line);
        }
    }
    return cases;
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
    EXPECT_EQ(outcome.exit_status, item.exit_status);
    EXPECT_EQ(calls.back(), item.response.empty()     ? "camera table"
                            : item.platform.has_input ? "free input"
                                                      : "free null");
    EXPECT_TRUE(item.calls.empty() || item.calls == calls) << testing::PrintToString(calls);
    EXPECT_TRUE(item.log.empty() || item.log == messages()) << testing::PrintToString(messages());

    const auto is_post = [](const auto& call) { return call.compare(0, 5, "POST ") == 0; };
    EXPECT_EQ(std::count_if(calls.begin(), calls.end(), is_post), item.submits ? 1 : 0);
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
                  response_text("400", R"({ "ret_code": -4, "ret_mesg": "Internal error" })"));
        EXPECT_EQ(outcome.exit_status, -4);
        EXPECT_EQ(fake_platform().calls.back(), i < 3 ? calls[i] : "free input");
    }
}

}  // namespace
