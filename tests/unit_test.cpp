// The functions that a whole request cannot reach with every value that they must stand.
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>

#include "platform/camera_config.h"
#include "rule_operation/config_access/duplicate_rule.h"
#include "rule_operation/config_access/time_profile.h"
#include "rule_operation/creation/add_rules.h"
#include "rule_operation/creation/identifiers.h"
#include "rule_operation/documents/event_profile.h"
#include "rule_operation/documents/rule_document.h"
#include "rule_operation/shared/diagnostics.h"
#include "rule_operation/shared/json_reader.h"
#include "tests/fake_platform.h"

namespace
{

class UnitTest : public testing::Test
{
 protected:
    void SetUp() override { reset_fake_platform(); }
};

TEST_F(UnitTest, SupportedEventsAreTheseAndNoOthers)
{
    const auto count = [](uint32_t first, uint32_t last) {
        int supported = 0;
        for (uint32_t id = first; id <= last; ++id) {
            supported += is_event_with_ch_info(id) ? 1 : 0;
        }
        return supported;
    };
    EXPECT_EQ(count(0x20000000, 0x20100000), 25);
    EXPECT_EQ(count(0x20060001, 0x20060006), 6);
    EXPECT_EQ(count(0x20060007, 0x2006001A), 9);
    for (uint32_t id = 0x2006000A; id <= 0x2006001A; id += 2) {
        EXPECT_TRUE(is_event_with_ch_info(id)) << id;
    }
    EXPECT_EQ(count(0x200A0001, 0x200A0004), 4);
    for (const uint32_t id : {0x20010000U, 0x20020000U, 0x200A0009U, 0x200C0001U, 0x200C0003U}) {
        EXPECT_TRUE(is_event_with_ch_info(id)) << id;
    }
    for (const uint32_t id : {0U, 0xFFFFFFFFU, 0xA0010000U}) {
        EXPECT_FALSE(is_event_with_ch_info(id)) << id;
    }
}

TEST_F(UnitTest, SourceIdOfTheAlarmEventCarriesTheIndexAndIsCutAt127Bytes)
{
    const auto source_id = [](int event, const std::string& guid, int alarm) {
        const std::string text = get_evt_content_with_chinfo(event, guid, alarm);
        const size_t start = text.find("<id0>") + 5;
        return text.substr(start, text.find("</id0>") - start);
    };
    EXPECT_EQ(source_id(0x20020000, "G", 0), "G0");
    EXPECT_EQ(source_id(0x20020000, "G", 16), "G10");
    EXPECT_EQ(source_id(0x20020000, "G", -1), "GFFFFFFFF");
    EXPECT_EQ(source_id(0x20010000, "G", 16), "G");
    const std::string guid(126, 'g');
    EXPECT_EQ(source_id(0x20020000, guid, 15), guid + "F");
    EXPECT_EQ(source_id(0x20020000, guid, 16), guid + "1");
    EXPECT_EQ(source_id(0x20010000, guid + guid, 0), guid + guid);
}

TEST_F(UnitTest, RuleWithoutActionHasNoActionElements)
{
    const std::string with = get_rule_content(std::string(32, 'e'), std::string(32, 'a'), "");
    const std::string without = get_rule_content("", "", std::string(32, 't'));
    const size_t frame = std::string("b64()").size();
    EXPECT_EQ(with.size() - frame, 353U + 32 + 88 + 32);
    EXPECT_EQ(without.size() - frame, 353U + 32);
    EXPECT_NE(without.find("</TimeProfile><ActionTime>"), std::string::npos);
}

TEST_F(UnitTest, RandomPartFollowsFromTheClockModulo100)
{
    const auto at = [](int64_t clock) {
        fake_platform().clock = clock;
        return guid_rander();
    };
    EXPECT_EQ(at(5), at(105));
    EXPECT_NE(at(5), at(6));
    std::srand(static_cast<unsigned int>(-7));
    const char first = "0123456789ABCDEF"[std::rand() % 16];
    EXPECT_EQ(at(-107).front(), first);
    EXPECT_EQ(identifiers::derive_guid(RULE_PREFIX, 191).substr(28), "00BF");
    EXPECT_EQ(identifiers::profile_name("clientEvent", 191), "clientEvent0191");
}

TEST_F(UnitTest, TimeProfileIsSettledAgainstTheSchedules)
{
    struct Row {
        int func_type;
        const char* before;
        Answer answer;
        int result;
        const char* after;
    };
    const std::string two =
        R"({"content":[{"name":"_ALL_DAY_ ","GUID":"A"},{"name":"_all_day_"},5,)"
        R"({"name":"_ALL_DAY_","GUID":"B"},{"name":"_ALL_DAY_","GUID":"C"}]})";
    const Row rows[] = {
        {1, "", {0, two}, 0, "B"},
        {1, "x", {0, R"({"content":[{"name":"_ALL_DAY_\u0000","GUID":"A"}]})"}, 0, "x"},
        {1, "x", {0, R"({"content":{"name":"_ALL_DAY_"}})"}, 0, "x"},
        {1, "x", {0, R"({"content":[{"name":"_ALL_DAY_"}]})"}, 0, ""},
        {2, "C", {0, two}, 0, "C"},
        {2, "c", {0, two}, -104, "c"},
        {2, "", {0, "{}"}, -104, ""},
        {2, "", {0, R"({"content":[5]})"}, -104, ""},
        {3, "x", {0, two}, -105, "x"},
        {3, "x", {1L << 32, two}, -101, "x"},
        {1, "x", {0, two.substr(1)}, -102, "x"},
        {1, "x", {0, R"({"err_code":4294967296})"}, -102, "x"},
        {1, "x", {0, R"({"err_code":true})"}, -102, "x"},
        {2, "A", {0, R"({"err_code":null,"content":[{"GUID":"A"}]})"}, 0, "A"},
        {2, "A", {0, R"({"err_code":1,"content":[{"GUID":"A"}]})"}, -103, "A"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.answer.reply);
        fake_platform().schedules = row.answer;
        std::string guid = row.before;
        EXPECT_EQ(time_profile_factory(row.func_type, guid), row.result);
        EXPECT_EQ(guid, row.after);
    }
}

// The rule list holds one rule; its event 7 has the sources given.
TEST_F(UnitTest, DuplicateIsRecognisedByEventAndChannel)
{
    struct Row {
        const char* method;
        const char* event_id;
        std::string sources;
        int channel;
        bool found;
    };
    const std::string head = "1234567890123456789012345678";
    const auto id0 = [&](const std::string& tail) { return R"({"id0":")" + head + tail + "\"}"; };
    std::string many = "{";
    for (int j = 0; j < 129; ++j) {
        many += "\"id" + std::to_string(j) + "\":\"" + head + std::to_string(j) + "\",";
    }
    const Row rows[] = {
        {"\"quick\"", "\"7\"", id0("0012"), 12, true},
        {"\"quick\"", "\"7\"", id0("00129"), 12, true},
        {"\"quick\"", "\" 7x\"", id0(" 7ab"), 7, true},
        {"\"quick\"", "7", id0("000A"), 0, true},
        {"\"quick\"", "\"4294967303\"", id0(""), 0, true},
        {"\"quick\"", "\"7\"", id0("0012"), 1, false},
        {"\"quick\"", "\"8\"", id0("0012"), 12, false},
        {"\"Quick\"", "\"7\"", id0("0012"), 12, false},
        {"\"quick\\u0000\"", "\"7\"", id0("0012"), 12, false},
        {"[]", "\"7\"", id0("0012"), 12, false},
        {"null", "\"7\"", id0("0012"), 12, false},
        {"\"quick\"", "{}", id0("0012"), 12, false},
        {"\"quick\"", "\"7\"", R"({"id0":"short","id1":")" + head + "0012\"}", 12, true},
        {"\"quick\"", "\"7\"", R"({"id1":")" + head + "0012\"}", 12, false},
        {"\"quick\"", "\"7\"", R"({"id0":[],"id1":")" + head + "0012\"}", 12, false},
        {"\"quick\"", "\"7\"", "\"" + head + "\"", 0, false},
        {"\"quick\"", "\"7\"", many + "\"x\":0}", 127, true},
        {"\"quick\"", "\"7\"", many + "\"x\":0}", 128, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.sources);
        fake_platform().rules = std::string(R"({"ruleList":["x",{"content":"y"},{"content":)") +
                                R"({"rule":{"CreationMethod":)" + row.method +
                                R"(}},"event":[{"content":{"event_profile":{"EventID":)" +
                                row.event_id + R"(,"SourceIds":)" + row.sources + "}}}]}]}";
        bool found = true;
        EXPECT_EQ(is_event_already_in_rule(found, 7, row.channel), 0);
        EXPECT_EQ(found, row.found);
    }
}

