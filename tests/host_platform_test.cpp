// The platform of the development machine: what it makes of a request, its files and its service.
#include <crypt.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "platform/camera_config.h"
#include "platform/cgi_input.h"
#include "platform/cgi_support.h"
#include "platform/config_client.h"
#include "platform/device_utility.h"
#include "platform/rule_log.h"
#include "tests/scripted_server.h"

namespace
{

namespace fs = std::filesystem;
using std::string_literals::operator""s;

// The recorder's directory, the same for the whole process because its log stays open.
const fs::path& recorder_directory()
{
    static const fs::path directory = [] {
        std::string name = fs::temp_directory_path() / "host_platform_test.XXXXXX";
        setenv("RULE_RECORDER_DIR", mkdtemp(name.data()), 1);
        return fs::path(name);
    }();
    return directory;
}

void write_file(const char* name, const std::string& content)
{
    std::ofstream(recorder_directory() / name) << content;
}

std::string last_log_line()
{
    std::ifstream file(recorder_directory() / "rule.log");
    std::string line;
    for (std::string next; std::getline(file, next);) {
        line = next;
    }
    return line;
}

class HostPlatformTest : public testing::Test
{
 protected:
    void SetUp() override { recorder_directory(); }
    static void TearDownTestSuite() { fs::remove_all(recorder_directory()); }
};

TEST_F(HostPlatformTest, QueryIsDecoded)
{
    struct Row {
        const char* query;
        const char* func;  // null: no such parameter
    };
    const Row rows[] = {
        {nullptr, nullptr},
        {"", nullptr},
        {"func=addRule", "addRule"},
        {"a=b&&func=add%52ule&func=x", "addRule"},
        {"f%75nc=a+b%2B%26", "a b+&"},
        {"func", ""},
        {"func=", ""},
        {"func=a=b", "a=b"},
        {"func=%zz%4", "%zz%4"},
        {"func=addRule%00x", nullptr},
        {"func%00=addRule", nullptr},
        {"Func=addRule", nullptr},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.query == nullptr ? "none" : row.query);
        row.query == nullptr ? unsetenv("QUERY_STRING") : setenv("QUERY_STRING", row.query, 1);
        tagINPUT* const input = CGI_Get_Input_URL();
        const st_cgi_parameter* const parameter = _CGI_Find_Parameter(input, "func", 0);
        EXPECT_EQ(parameter != nullptr, row.func != nullptr);
        if (parameter != nullptr && row.func != nullptr) {
            EXPECT_STREQ(parameter->value, row.func);
        }
        CGI_Free_Input(input);
    }
    CGI_Free_Input(nullptr);
}

TEST_F(HostPlatformTest, OnlyKnownCredentialsPass)
{
    const auto hash = [](const char* setting) { return std::string(crypt("secret", setting)); };
    const std::string users = "# users\n\nann:" + hash("$5$rounds=1000$salt$") +
                              "\nbob:" + hash("$6$rounds=1000$salt$") + "\noff:*\n:x\nnohash\n";
    const auto header = [](const std::string& text) {
        std::string encoded;
        b64_encode_v2(reinterpret_cast<const unsigned char*>(text.data()), text.size(), encoded);
        return "Basic " + encoded;
    };
    struct Row {
        std::string header;
        bool passes;
    };
    const Row rows[] = {
        {header("ann:secret"), true},
        {"bASIC" + header("bob:secret").substr(5), true},
        {header("ann:Secret"), false},
        {header("ann:"), false},
        {header("off:*"), false},
        {header("off:secret"), false},
        {header("zoe:secret"), false},
        {header("ann"), false},
        {header("ann:secret\0x"s), false},
        {header(":x"), false},
        {"Basic !!!", false},
        {"Basic", false},
        {"Bearer " + header("ann:secret").substr(6), false},
        {"", false},
    };
    t_vistra_auth_info info{};
    for (const char* const file : {users.c_str(), "", "off:*\n"}) {
        write_file("users", file);
        for (const Row& row : rows) {
            setenv("HTTP_AUTHORIZATION", row.header.c_str(), 1);
            const bool passed = cgi_check_user_authentication_v3(nullptr, &info, 11) == 0;
            EXPECT_EQ(passed, row.passes && file == users.c_str()) << row.header << "\n" << file;
            EXPECT_EQ(info.user_name[0] != '\0', passed);
        }
    }
    fs::remove(recorder_directory() / "users");
    setenv("HTTP_AUTHORIZATION", rows[0].header.c_str(), 1);
    EXPECT_NE(cgi_check_user_authentication_v3(nullptr, &info, 11), 0);
    unsetenv("HTTP_AUTHORIZATION");
    EXPECT_NE(cgi_check_user_authentication_v3(nullptr, &info, 11), 0);
}

