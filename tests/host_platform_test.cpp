// The platform of the development machine: what it makes of a request and of its files.
#include <crypt.h>
#include <gtest/gtest.h>
#include <json-c/json.h>

#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <regex>
#include <tuple>

#include "platform/camera_config.h"
#include "platform/cgi_input.h"
#include "platform/cgi_support.h"
#include "platform/config_client.h"
#include "platform/device_utility.h"
#include "platform/rule_library.h"
#include "platform/rule_log.h"

namespace
{

namespace fs = std::filesystem;
using std::string_literals::operator""s;

// The recorder's directory, from before the first test on because the log stays open.
class RecorderDirectory
{
 public:
    RecorderDirectory() { setenv("RULE_RECORDER_DIR", mkdtemp(name_.data()), 1); }
    RecorderDirectory(const RecorderDirectory&) = delete;
    RecorderDirectory& operator=(const RecorderDirectory&) = delete;
    ~RecorderDirectory() { fs::remove_all(name_); }

    fs::path operator/(const char* file) const { return fs::path(name_) / file; }

 private:
    std::string name_ = fs::temp_directory_path() / "host_platform_test.XXXXXX";
};

const RecorderDirectory DIRECTORY;

void write_file(const char* name, const std::string& content)
{
    std::ofstream(DIRECTORY / name) << content;
}

// The last message of the log, if its line has the form of one.
std::string last_log_message()
{
    std::ifstream file(DIRECTORY / "rule.log");
    std::string line;
    for (std::string next; std::getline(file, next);) {
        line = std::move(next);
    }
    const size_t end = line.find("] ") + 2;
    const std::regex start(R"(2\d{3}-[01]\d-[0-3]\dT[0-2]\d:[0-5]\d:[0-5]\d\.\d{6}Z \[\d+\] )");
    return std::regex_match(line.substr(0, end), start) ? line.substr(end) : "torn: " + line;
}

// What the rule library gets from the configuration service; without it the call fails.
std::string service_reply;

TEST(HostPlatformTest, ParametersAreDecodedUnlessOneHasAZeroByte)
{
    const std::pair<const char*, const char*> rows[] = {
        {"a=b&f%75nc=add%52ule+x&func=y", "addRule x"},
        {"func", ""},
        {"Func=addRule", nullptr},
        {"func=addRule%00x", nullptr},
        {"func%00=addRule", nullptr},
    };
    for (const auto& [query, expected] : rows) {
        setenv("QUERY_STRING", query, 1);
        tagINPUT* const input = CGI_Get_Input_URL();
        const st_cgi_parameter* const found = _CGI_Find_Parameter(input, "func", 0);
        EXPECT_STREQ(found == nullptr ? nullptr : found->value, expected) << query;
        CGI_Free_Input(input);
    }
    CGI_Free_Input(nullptr);
}

std::string base64(const std::string& text)
{
    std::string encoded;
    b64_encode_v2(reinterpret_cast<const unsigned char*>(text.data()), text.size(), encoded);
    return encoded;
}

TEST(HostPlatformTest, OnlyKnownCredentialsPass)
{
    const auto basic = [](const std::string& text) { return "Basic " + base64(text); };
    const auto hash = [](const char* setting) { return std::string(crypt("se:cret", setting)); };
    const std::string sha256 = hash("$5$rounds=1000$salt$");
    const std::string longest(63, 'u');
    const std::string users = "#ann:" + sha256 + "\n\nann:" + sha256 +
                              "\nbob:" + hash("$6$rounds=1000$salt$") + "\noff:*\n:" + sha256 +
                              "\nnohash\n" + longest + ":" + sha256 + "\n" + longest +
                              "u:" + sha256;
    struct Row {
        std::string header;
        const char* user;  // null: refused
        std::string reason = "no usable Basic credentials in the request";
    };
    const Row rows[] = {
        {basic("ann:se:cret"), "ann"},
        {"bASIC  " + basic("bob:se:cret").substr(6), "bob"},
        {basic(longest + ":se:cret"), longest.c_str()},
        {basic(longest + "u:se:cret"), nullptr, "user [" + longest + "u] refused"},
        {basic("#ann:se:cret"), nullptr, "user [#ann] refused"},
        {basic("ann:Se:cret"), nullptr, "user [ann] refused"},
        {basic("ann:"), nullptr, "user [ann] refused"},
        {basic("off:*"), nullptr, "user [off] refused"},
        {basic("zoe:se:cret"), nullptr, "user [zoe] refused"},
        {basic(":se:cret"), nullptr, "user [] refused"},
        {basic("ann"), nullptr},
        {basic("ann:se:cret\0x"s), nullptr},
        {basic("ann:se:cret") + " ", nullptr},
        {"Basic", nullptr},
        {"Bearer " + basic("ann:se:cret").substr(6), nullptr},
    };
    const auto user = [](const std::string& header) {
        setenv("HTTP_AUTHORIZATION", header.c_str(), 1);
        t_vistra_auth_info info{"someone"};
        const bool passed = cgi_check_user_authentication_v3(nullptr, &info, 11) == 0;
        EXPECT_EQ(info.user_name[0] != '\0', passed);
        return std::string(info.user_name);
    };
    for (const Row& row : rows) {
        write_file("users", users);
        EXPECT_EQ(user(row.header), row.user == nullptr ? "" : row.user);
        if (row.user == nullptr) {
            EXPECT_EQ(last_log_message(), "Authentication: " + row.reason);
        }
    }
    for (const char* const none : {"off:*\n", ""}) {
        write_file("users", none);
        EXPECT_EQ(user(rows[0].header), "");
        EXPECT_EQ(last_log_message(), "Authentication: no usable entry in the users file");
    }
    unsetenv("HTTP_AUTHORIZATION");
    t_vistra_auth_info info{};
    EXPECT_NE(cgi_check_user_authentication_v3(nullptr, &info, 11), 0);
}

TEST(HostPlatformTest, NoMessageCanForgeOrLoseALogLine)
{
    const std::pair<std::string, std::string> rows[] = {
        {"a\nb\r\t\x1b\x7f\\", R"(a\nb\r\t\x1b\x7f\\)"},
        {"ä\u0080\u009f\u00a0€", "ä\\xc2\\x80\\xc2\\x9f\u00a0€"},
        {"\x9bx\xc3", R"(\x9bx\xc3)"},
        {std::string(20000, 'x'), std::string(20000, 'x')},
    };
    for (const auto& [message, expected] : rows) {
        std::ofstream(DIRECTORY / "rule.log", std::ios::app) << "torn";
        rule_log("%s %d\n", message.c_str(), 7);
        EXPECT_EQ(last_log_message(), expected + " 7");
    }
    const std::string megabyte(1024UL * 1024UL, 'x');
    for (int i = 0; i < 8; ++i) {
        EXPECT_FALSE(fs::exists(DIRECTORY / "rule.log.1"));
        rule_log("%s", megabyte.c_str());
    }
    rule_log("first of the next log");
    EXPECT_EQ(last_log_message(), "first of the next log");
    EXPECT_LT(fs::file_size(DIRECTORY / "rule.log"), 100);
    EXPECT_GT(fs::file_size(DIRECTORY / "rule.log.1"), 8 * megabyte.size());
}

std::string node(int type, const std::string& guid, const std::string& content,
                 const std::string& name = "\\\"ä")
{
    return R"({"type":)" + std::to_string(type) + R"(,"GUID":")" + guid + R"(","name":")" + name +
           R"(","content":")" + base64(content) + R"("})";
}

