#include "tests/request_cases.h"

#include <fstream>
#include <map>
#include <regex>
#include <stdexcept>

const char* const ADD_RULE_BODY =
    R"({"rule":{"event":[{"eventID":536936448,"camera":[{"chIdx":3}]}],)"
    R"("action":[{"ActionName":"RecordControl","chIdx":[10]}]}})";

namespace
{

// Takes the first word off a line; the rest begins behind one blank.
std::string take_word(std::string& line)
{
    const size_t end = line.find(' ');
    std::string word = line.substr(0, end);
    line.erase(0, end == std::string::npos ? end : end + 1);
    return word;
}

std::string expand(std::string text)
{
    static const std::regex repetition(R"(\{(.)\*([0-9]+)\})");
    for (std::smatch match; std::regex_search(text, match, repetition);) {
        text = match.prefix().str() + std::string(std::stoul(match[2]), match[1].str().front()) +
               match.suffix().str();
    }
    const auto replace = [&](const std::string& from, const std::string& to) {
        const size_t position = text.find(from);
        if (position != std::string::npos) {
            text.replace(position, from.size(), to);
        }
    };
    replace("ADD_RULE", ADD_RULE_BODY);
    replace("\\0", std::string(1, '\0'));
    return text;
}

Answer take_answer(std::string value)
{
    const long result = std::stol(take_word(value));
    return {result, value};
}

void arrange_camera(FakePlatform& fake, std::string value)
{
    const int channel = std::stoi(take_word(value));
    const auto first_byte = static_cast<unsigned char>(std::stoi(take_word(value)));
    fake.cameras[channel] = {first_byte, value};
}

void arrange_rules(FakePlatform& fake, std::string value)
{
    fake.rules_result = std::stoi(take_word(value));
    fake.rules = value;
}

void arrange_parameter(FakePlatform& fake, const std::string& value)
{
    const size_t mark = value.find('=');
    fake.parameters.clear();
    if (mark != std::string::npos) {
        fake.parameters.emplace_back(value.substr(0, mark), value.substr(mark + 1));
    }
}

void add_arrangement(RequestCase& item, const std::string& what, const std::string& value)
{
    using Arrange = void (*)(FakePlatform&, const std::string&);
    static const std::map<std::string, Arrange> platform = {
        {"handle", [](FakePlatform& fake, const std::string&) { fake.has_input = false; }},
        {"authentication",
         [](FakePlatform& fake, const std::string& text) {
             fake.authentication_result = std::stoi(text);
         }},
        {"parameter", arrange_parameter},
        {"camera", [](FakePlatform& fake, const std::string& text) { arrange_camera(fake, text); }},
        {"rules", [](FakePlatform& fake, const std::string& text) { arrange_rules(fake, text); }},
        {"schedules",
         [](FakePlatform& fake, const std::string& text) { fake.schedules = take_answer(text); }},
        {"multicall",
         [](FakePlatform& fake, const std::string& text) { fake.multicall = take_answer(text); }},
        {"deletion", [](FakePlatform& fake,
                        const std::string& text) { fake.deletions.push_back(take_answer(text)); }},
    };
    if (what == "length") {
        item.request.content_length = value;
    } else if (what == "input") {
        item.request.close_input = true;
    } else {
        const Arrange arrange = platform.at(what);
        item.arrangements.emplace_back([=](FakePlatform& fake) { arrange(fake, value); });
    }
}

void read_line(std::vector<RequestCase>& cases, std::string line)
{
    const std::string word = take_word(line);
    if (word == "=") {
        cases.emplace_back();
        cases.back().name = line;
    } else if (word == "with") {
        const std::string what = take_word(line);
        add_arrangement(cases.back(), what, line);
    } else if (word == ">") {
        const std::map<std::string, const char*> statuses = {
            {"200", "200 OK"}, {"400", "400 Bad Request"}, {"401", "401 Unauthorized"}};
        cases.back().status = statuses.at(take_word(line));
        cases.back().code = std::stoi(take_word(line));
        cases.back().message = expand(line);
    } else if (!word.empty() && word != "#") {
        cases.back().request.method = word == "\"\"" ? "" : word;
        if (word == "-") {
            cases.back().request.method.reset();
        }
        cases.back().request.body = expand(line);
    }
}

}  // namespace

const std::vector<RequestCase>& request_cases()
{
    static const std::vector<RequestCase> cases = [] {
        std::ifstream file(SOURCE_DIR "/tests/request_cases.txt");
        std::vector<RequestCase> read;
        for (std::string line; std::getline(file, line);) {
            read_line(read, line);
        }
        if (read.empty()) {
            throw std::runtime_error("no cases in request_cases.txt");
        }
        return read;
    }();
    return cases;
}