TEST_F(UnitTest, RuleListThatCannotBeReadIsRefused)
{
    const std::string deep = std::string(1001, '[') + std::string(1001, ']');
    const std::pair<std::string, int> rows[] = {{"[]", -603},   {R"({"ruleList":{}})", -603},
                                                {"null", -603}, {R"({"ruleList":[]})", 0},
                                                {deep, -602},   {R"({"x":NaN})", -602}};
    for (const auto& [document, result] : rows) {
        fake_platform().rules = document;
        bool found = true;
        EXPECT_EQ(is_event_already_in_rule(found, 7, 0), result) << document;
        EXPECT_FALSE(found);
    }
}

TEST_F(UnitTest, AddRulesRefusesARequestWithoutACamera)
{
    std::string err;
    std::string text;
    TEventContent event;
    int channel = -1;
    EXPECT_EQ(add_rules(err, text, text, event, text, channel), -204);
    EXPECT_EQ(err, "Error input event has no camera");
    EXPECT_TRUE(fake_platform().calls.empty());
}

TEST_F(UnitTest, ScalarsAreReadAsTheLibraryConvertsThem)
{
    using Number = std::optional<int>;
    using Text = std::optional<std::string>;
    struct Row {
        const char* json;
        Text text;
        Number integer;
        Number whole_number;
    };
    const Row rows[] = {
        {"null", "", 0, 0},
        {"true", "true", 1, std::nullopt},
        {"2147483647", "2147483647", INT_MAX, INT_MAX},
        {"2147483648", "2147483648", std::nullopt, std::nullopt},
        {"-2147483648", "-2147483648", INT_MIN, INT_MIN},
        {"-2147483649", "-2147483649", std::nullopt, std::nullopt},
        {"18446744073709551616", "1.8446744073709552e+19", std::nullopt, std::nullopt},
        {"-1.5", "-1.5", -1, std::nullopt},
        {"2.0", "2.0", 2, 2},
        {R"("7")", "7", std::nullopt, std::nullopt},
        {"[]", std::nullopt, std::nullopt, std::nullopt},
        {"{}", std::nullopt, std::nullopt, std::nullopt},
    };
    for (const Row& row : rows) {
        const auto document = json::Document::parse(row.json);
        ASSERT_TRUE(document) << row.json;
        EXPECT_EQ(document->root().text(), row.text) << row.json;
        EXPECT_EQ(document->root().integer(), row.integer) << row.json;
        EXPECT_EQ(document->root().whole_number(), row.whole_number) << row.json;
        EXPECT_TRUE(document->root().member("x").element(0).is_absent());
    }
}

TEST_F(UnitTest, TextsAreCutAtTheirLimits)
{
    std::string err;
    EXPECT_EQ(REFUSE(err, -1, "%s", std::string(1023, 'a').c_str()), -1);
    EXPECT_EQ(err, std::string(1023, 'a'));
    REFUSE(err, -1, "%s", (std::string(1023, 'b') + "c").c_str());
    EXPECT_EQ(err, std::string(1023, 'b'));
    EXPECT_NE(fake_platform().log.back().find(err), std::string::npos);

    diagnostics::log_from("f", 1, std::string(300, 'x').c_str());
    EXPECT_EQ(fake_platform().log.back(), "[f](1) " + std::string(255 - 7, 'x'));
}

}  // namespace
