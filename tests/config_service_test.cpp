// The configuration service of the host recorder: what it takes, what it refuses, what it keeps.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>

#include "host/common/base64.h"
#include "host/common/xml_document.h"
#include "host/config_service/refusal.h"
#include "host/config_service/service.h"
#include "host/config_service/store.h"

namespace
{

namespace fs = std::filesystem;

const std::string EVENT_GUID = "1111111111AAAAAAAAAAAAAAAAAA0003";
const std::string ACTION_GUID = "2222222222AAAAAAAAAAAAAAAAAA000A";
const std::string RULE_GUID = "3333333333AAAAAAAAAAAAAAAAAA0003";

const std::string EVENT_XML =
    "<event_profile><EventID>7</EventID><SourceNum>1</SourceNum>"
    "<SourceIds><id0>CAFE</id0></SourceIds></event_profile>";
const std::string ACTION_XML =
    "<action_profile><ActionName>RecordControl</ActionName><TargetNum>1</TargetNum>"
    "<TargetIds><id0>CAFE</id0></TargetIds></action_profile>";

std::string rule_xml(const std::string& event, const std::string& action)
{
    return "<rule><EventProfileNum>1</EventProfileNum><EventProfiles><evtpf0>" + event +
           "</evtpf0></EventProfiles><TimeProfile></TimeProfile>"
           "<ActionProfileNum>1</ActionProfileNum><ActionProfiles><actpf0>" +
           action + "</actpf0></ActionProfiles></rule>";
}

std::string call(const std::string& guid, const std::string& type, const std::string& xml,
                 const std::string& more = "")
{
    return R"({"object":"Rule","method":"POST","body":{"ruleNode":{"name":"n","isGroup":false,)"
           R"("description":"","GUID":")" +
           guid + R"(","type":)" + type + R"(,"active":true,"content":")" +
           host::encode_base64(xml) + "\"" + more + "}}}";
}

std::string event_call(const std::string& guid)
{
    return call(guid, "3", EVENT_XML, R"(,"EventID":7)");
}

std::string multicall(const std::string& calls)
{
    return R"({"calls":[)" + calls + "]}";
}

// A rule with both profiles, its GUIDs ending in `tail`.
std::string whole_rule(const std::string& tail)
{
    const auto with_tail = [&](const std::string& guid) {
        return guid.substr(0, guid.size() - tail.size()) + tail;
    };
    return multicall(
        event_call(with_tail(EVENT_GUID)) + "," + call(with_tail(ACTION_GUID), "4", ACTION_XML) +
        "," +
        call(with_tail(RULE_GUID), "0", rule_xml(with_tail(EVENT_GUID), with_tail(ACTION_GUID))));
}

std::string replaced(std::string text, const std::string& from, const std::string& to)
{
    const size_t position = text.find(from);
    EXPECT_NE(position, std::string::npos) << from;
    return position == std::string::npos ? text : text.replace(position, from.size(), to);
}

class ConfigServiceTest : public testing::Test
{
 protected:
    void SetUp() override
    {
        std::string name = fs::temp_directory_path() / "config_service_test.XXXXXX";
        directory_ = mkdtemp(name.data());
        store_.emplace(directory_ / "rules.db");
    }
    void TearDown() override
    {
        store_.reset();
        fs::remove_all(directory_);
    }

    std::string ask(const std::string& method, const std::string& target,
                    const std::string& body = "")
    {
        return serve(*store_, {method, target, body}).body;
    }
    std::string post(const std::string& document)
    {
        return ask("POST", "/cfg/multicalls", document);
    }
    bool stores(const std::string& guid)
    {
        return ask("GET", "/cfg/Rule").find(guid) != std::string::npos;
    }

    fs::path directory_;
    std::optional<Store> store_;
};

std::string error_code(ErrorCode code)
{
    return R"("err_code": )" + std::to_string(static_cast<int>(code));
}

