#include "tests/request_cases.h"

#include <fstream>
#include <map>
#include <regex>
#include <sstream>

namespace
{

void replace(std::string& text, const std::string& from, const std::string& to)
{
    const size_t position = text.find(from);
    if (position != std::string::npos) {
        text.replace(position, from.size(), to);
    }
}

std::string expand(std::string text)
{
    static const std::regex repetition(R"(\{(.)\*([0-9]+)\})");
    for (std::smatch match; std::regex_search(text, match, repetition);) {
        text = match.prefix().str() + std::string(std::stoul(match[2]), match[1].str().front()) +
               match.suffix().str();
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

void read_parameter(RequestCase& item, const std::string& value)
{
    const size_t mark = value.find('=');
    item.platform.parameters = {{value.substr(0, mark), value.substr(mark + 1)}};
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

void read_document(RequestCase& item, std::string value)
{
    const std::map<std::string, std::string> texts = {
        {"200", "200 OK"}, {"400", "400 Bad Request"}, {"401", "401 Unauthorized"}};
    item.response = "Status: " + texts.at(take_word(value)) +
                    "\r\nContent-type: application/json\r\n\r\n" + value + "\n\n";
}

void read_envelope(RequestCase& item, std::string value)
{
    const std::string status = take_word(value);
    const auto [code, text] = read_answer(value);
    item.code = static_cast<int>(code);
    read_document(item, status + R"( { "ret_code": )" + std::to_string(code) +
                            R"(, "ret_mesg": ")" + text + R"(" })");
}

using Read = void (*)(RequestCase&, std::string);

const std::map<std::string, Read> LINES = {
    {"=", [](auto& item, auto value) { item.name = value; }},
    {"request", [](auto& item, auto value) { read_request(item, value); }},
    {"length", [](auto& item, auto value) { item.request.content_length = value; }},
    {"path", [](auto& item, auto value) { item.request.path_info = value; }},
    {"no_input", [](auto& item, auto) { item.platform.has_input = false; }},
    {"parameter", [](auto& item, auto value) { read_parameter(item, value); }},
    {"no_parameter", [](auto& item, auto) { item.platform.parameters.clear(); }},
    {"authentication",
     [](auto& item, auto value) { item.platform.authentication_result = std::stoi(value); }},
    {"tokenizer",
     [](auto& item, auto value) { item.platform.tokenizer_result = std::stoi(value); }},
    {"clock", [](auto& item, auto value) { item.platform.clock = std::stol(value); }},
    {"camera", [](auto& item, auto value) { read_camera(item, value); }},
    {"schedules", [](auto& item, auto value) { item.platform.schedules = read_answer(value); }},
    {"rules", [](auto& item, auto value) { item.platform.rules = read_answer(value); }},
    {"rule", [](auto& item, auto value) { read_rule(item, value); }},
    {"multicall", [](auto& item, auto value) { item.platform.multicall = read_answer(value); }},
    {"deletion",
     [](auto& item, auto value) { item.platform.deletions.push_back(read_answer(value)); }},
    {">", [](auto& item, auto value) { read_envelope(item, value); }},
    {">>", [](auto& item, auto value) { read_document(item, value); }},
    {"posts", [](auto& item, auto value) { item.posted.push_back(value); }},
    {"call", [](auto& item, auto value) { item.calls.push_back(value); }},
    {"log", [](auto& item, auto value) { item.log.push_back(value); }},
};

}  // namespace

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