std::string nodes(const std::string& list)
{
    return R"({"err_code":0,"content":[)" + list + "]}";
}

TEST(HostPlatformTest, TheRuleListHasEachRuleWithItsProfiles)
{
    service_reply = nodes(
        node(0, "R1",
             "<rule><a>1</a><a>2</a><EventProfiles><evtpf0>E</evtpf0><evtpf1>A</evtpf1>"
             "<x>E</x></EventProfiles><ActionProfiles><actpf0>A</actpf0></ActionProfiles>"
             "</rule>") +
        "," + node(3, "E", "<event_profile><EventID>7</EventID></event_profile>") + "," +
        node(4, "A", "<b/>") + "," + node(3, "E", "<second/>") + "," + node(0, "R2", "<rule>"));
    json_object* list = nullptr;
    ASSERT_EQ(get_all_rules(&list), 0);
    const std::string start = R"("name":"\"ä","content":{)";
    EXPECT_EQ(json_object_to_json_string_ext(list, JSON_C_TO_STRING_PLAIN),
              R"({"ruleList":[{"GUID":"R1",)" + start +
                  R"("rule":{"a":"1","EventProfiles":{"evtpf0":"E","evtpf1":"A","x":"E"},)"
                  R"("ActionProfiles":{"actpf0":"A"}}},"event":[{"GUID":"E",)" +
                  start + R"("event_profile":{"EventID":"7"}}}],"action":[{"GUID":"A",)" + start +
                  R"("b":""}}]},{"GUID":"R2","name":"\"ä","event":[],"action":[]}]})");
    json_object_put(list);
    EXPECT_EQ(last_log_message(), "Rule list: content of [R2]: line 1: no element found");
}