TEST_F(ConfigServiceTest, RefusesWhatIsNotAWholeRuleAndKeepsNothingOfIt)
{
    const std::string good = whole_rule("");
    const std::string content = host::encode_base64(ACTION_XML);
    const auto with_xml = [&](const std::string& xml) {
        return replaced(good, content, host::encode_base64(xml));
    };
    struct Row {
        std::string document;
        ErrorCode code;
        const char* text;
    };
    const Row rows[] = {
        {"", ErrorCode::bad_document, "not a JSON document"},
        {good + "x", ErrorCode::bad_document, "not a JSON document"},
        {std::string(5000, '['), ErrorCode::bad_document, "not a JSON document"},
        {"{}", ErrorCode::bad_document, "calls"},
        {multicall(""), ErrorCode::bad_document, "calls"},
        {multicall("7"), ErrorCode::bad_call, "call 0"},
        {replaced(good, "\"Rule\"", "\"Role\""), ErrorCode::bad_call, "call 0"},
        {replaced(good, "POST", "PUT"), ErrorCode::bad_call, "call 0"},
        {replaced(good, EVENT_GUID, EVENT_GUID + "0"), ErrorCode::bad_call, "GUID"},
        {replaced(good, EVENT_GUID, "G" + EVENT_GUID.substr(1)), ErrorCode::bad_call, "GUID"},
        {replaced(good, "\"n\"", "\"n\\u0000\""), ErrorCode::bad_call, "zero byte"},
        {replaced(good, "\"type\":4", "\"type\":5"), ErrorCode::bad_call, "type"},
        {replaced(good, "\"type\":4", "\"type\":3,\"EventID\":7"), ErrorCode::bad_call, "call 1"},
        {replaced(good, "\"EventID\":7", "\"EventID\":8"), ErrorCode::bad_call, "EventID"},
        {replaced(good, content, content + "!"), ErrorCode::bad_call, "base64"},
        {with_xml(ACTION_XML.substr(1)), ErrorCode::bad_call, "syntax error"},
        {with_xml("<!DOCTYPE a>" + ACTION_XML), ErrorCode::bad_call, "document type"},
        {with_xml("<rule></rule>"), ErrorCode::bad_call, "action_profile"},
        {with_xml(replaced(ACTION_XML, ">1<", ">2<")), ErrorCode::bad_call, "TargetNum"},
        {multicall(event_call(EVENT_GUID) + "," + event_call(EVENT_GUID)), ErrorCode::guid_in_use,
         "call 1"},
        {multicall(call(RULE_GUID, "0", rule_xml(EVENT_GUID, ACTION_GUID))),
         ErrorCode::unknown_reference, "call 0"},
        {multicall(event_call(EVENT_GUID) + "," +
                   call(RULE_GUID, "0", rule_xml(EVENT_GUID, EVENT_GUID))),
         ErrorCode::unknown_reference, "call 1"},
        {replaced(good, host::encode_base64(rule_xml(EVENT_GUID, ACTION_GUID)),
                  host::encode_base64(replaced(rule_xml(EVENT_GUID, ACTION_GUID), "<TimeProfile>",
                                               "<TimeProfile>" + EVENT_GUID))),
         ErrorCode::unknown_reference, "call 2"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.document.substr(0, 300));
        const std::string reply = post(row.document);
        EXPECT_NE(reply.find(error_code(row.code)), std::string::npos) << reply;
        EXPECT_NE(reply.find(row.text), std::string::npos) << reply;
        EXPECT_FALSE(stores("GUID"));
    }
    EXPECT_NE(post(good).find(R"("err_code": 0)"), std::string::npos);
    EXPECT_TRUE(stores(RULE_GUID));
    EXPECT_NE(post(good).find(error_code(ErrorCode::guid_in_use)), std::string::npos);
}

TEST_F(ConfigServiceTest, DeletionTakesOnlyTheRulesOwnProfilesAlong)
{
    const auto remove = [this](const std::string& guid) {
        return ask("DELETE", "/cfg/Rule?GUID=" + guid);
    };
    const std::string shared_rule = "3333333333BBBBBBBBBBBBBBBBBB0003";
    post(whole_rule(""));
    post(multicall(call(shared_rule, "0", rule_xml(EVENT_GUID, ACTION_GUID))));
    const std::string unknown = error_code(ErrorCode::no_such_rule);
    EXPECT_EQ(unknown, R"("err_code": -1811535318)");
    EXPECT_NE(remove("F" + RULE_GUID.substr(1)).find(unknown), std::string::npos);
    EXPECT_NE(remove(EVENT_GUID).find(unknown), std::string::npos);
    EXPECT_NE(remove("").find(unknown), std::string::npos);
    EXPECT_NE(ask("DELETE", "/cfg/Rule").find(error_code(ErrorCode::missing_guid)),
              std::string::npos);

    EXPECT_NE(remove(RULE_GUID).find(R"("err_code": 0)"), std::string::npos);
    EXPECT_FALSE(stores(RULE_GUID));
    EXPECT_TRUE(stores(EVENT_GUID));
    remove(shared_rule);
    EXPECT_FALSE(stores("GUID"));
}

