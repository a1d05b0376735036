// The configuration service of the host recorder: what it takes, what it refuses, what it keeps.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <regex>

#include "host/common/base64.h"
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
const std::string EVENT =
    R"j({"name": "e", "isGroup": false, "description": "d", "GUID": ")j" + EVENT_GUID +
    R"j(", "type": 3, "active": false, "content": "b64(<event_profile><EventID>-7</EventID>)j"
    R"j(<SourceNum>1</SourceNum><SourceIds><id0>C</id0></SourceIds></event_profile>)", )j"
    R"j("EventID": -7})j";
const std::string ACTION =
    R"j({"name": "", "isGroup": false, "description": "", "GUID": ")j" + ACTION_GUID +
    R"j(", "type": 4, "active": true, "content": "b64(<action_profile><ActionName>A</ActionName>)j"
    R"j(<TargetNum>2</TargetNum><TargetIds><id0>C</id0><id1>D</id1></TargetIds>)j"
    R"j(</action_profile>)"})j";
const std::string RULE =
    R"j({"name": "r", "isGroup": false, "description": "", "GUID": ")j" + RULE_GUID +
    R"j(", "type": 0, "active": true, "content": "b64(<rule><EventProfileNum>1</EventProfileNum>)j"
    R"j(<EventProfiles><evtpf0>1111111111aaaaaaaaaaaaaaaaaa0003</evtpf0></EventProfiles>)j"
    R"j(<TimeProfile>5c4ed01e000000000000000000000003</TimeProfile>)j"
    R"j(<ActionProfileNum>1</ActionProfileNum><ActionProfiles><actpf0>)j" +
    ACTION_GUID + R"j(</actpf0></ActionProfiles></rule>)"})j";

std::string call(const std::string& node)
{
    return R"({"object": "Rule", "method": "POST", "body": {"ruleNode": )" + node + "}}";
}

const std::string WHOLE_RULE =
    R"({"calls": [)" + call(EVENT) + ", " + call(ACTION) + ", " + call(RULE) + "]}";

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

bool starts_with(const std::string& reply, uint32_t code, const std::string& text = "")
{
    const auto number = std::to_string(static_cast<int32_t>(code));
    return reply.rfind(R"({"err_code": )" + number + R"(, "err_str": ")" + text, 0) == 0;
}

TEST_F(ConfigServiceTest, RefusesWhatIsNotAWholeRuleAndKeepsNothingOfIt)
{
    struct Row {
        std::string to;
        uint32_t code;
        std::string text;
        std::string from = WHOLE_RULE;
    };
    constexpr uint32_t BAD_DOCUMENT = 0x94062A04;
    constexpr uint32_t BAD_CALL = 0x94062A05;
    const std::string no_document = "the body is not a JSON document: ";
    const std::string calls = "calls is not a list of 1 to 16 calls";
    const std::string in_event = "call 0: content: no <id0> in <SourceIds>";
    const std::string no_guid = " is not 32 hexadecimal digits";
    const std::string unreadable = "call 0: content cannot be read as XML: line 1: ";
    const auto repeated = [](const std::string& text, int times) {
        std::string all;
        for (int i = 0; i < times; ++i) {
            all += text;
        }
        return all;
    };
    // clang-format off
    const Row rows[] = {
        {"", BAD_DOCUMENT, no_document},
        {"}}}]}x", BAD_DOCUMENT, no_document, "}}}]}"},
        {"{\"a\\\"\": " + std::string(16, '['), BAD_DOCUMENT, no_document + "it is nested too deeply"},
        {"[" + std::string(1000, ','), BAD_DOCUMENT, no_document + "it has too many elements"},
        {"{}", BAD_DOCUMENT, calls},
        {R"({"calls":[]})", BAD_DOCUMENT, calls},
        {R"({"calls":[)" + repeated(call("{}") + ",", 16) + "7]}", BAD_DOCUMENT, calls},
        {R"({"calls":[7]})", BAD_CALL, "call 0: object is missing or of another type"},
        {"\"Role\"", BAD_CALL, "call 0: the only call is method POST of object Rule", "\"Rule\""},
        {"PUT", BAD_CALL, "call 0: the only call is method POST of object Rule", "POST"},
        {'"' + std::string(4097, 'n') + '"', BAD_CALL, "call 0: name is longer than 4096 bytes", "\"e\""},
        {"\"e\\u0000\"", BAD_CALL, "call 0: name has a zero byte or is not UTF-8", "\"e\""},
        {"\"\xed\xa0\x80\"", BAD_CALL, "call 0: name has a zero byte or is not UTF-8", "\"e\""},
        {EVENT_GUID + "0", BAD_CALL, "call 0: GUID" + no_guid, EVENT_GUID},
        {"\"G1", BAD_CALL, "call 0: GUID" + no_guid, "\"11"},
        {"\"isGroup\": true", BAD_CALL, "call 0: isGroup is true", "\"isGroup\": false"},
        {"\"type\": 5", BAD_CALL, "call 1: type is not 0, 3 or 4", "\"type\": 4"},
        {"\"type\": 0", BAD_CALL, "call 1: content is not a document <rule>", "\"type\": 4"},
        {"\"EventID\": -8", BAD_CALL, "call 0: content: <EventID> is not the node's EventID", "\"EventID\": -7"},
        {"\"EventID\": 2147483648", BAD_CALL, "call 0: EventID does not fit in 32 bits", "\"EventID\": -7"},
        {"</action_profile>)!", BAD_CALL, "call 1: content is not base64", "</action_profile>)"},
        {"(" + repeated("<a>", 29), BAD_CALL, unreadable + "no element found", "("},
        {"(" + repeated("<a>", 30), BAD_CALL, unreadable + "nested too deeply", "("},
        {"(<a>" + repeated("<a/>", 994), BAD_CALL, unreadable + "no element found", "("},
        {"(<a>" + repeated("<a/>", 995), BAD_CALL, unreadable + "too many elements", "("},
        {"(action", BAD_CALL, "call 1: content cannot be read as XML: line 1: syntax error", "(<action"},
        {"(<!DOCTYPE a><action", BAD_CALL, "call 1: content cannot be read as XML: line 1: a document type", "(<action"},
        {"<ActionName/>", BAD_CALL, "call 1: content: no <ActionName>", "<ActionName>A</ActionName>"},
        {"<TargetNum>1", BAD_CALL, "call 1: content: <TargetNum> does not agree with <TargetIds>", "<TargetNum>2"},
        {"<id0/>", BAD_CALL, in_event, "<id0>C</id0>"},
        {"<id1>C</id1>", BAD_CALL, in_event, "<id0>C</id0>"},
        {"", BAD_CALL, "call 0: content: no member in <SourceIds>", "<SourceNum>1</SourceNum><SourceIds><id0>C</id0></SourceIds>"},
        {"", BAD_CALL, "call 0: content: <SourceNum> does not agree", "<SourceNum>1</SourceNum>"},
        {"<evtpf0>", BAD_CALL, "call 2: content: the GUID of an event profile" + no_guid, "<evtpf0>1"},
        {"<actpf0>", BAD_CALL, "call 2: content: the GUID of an action profile" + no_guid, "<actpf0>2"},
        {"<TimeProfile>", BAD_CALL, "call 2: content: the GUID of the time profile" + no_guid, "<TimeProfile>5"},
        {call(EVENT), 0x94062A06, "call 1: GUID " + EVENT_GUID + " is already in use", call(ACTION)},
        {"", 0x94062A07, "call 0: there is no event profile 1111111111aaaaaaaaaaaaaaaaaa0003", call(EVENT) + ", " + call(ACTION) + ", "},
        {"f0>" + EVENT_GUID, 0x94062A07, "call 2: there is no action profile " + EVENT_GUID, "f0>" + ACTION_GUID},
        {"<TimeProfile>6", 0x94062A07, "call 2: there is no schedule 6c4ed01e000000000000000000000003", "<TimeProfile>5"},
    };
    // clang-format on
    for (const Row& row : rows) {
        const std::string reply = post(whole_rule_with(row.to, row.from));
        EXPECT_TRUE(starts_with(reply, row.code, row.text)) << row.to.substr(0, 300) << reply;
        EXPECT_FALSE(stores("GUID"));
    }
    EXPECT_EQ(post(whole_rule_with('"' + std::string(4096, 'n') + '"', "\"e\"")), SUCCESS);
    EXPECT_TRUE(starts_with(post(WHOLE_RULE), 0x94062A06));
}

