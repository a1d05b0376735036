// The configuration service of the host recorder: what it takes, what it refuses, what it keeps.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <regex>

#include "host/common/base64.h"
#include "host/common/xml_document.h"
#include "host/config_service/refusal.h"
#include "host/config_service/service.h"
#include "host/config_service/store.h"

namespace host
{
namespace
{

namespace fs = std::filesystem;

const std::string SUCCESS = R"({"err_code": 0, "err_str": ""})";
const std::string EVENT_GUID = "1111111111AAAAAAAAAAAAAAAAAA0003";
const std::string ACTION_GUID = "2222222222AAAAAAAAAAAAAAAAAA000A";
const std::string RULE_GUID = "3333333333AAAAAAAAAAAAAAAAAA0003";

// What stands in b64() is sent encoded.
const std::string EVENT_CALL = R"json({"object":"Rule","method":"POST","body":{"ruleNode":{
    "name":"n","isGroup":false,"description":"","GUID":"1111111111AAAAAAAAAAAAAAAAAA0003",
    "type":3,"active":true,"content":"b64(<event_profile><EventID>7</EventID>
    <SourceNum>1</SourceNum><SourceIds><id0>CAFE</id0></SourceIds></event_profile>)",
    "EventID":7}}})json";
const std::string ACTION_CALL = R"json({"object":"Rule","method":"POST","body":{"ruleNode":{
    "name":"n","isGroup":false,"description":"","GUID":"2222222222AAAAAAAAAAAAAAAAAA000A",
    "type":4,"active":true,"content":"b64(<action_profile><ActionName>RecordControl</ActionName>
    <TargetNum>1</TargetNum><TargetIds><id0>CAFE</id0></TargetIds></action_profile>)"}}})json";
const std::string RULE_CALL = R"json({"object":"Rule","method":"POST","body":{"ruleNode":{
    "name":"n","isGroup":false,"description":"","GUID":"3333333333AAAAAAAAAAAAAAAAAA0003",
    "type":0,"active":true,"content":"b64(<rule><EventProfileNum>1</EventProfileNum>
    <EventProfiles><evtpf0>1111111111AAAAAAAAAAAAAAAAAA0003</evtpf0></EventProfiles>
    <TimeProfile></TimeProfile><ActionProfileNum>1</ActionProfileNum><ActionProfiles>
    <actpf0>2222222222AAAAAAAAAAAAAAAAAA000A</actpf0></ActionProfiles></rule>)"}}})json";
const std::string WHOLE_RULE =
    R"({"calls":[)" + EVENT_CALL + "," + ACTION_CALL + "," + RULE_CALL + "]}";

std::string whole_rule_with(const std::string& to, const std::string& from)
{
    const size_t position = WHOLE_RULE.find(from);
    EXPECT_NE(position, std::string::npos) << from;
    return std::string(WHOLE_RULE).replace(position, from.size(), to);
}

std::string encoded(std::string document)
{
    for (size_t start = 0; (start = document.find("b64(")) != std::string::npos;) {
        const size_t length = document.find(')', start) - start;
        const std::string xml = document.substr(start + 4, length - 4);
        document.replace(start, length + 1, encode_base64(xml));
    }
    return document;
}

class ConfigServiceTest : public testing::Test
{
 protected:
    ~ConfigServiceTest() override
    {
        store_.reset();
        fs::remove_all(directory_);
    }

    std::string ask(const char* method, const std::string& target)
    {
        return serve(*store_, {method, target, ""}).body;
    }
    std::string post(const std::string& document)
    {
        return serve(*store_, {"POST", "/cfg/multicalls", encoded(document)}).body;
    }
    bool stores(const std::string& guid)
    {
        return ask("GET", "/cfg/Rule").find(guid) != std::string::npos;
    }

    fs::path directory_ =
        mkdtemp((fs::temp_directory_path() / "config_service_test.XXXXXX").string().data());
    std::optional<Store> store_{std::in_place, directory_ / "rules.db"};
};

bool has_code(const std::string& reply, ErrorCode code)
{
    return reply.find("\"err_code\": " + std::to_string(static_cast<int32_t>(code)) + ",") == 1;
}