TEST_F(ConfigServiceTest, KeepsItsRulesAndSchedulesAcrossARestart)
{
    post(whole_rule(""));
    const std::string rules = ask("GET", "/cfg/Rule");
    const std::string schedules = ask("GET", "/cfg/Schedule");
    EXPECT_NE(schedules.find(R"("_ALL_DAY_")"), std::string::npos);
    store_.reset();
    store_.emplace(directory_ / "rules.db");
    EXPECT_EQ(ask("GET", "/cfg/Rule"), rules);
    EXPECT_EQ(ask("GET", "/cfg/Schedule"), schedules);
}

// While it lives, a file can be written up to `bytes` and no further, as on a full disk.
class FullDisk
{
 public:
    explicit FullDisk(rlim_t bytes)
    {
        std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit = {bytes, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;
    ~FullDisk() { setrlimit(RLIMIT_FSIZE, &before_); }

 private:
    rlimit before_{};
};

// The disk is full at every point of the writing in turn.
TEST_F(ConfigServiceTest, AFullDiskIsAnErrorThatChangesNothing)
{
    constexpr rlim_t STEP = 512;
    constexpr rlim_t ENOUGH = 1UL << 20U;
    const HttpRequest changes[] = {
        {"POST", "/cfg/multicalls", whole_rule("1")},
        {"DELETE", "/cfg/Rule?GUID=" + RULE_GUID, ""},
    };
    post(whole_rule(""));
    for (const HttpRequest& change : changes) {
        const std::string rules = ask("GET", "/cfg/Rule");
        rlim_t bytes = 0;
        std::string reply;
        const auto is_refused = [&] {
            const FullDisk full(bytes);
            reply = serve(*store_, change).body;
            return reply.find(error_code(ErrorCode::database_failure)) != std::string::npos;
        };
        for (; bytes < ENOUGH && is_refused(); bytes += STEP) {
            ASSERT_EQ(ask("GET", "/cfg/Rule"), rules) << bytes;
        }
        EXPECT_EQ(reply, R"({"err_code": 0, "err_str": ""})") << bytes;
        EXPECT_GT(bytes, 10 * STEP);
    }
    const std::string rules = ask("GET", "/cfg/Rule");
    EXPECT_FALSE(stores(RULE_GUID));
    EXPECT_TRUE(stores(RULE_GUID.substr(0, RULE_GUID.size() - 1) + "1"));
    store_.reset();
    store_.emplace(directory_ / "rules.db");
    EXPECT_EQ(ask("GET", "/cfg/Rule"), rules);
}

TEST_F(ConfigServiceTest, ADatabaseThatCannotBeWrittenIsNotServed)
{
    const auto allow = [this](fs::perms directory, fs::perms file) {
        fs::permissions(directory_, directory);
        fs::permissions(directory_ / "rules.db", file);
    };
    post(whole_rule(""));
    const std::string rules = ask("GET", "/cfg/Rule");
    store_.reset();
    allow(fs::perms(0555), fs::perms(0444));
    // Permissions do not bind root.
    constexpr uid_t NOBODY = 65534;
    const uid_t user = geteuid();
    if (user == 0 && seteuid(NOBODY) != 0) {
        GTEST_SKIP() << "cannot act as another user";
    }
    try {
        store_.emplace(directory_ / "rules.db");
        ADD_FAILURE() << "opened";
    } catch (const Refusal& refusal) {
        EXPECT_STREQ(refusal.what(), "database: attempt to write a readonly database");
    }
    ASSERT_EQ(seteuid(user), 0);
    allow(fs::perms(0700), fs::perms(0600));
    store_.emplace(directory_ / "rules.db");
    EXPECT_EQ(ask("GET", "/cfg/Rule"), rules);
}

TEST_F(ConfigServiceTest, PathsAndMethodsAreChecked)
{
    EXPECT_EQ(serve(*store_, {"GET", "/cfg/Rules", ""}).status, 404);
    EXPECT_EQ(serve(*store_, {"PUT", "/cfg/Rule", ""}).status, 405);
    EXPECT_EQ(serve(*store_, {"POST", "/cfg/Schedule", ""}).status, 405);
}

TEST(XmlDocumentTest, NestingHasALimit)
{
    const auto nested = [](int levels) {
        std::string text;
        for (const char* const tag : {"<a>", "</a>"}) {
            for (int i = 0; i < levels; ++i) {
                text += tag;
            }
        }
        std::string error;
        return host::parse_xml(text, error).has_value();
    };
    EXPECT_TRUE(nested(32));
    EXPECT_FALSE(nested(33));
    EXPECT_FALSE(nested(100000));
}

}  // namespace