TEST_F(HostPlatformTest, NoMessageCanForgeALogLine)
{
    rule_log("%s %d\n", "a\nb\r\t\x1b\x7f\\ä", 7);
    const std::string line = last_log_line();
    const std::string tail = "] a\\nb\\r\\t\\x1b\\x7f\\\\ä 7";
    ASSERT_GT(line.size(), tail.size());
    EXPECT_EQ(line.substr(line.size() - tail.size()), tail);

    const std::string body(20000, 'x');
    rule_log("%s", body.c_str());
    EXPECT_NE(last_log_line().find("] " + body), std::string::npos);
}

TEST_F(HostPlatformTest, CameraCacheMustHaveItsSize)
{
    static st_cmsvr_conf_array array;
    std::string cache(sizeof array, '\0');
    const size_t last = 191UL * 3720;
    cache[last] = 1;
    cache.replace(last + 88, 4, "GUID");
    write_file("camera.cache", cache);
    EXPECT_EQ(get_cmsvr_conf_array(array), 0);
    EXPECT_EQ(array[191].camera_added, 1);
    EXPECT_STREQ(array[191].camera_guid, "GUID");
    for (const std::string& wrong : {std::string(), cache + "x", cache.substr(1)}) {
        write_file("camera.cache", wrong);
        EXPECT_LT(get_cmsvr_conf_array(array), 0) << wrong.size();
    }
    fs::remove(recorder_directory() / "camera.cache");
    EXPECT_LT(get_cmsvr_conf_array(array), 0);
    fs::create_directory(recorder_directory() / "camera.cache");
    EXPECT_LT(get_cmsvr_conf_array(array), 0);
}

TEST_F(HostPlatformTest, PathIsSplitAndSigpipeIgnored)
{
    std::string path = "/rule//list/";
    std::vector<std::string> tokens;
    EXPECT_EQ(cgi_uri_token_paser(path.data(), &tokens), 0);
    EXPECT_EQ(tokens, (std::vector<std::string>{"rule", "list"}));
    EXPECT_EQ(path, "/rule//list/");

    register_signal_handler();
    EXPECT_EQ(std::signal(SIGPIPE, SIG_DFL), SIG_IGN);
}

TEST_F(HostPlatformTest, ClientEncodesTheQueryAndSendsTheBody)
{
    ScriptedServer server({{"HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n{}"}});
    query_object query;
    query.params = {{"GUID", "a b&c=d/%\0ä"s}};
    std::string reply;
    EXPECT_EQ(rova_DELETE_request("127.0.0.1", server.port(), "/cfg/Rule", &query, reply, 5, false,
                                  false, 0, nullptr),
              0);
    EXPECT_EQ(reply, "{}");
    EXPECT_EQ(server.request().method_string(), "DELETE");
    EXPECT_EQ(server.request().target(), "/cfg/Rule?GUID=a%20b%26c%3Dd%2F%25%00%C3%A4");

    ScriptedServer post_server({{"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"}});
    EXPECT_EQ(rova_POST_request("127.0.0.1", post_server.port(), "/p", "the body", reply, 5, false,
                                false, 0, nullptr),
              0);
    EXPECT_EQ(reply, "");
    EXPECT_EQ(post_server.request().method_string(), "POST");
    EXPECT_EQ(post_server.request().body(), "the body");
}

}  // namespace