TEST_F(ConfigServiceTest, RefusesWhatIsNotAWholeRuleAndKeepsNothingOfIt)
{
    struct Row {
        std::string to;
        ErrorCode code;
        const char* text;
        std::string from = WHOLE_RULE;
    };
    // clang-format off
    const Row rows[] = {
        {"", ErrorCode::bad_document, "not a JSON document"},
        {"}}}]}x", ErrorCode::bad_document, "not a JSON document", "}}}]}"},
        {std::string(5000, '['), ErrorCode::bad_document, "not a JSON document"},
        {"{}", ErrorCode::bad_document, "calls"},
        {R"({"calls":[]})", ErrorCode::bad_document, "calls"},
        {R"({"calls":[7]})", ErrorCode::bad_call, "call 0"},
        {"\"Role\"", ErrorCode::bad_call, "call 0", "\"Rule\""},
        {"PUT", ErrorCode::bad_call, "call 0", "POST"},
        {EVENT_GUID + "0", ErrorCode::bad_call, "GUID", EVENT_GUID},
        {"\"G1", ErrorCode::bad_call, "GUID", "\"11"},
        {"\"n\\u0000\"", ErrorCode::bad_call, "zero byte", "\"n\""},
        {"\"type\":5", ErrorCode::bad_call, "type", "\"type\":4"},
        {"\"type\":3,\"EventID\":7", ErrorCode::bad_call, "call 1", "\"type\":4"},
        {"\"EventID\":8", ErrorCode::bad_call, "EventID", "\"EventID\":7"},
        {"</action_profile>)!", ErrorCode::bad_call, "base64", "</action_profile>)"},
        {"(action", ErrorCode::bad_call, "syntax error", "(<action"},
        {"(<!DOCTYPE a><action", ErrorCode::bad_call, "document type", "(<action"},
        {"\"type\":0", ErrorCode::bad_call, "not a document <rule>", "\"type\":4"},
        {"<TargetNum>2", ErrorCode::bad_call, "TargetNum", "<TargetNum>1"},
        {EVENT_CALL, ErrorCode::guid_in_use, "call 1", ACTION_CALL},
        {"", ErrorCode::unknown_reference, "call 0", EVENT_CALL + "," + ACTION_CALL + ","},
        {"f0>" + EVENT_GUID, ErrorCode::unknown_reference, "call 2", "f0>" + ACTION_GUID},
        {"<TimeProfile>" + EVENT_GUID, ErrorCode::unknown_reference, "call 2", "<TimeProfile>"},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(row.to.substr(0, 300));
        const std::string reply = post(whole_rule_with(row.to, row.from));
        EXPECT_TRUE(has_code(reply, row.code) && reply.find(row.text) != std::string::npos)
            << reply;
        EXPECT_FALSE(stores("GUID"));
    }
    EXPECT_EQ(post(WHOLE_RULE), SUCCESS);
    EXPECT_TRUE(stores(RULE_GUID));
    EXPECT_TRUE(has_code(post(WHOLE_RULE), ErrorCode::guid_in_use));
}

TEST_F(ConfigServiceTest, DeletionTakesOnlyTheRulesOwnProfilesAlong)
{
    const auto remove = [this](const std::string& guid) {
        return ask("DELETE", "/cfg/Rule?GUID=" + guid);
    };
    const std::string shared_rule = "3333333333BBBBBBBBBBBBBBBBBB0003";
    post(WHOLE_RULE);
    post(R"({"calls":[)" + std::regex_replace(RULE_CALL, std::regex(RULE_GUID), shared_rule) +
         "]}");
    for (const std::string& unknown : {"F" + RULE_GUID.substr(1), EVENT_GUID, std::string()}) {
        EXPECT_TRUE(has_code(remove(unknown), ErrorCode{0x94062A2A})) << unknown;
    }
    EXPECT_TRUE(has_code(ask("DELETE", "/cfg/Rule"), ErrorCode::missing_guid));
    EXPECT_EQ(remove(RULE_GUID), SUCCESS);
    EXPECT_FALSE(stores(RULE_GUID));
    EXPECT_TRUE(stores(EVENT_GUID));
    remove(shared_rule);
    EXPECT_FALSE(stores("GUID"));
}