TEST_F(ConfigServiceTest, ListsWhatIsThere)
{
    EXPECT_EQ(ask("GET", "/cfg/Rule"), R"({"err_code": 0, "err_str": "", "content": []})");
    post(WHOLE_RULE);
    store_.emplace(directory_ / "rules.db");
    EXPECT_EQ(ask("GET", "/cfg/Rule?x"), encoded(R"({"err_code": 0, "err_str": "", "content": [)" +
                                                 EVENT + ", " + ACTION + ", " + RULE + "]}"));
}

TEST_F(ConfigServiceTest, DeletionTakesOnlyTheRulesOwnProfilesAlong)
{
    const auto remove = [this](const std::string& query) {
        return ask("DELETE", "/cfg/Rule" + query);
    };
    const std::string shared_rule = "3333333333bbbbbbbbbbbbbbbbbb0003";
    post(WHOLE_RULE);
    post(R"({"calls":[)" + call(std::regex_replace(RULE, std::regex(RULE_GUID), shared_rule)) +
         "]}");
    for (const std::string& unknown : {"F" + RULE_GUID.substr(1), EVENT_GUID, std::string()}) {
        EXPECT_TRUE(starts_with(remove("?GUID=" + unknown), 0x94062A2A)) << unknown;
    }
    for (const std::string& query :
         {std::string(), "?guid=" + RULE_GUID, "?GUID=" + RULE_GUID + "%00"}) {
        EXPECT_TRUE(starts_with(remove(query), 0x94062A08, "the query has no parameter GUID"));
    }
    EXPECT_EQ(remove("?a=b&GUID=%33" + RULE_GUID.substr(1)), SUCCESS);
    EXPECT_FALSE(stores(RULE_GUID));
    EXPECT_TRUE(stores(EVENT_GUID));
    remove("?GUID=3333333333BBBBBBBBBBBBBBBBBB0003&GUID=x");
    EXPECT_FALSE(stores("GUID"));
}

TEST_F(ConfigServiceTest, ADatabaseOfAnotherKindIsLeftAlone)
{
    for (const char* const statement : {"CREATE TABLE other (x)", "PRAGMA user_version = 2"}) {
        Database(directory_ / statement).run(statement);
        EXPECT_THROW(Store{directory_ / statement}, DatabaseError);
    }
    Database(directory_ / "rules.db").run("DROP TABLE schedule");
    EXPECT_TRUE(starts_with(ask("GET", "/cfg/Schedule"), 0x94062A09, "database: no such table"));
    EXPECT_TRUE(starts_with(post(WHOLE_RULE), 0x94062A09, "database: no such table"));
    EXPECT_FALSE(stores("GUID"));
}

}  // namespace
}  // namespace host
