// The functions that whole requests cannot call with every value that they must handle.
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <set>

#include "rule_operation/config_access/time_profile.h"
#include "rule_operation/creation/add_rules.h"
#include "rule_operation/documents/event_profile.h"
#include "rule_operation/shared/diagnostics.h"
#include "tests/fake_platform.h"

namespace
{

class UnitTest : public testing::Test
{
 protected:
    void SetUp() override { fake_platform() = usual_platform(); }
};

TEST_F(UnitTest, SupportedEventsAreThoseOfTheApiDocument)
{
    std::ifstream file(SOURCE_DIR "/docs/api.md");
    const std::string document{std::istreambuf_iterator<char>(file), {}};
    const std::regex row("0x([0-9A-F]{8}) = ([0-9]+)");
    std::set<uint32_t> documented;
    for (std::sregex_iterator match(document.begin(), document.end(), row), end; match != end;
         ++match) {
        const auto event = static_cast<uint32_t>(std::stoul((*match)[1], nullptr, 16));
        EXPECT_EQ(std::to_string(event), (*match)[2]);
        documented.insert(event);
    }
    for (uint32_t event = 0x20000000; event < 0x20100000; ++event) {
        ASSERT_EQ(is_event_with_ch_info(event), documented.count(event) != 0) << event;
    }
}

// A request uses only its two kinds, and the first only without a GUID.
TEST_F(UnitTest, TimeProfileIsLeftAsItIsWhenThereIsNone)
{
    std::string guid = "x";
    EXPECT_EQ(time_profile_factory(3, guid), -105);
    const std::string message = fake_platform().log.back();
    EXPECT_EQ(message.substr(message.find(") ")), ") Error input func_type=3 not supported\n");
    fake_platform().answers["schedules"] = answer(0, "{}");
    EXPECT_EQ(time_profile_factory(FIND_ALL_DAY_PROFILE, guid), 0);
    EXPECT_EQ(guid, "x");
    guid.clear();
    fake_platform().answers["schedules"] = answer(0, R"({"content":[5]})");
    EXPECT_EQ(time_profile_factory(CHECK_NAMED_PROFILE, guid), -104);
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

TEST_F(UnitTest, LogFormatsAreCutAt255Bytes)
{
    log_from("f", 1, std::string(300, 'x').c_str());
    EXPECT_EQ(fake_platform().log.back(), "[f](1) " + std::string(255 - 7, 'x'));
}

}  // namespace