void limit_file_length(rlim_t bytes)
{
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = std::min(bytes, limit.rlim_max);
    setrlimit(RLIMIT_FSIZE, &limit);
}

// The disk is full at every point of the writing in turn.
TEST_F(ConfigServiceTest, AFullDiskIsAnErrorThatChangesNothing)
{
    constexpr rlim_t STEP = 512;
    constexpr rlim_t ENOUGH = 1UL << 20U;
    const std::string second_rule = std::regex_replace(WHOLE_RULE, std::regex("AAA0"), "AAA1");
    const HttpRequest changes[] = {
        {"POST", "/cfg/multicalls", encoded(second_rule)},
        {"DELETE", "/cfg/Rule?GUID=" + RULE_GUID, ""},
    };
    post(WHOLE_RULE);
    for (const HttpRequest& change : changes) {
        const std::string rules = ask("GET", "/cfg/Rule");
        rlim_t bytes = 0;
        std::string reply;
        const auto is_refused = [&] {
            limit_file_length(bytes);
            reply = serve(*store_, change).body;
            limit_file_length(RLIM_INFINITY);
            return has_code(reply, ErrorCode::database_failure);
        };
        for (; bytes < ENOUGH && is_refused(); bytes += STEP) {
            ASSERT_EQ(ask("GET", "/cfg/Rule"), rules) << bytes;
        }
        EXPECT_EQ(reply, SUCCESS) << bytes;
        EXPECT_GT(bytes, 10 * STEP);
    }
    EXPECT_FALSE(stores(RULE_GUID));
    EXPECT_TRUE(stores("3333333333AAAAAAAAAAAAAAAAAA1003"));
    const std::string rules = ask("GET", "/cfg/Rule");
    store_.emplace(directory_ / "rules.db");
    EXPECT_EQ(ask("GET", "/cfg/Rule"), rules);
}

TEST_F(ConfigServiceTest, ADatabaseThatCannotBeWrittenIsNotServedAndKeepsItsContent)
{
    post(WHOLE_RULE);
    const std::string rules = ask("GET", "/cfg/Rule");
    const std::string schedules = ask("GET", "/cfg/Schedule");
    EXPECT_NE(schedules.find(R"("_ALL_DAY_")"), std::string::npos);
    store_.reset();
    fs::permissions(directory_, fs::perms(0555));
    fs::permissions(directory_ / "rules.db", fs::perms(0444));
    // Permissions do not bind root.
    constexpr uid_t NOBODY = 65534;
    const uid_t user = geteuid();
    ASSERT_EQ(seteuid(user == 0 ? NOBODY : user), 0);
    EXPECT_THROW(store_.emplace(directory_ / "rules.db"), DatabaseError);
    ASSERT_EQ(seteuid(user), 0);
    fs::permissions(directory_, fs::perms(0700));
    fs::permissions(directory_ / "rules.db", fs::perms(0600));
    store_.emplace(directory_ / "rules.db");
    EXPECT_EQ(ask("GET", "/cfg/Rule"), rules);
    EXPECT_EQ(ask("GET", "/cfg/Schedule"), schedules);
}

TEST_F(ConfigServiceTest, PathsAndMethodsAreChecked)
{
    EXPECT_EQ(serve(*store_, {"GET", "/cfg/Rules", ""}).status, 404);
    EXPECT_EQ(serve(*store_, {"PUT", "/cfg/Rule", ""}).status, 405);
    EXPECT_EQ(serve(*store_, {"POST", "/cfg/Schedule", ""}).status, 405);
}

TEST(XmlDocumentTest, NestingHasALimit)
{
    std::string text;
    std::string error;
    for (int levels = 1; levels < 1000; ++levels) {
        text.insert(text.size() / 7 * 3, "<a></a>");
        EXPECT_EQ(XmlParser(1000).parse(text, error).has_value(), levels <= 32);
    }
}

}  // namespace
}  // namespace host