TEST(HostPlatformTest, ABadReplyGivesNoRuleList)
{
    const auto elements = [](int count) { return nodes("0" + std::string(count, ',')); };
    const auto naming = [](int count) {
        std::string rule = "<r><EventProfiles>";
        for (int i = 0; i < count; ++i) {
            rule += "<evtpf>E</evtpf>";
        }
        return nodes(node(3, "E", "<e/>", std::string(1024UL * 1024UL, 'n')) + "," +
                     node(0, "R", rule + "</EventProfiles></r>"));
    };
    std::string many = "<r>";
    for (int i = 0; i < 250000; ++i) {
        many += "<a/>";
    }
    const std::tuple<std::string, int, std::string> rows[] = {
        {"", -1201, "the call failed with -1"},
        {"[]", -1202, "the reply has no err_code"},
        {R"({"err_code":0})", -1202, "the reply has no content"},
        {R"({"err_code":-7,"content":[]})", -1203, "the service answered with err_code -7"},
        {nodes(node(0, "\xed\xa0\x80", "<r/>")), -1202, "a GUID is not UTF-8"},
        {nodes(""), 0, ""},
        {elements(249996), -1202, "* Line 1, Column 28   Syntax error: value, object or array"},
        {elements(249998), -1202, "it has too many elements"},
        {nodes(node(0, "R", many + "</r>")), -1204, "the rules have too many elements"},
        {naming(63), 0, ""},
        {naming(64), -1204, "the rules name too many profiles"},
    };
    for (const auto& [reply, result, reason] : rows) {
        service_reply = reply;
        json_object* list = nullptr;
        EXPECT_EQ(get_all_rules(&list), result) << reason;
        EXPECT_TRUE(result == 0 || last_log_message().rfind("Rule list: " + reason, 0) == 0)
            << last_log_message();
        json_object_put(list);
    }
}

TEST(HostPlatformTest, CameraListHasAChannelALine)
{
    const auto load = [](const std::string& list) {
        write_file("cameras.txt", list);
        auto array = std::make_unique<st_cmsvr_conf_array>();
        const bool loaded = get_cmsvr_conf_array(*array) == 0;
        return loaded ? std::move(array) : nullptr;
    };
    const auto cameras = load("# a list\n\n10 Yard 5\r\n \t0\n191\tRoof");
    ASSERT_NE(cameras, nullptr);
    for (int channel = 0; channel < MAX_NVR_CHANNEL_NO; ++channel) {
        const bool expected = channel == 0 || channel == 10 || channel == 191;
        EXPECT_EQ((*cameras)[channel].camera_added, expected) << channel;
    }
    EXPECT_STREQ((*cameras)[10].camera_guid, "CA3E7A000000000000000000C0DE0010");
    const std::pair<const char*, const char*> rows[] = {
        {"0\n192\n", "2: the channel is not in 0 to 191"},
        {"-1", "1: the channel is not in 0 to 191"},
        {"99999999999", "1: the channel is not in 0 to 191"},
        {"7\n\n7\n", "3: channel 7 is there twice"},
        {"Roof 191", "1: no channel number at the start of the line"},
        {"5x", "1: no channel number at the start of the line"},
    };
    for (const auto& [list, reason] : rows) {
        EXPECT_EQ(load(list), nullptr) << list;
        EXPECT_EQ(last_log_message(), std::string("Camera configuration: cameras.txt:") + reason);
    }
    auto array = std::make_unique<st_cmsvr_conf_array>();
    fs::remove(DIRECTORY / "cameras.txt");
    EXPECT_LT(get_cmsvr_conf_array(*array), 0);
    fs::create_directory(DIRECTORY / "cameras.txt");
    EXPECT_LT(get_cmsvr_conf_array(*array), 0);
}

TEST(HostPlatformTest, PathIsSplitAndSignalsIgnored)
{
    std::string path = "/rule//list/";
    std::vector<std::string> tokens;
    EXPECT_EQ(cgi_uri_token_paser(path.data(), &tokens), 0);
    EXPECT_EQ(tokens, (std::vector<std::string>{"rule", "list"}));

    register_signal_handler();
    EXPECT_EQ(std::signal(SIGPIPE, SIG_DFL), SIG_IGN);
    EXPECT_EQ(std::signal(SIGXFSZ, SIG_DFL), SIG_IGN);
}

TEST(HostPlatformTest, TheClockCountsMicroseconds)
{
    EXPECT_NEAR(static_cast<double>(current_time_stamp()), static_cast<double>(time(nullptr)) * 1e6,
                1e8);
}

}  // namespace

long rova_GET_request(const char* host, int port, const char* path, query_object* query,
                      std::string& reply, long timeout, bool, bool, int, char**)
{
    EXPECT_EQ(std::string(host) + path, "127.0.0.1/cfg/Rule");
    EXPECT_EQ(port + timeout, 10141 + 15);
    EXPECT_TRUE(query->params.empty());
    reply = service_reply;
    return reply.empty() ? -1 : 0;
}
