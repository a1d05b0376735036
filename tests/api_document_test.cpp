// The tables in docs/api.md, the code, and the cases of the tests say the same.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "rule_operation/documents/event_profile.h"
#include "tests/request_cases.h"

namespace
{

namespace fs = std::filesystem;

constexpr const char* HANDED_ON = "handed on";

struct Refusal {
    std::string code;  // a number, or HANDED_ON
    std::string text;

    bool operator<(const Refusal& other) const
    {
        return std::tie(code, text) < std::tie(other.code, other.text);
    }
};

std::string read_file(const fs::path& path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

template <typename Visit>
void for_each_match(const std::string& text, const char* pattern, Visit visit)
{
    const std::regex regex(pattern);
    for (std::sregex_iterator match(text.begin(), text.end(), regex), end; match != end; ++match) {
        visit(*match);
    }
}

std::string api_document()
{
    return read_file(fs::path(SOURCE_DIR) / "docs/api.md");
}

std::string code_of(const std::string& text)
{
    return std::regex_match(text, std::regex("-[0-9]+")) ? text : HANDED_ON;
}

std::set<Refusal> documented_refusals()
{
    std::set<Refusal> refusals;
    const char* const row = R"(\n\| ([^|]+) \| ([^|]+) \| ([^|]+) \| [^|]+ \| [^|]+ \|(?=\n))";
    for_each_match(api_document(), row, [&](const auto& match) {
        refusals.insert({code_of(match[1]), match[3]});
    });
    refusals.erase({HANDED_ON, "text"});  // the head of the table
    return refusals;
}

std::set<Refusal> refusals_in_the_code()
{
    // The front end's own, and the one that leaves no text.
    std::set<Refusal> refusals = {{"-2", "Authorized failed"},   {"-3", "http method empty"},
                                  {"-3", "http method invalid"}, {"-4", "Internal error"},
                                  {"-306", "Request failed"},    {HANDED_ON, "Request failed"}};
    for (const auto& entry :
         fs::recursive_directory_iterator(fs::path(SOURCE_DIR) / "rule_operation")) {
        if (entry.path().extension() != ".cpp") {
            continue;
        }
        const std::string source = read_file(entry.path());
        const auto add = [&](const std::string& code, const std::string& text) {
            refusals.insert({code_of(code), std::regex_replace(text, std::regex("\"\\s*\""), "")});
        };
        for_each_match(source, R"re(REFUSE\(\s*err,\s*(-?\w+),\s*"((?:[^"]|"\s*")*)")re",
                       [&](const auto& match) { add(match[1], match[2]); });
        for_each_match(source, R"re(err = "([^"]+)";\s*return (-?\w+);)re",
                       [&](const auto& match) { add(match[2], match[1]); });
    }
    return refusals;
}

// What a text looks like in a response, with its values filled in.
std::regex response_pattern(const std::string& text)
{
    std::string pattern = std::regex_replace(text, std::regex(R"([\[\]().?*+|])"), "\\$&");
    pattern = std::regex_replace(pattern, std::regex("/"), R"(\\/)");
    pattern = std::regex_replace(pattern, std::regex("%d"), "-?[0-9]+");
    pattern = std::regex_replace(pattern, std::regex("%X"), "[0-9A-F]+");
    return std::regex(std::regex_replace(pattern, std::regex("%s"), ".*"));
}

TEST(ApiDocumentTest, RefusalsAreThoseOfTheCode)
{
    const std::set<Refusal> documented = documented_refusals();
    const std::set<Refusal> in_the_code = refusals_in_the_code();
    EXPECT_GT(documented.size(), 45U);
    std::vector<Refusal> differing;
    std::set_symmetric_difference(documented.begin(), documented.end(), in_the_code.begin(),
                                  in_the_code.end(), std::back_inserter(differing));
    for (const Refusal& refusal : differing) {
        ADD_FAILURE() << (documented.count(refusal) != 0 ? "only documented: "
                                                         : "only in the code: ")
                      << refusal.code << " " << refusal.text;
    }
}

TEST(ApiDocumentTest, EveryRefusalIsSeenInAResponse)
{
    const std::set<std::string> never = {"-201", "-203", "-204"};
    const std::set<std::string> tested_apart = {"-4"};
    for (const Refusal& refusal : documented_refusals()) {
        if (never.count(refusal.code) + tested_apart.count(refusal.code) != 0) {
            continue;
        }
        const std::regex pattern = response_pattern(refusal.text);
        const auto& cases = request_cases();
        EXPECT_TRUE(std::any_of(cases.begin(), cases.end(),
                                [&](const RequestCase& item) {
                                    return (refusal.code == HANDED_ON ||
                                            refusal.code == std::to_string(item.code)) &&
                                           std::regex_match(item.message, pattern);
                                }))
            << refusal.code << " " << refusal.text;
    }
}

TEST(ApiDocumentTest, EventsAreThoseOfTheCode)
{
    std::set<uint32_t> documented;
    for_each_match(api_document(), "0x([0-9A-F]{8}) = ([0-9]+)", [&](const auto& match) {
        const auto event = static_cast<uint32_t>(std::stoul(match[1], nullptr, 16));
        EXPECT_EQ(std::to_string(event), match[2]);
        documented.insert(event);
    });
    constexpr uint32_t FIRST = 0x20000000;
    constexpr uint32_t END = 0x20100000;
    for (uint32_t event = FIRST; event < END; ++event) {
        if (is_event_with_ch_info(event) != (documented.count(event) != 0)) {
            ADD_FAILURE() << "documented or supported, not both: " << event;
        }
    }
}

}  // namespace
