// The platform of the development machine: what it makes of a request and of its files.
#include <crypt.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

#include "platform/camera_config.h"
#include "platform/cgi_input.h"
#include "platform/cgi_support.h"
#include "platform/device_utility.h"
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

std::string last_log_line()
{
    std::ifstream file(DIRECTORY / "rule.log");
    std::string log{std::istreambuf_iterator<char>(file), {}};
    log.pop_back();
    return log.substr(log.rfind('\n') + 1);
}

TEST(HostPlatformTest, AParameterWithAZeroByteIsLeftOut)
{
    for (const char* const query : {"func=addRule%00x", "func%00=addRule"}) {
        setenv("QUERY_STRING", query, 1);
        tagINPUT* const input = CGI_Get_Input_URL();
        EXPECT_EQ(_CGI_Find_Parameter(input, "func", 0), nullptr) << query;
        CGI_Free_Input(input);
    }
    CGI_Free_Input(nullptr);
}

TEST(HostPlatformTest, OnlyKnownCredentialsPass)
{
    const auto hash = [](const char* setting) { return std::string(crypt("secret", setting)); };
    const auto header = [](const std::string& text) {
        std::string encoded;
        b64_encode_v2(reinterpret_cast<const unsigned char*>(text.data()), text.size(), encoded);
        return "Basic " + encoded;
    };
    const std::string sha256 = hash("$5$rounds=1000$salt$");
    const std::string users = "# users\n\nann:" + sha256 + "\nbob:" + hash("$6$rounds=1000$salt$") +
                              "\noff:*\n:" + sha256 + "\nnohash\n";
    const std::pair<std::string, bool> rows[] = {
        {header("ann:secret"), true},
        {"bASIC" + header("bob:secret").substr(5), true},
        {header("ann:Secret"), false},
        {header("ann:"), false},
        {header("off:*"), false},
        {header("off:secret"), false},
        {header("zoe:secret"), false},
        {header("ann"), false},
        {header("ann:secret\0x"s), false},
        {header(":secret"), false},
        {"Basic !!!", false},
        {"Basic", false},
        {"Bearer " + header("ann:secret").substr(6), false},
        {"", false},
    };
    const auto passes = [](const std::string& field) {
        setenv("HTTP_AUTHORIZATION", field.c_str(), 1);
        t_vistra_auth_info info{};
        const bool passed = cgi_check_user_authentication_v3(nullptr, &info, 11) == 0;
        EXPECT_EQ(info.user_name[0] != '\0', passed);
        return passed;
    };
    for (const auto& [field, expected] : rows) {
        write_file("users", users);
        EXPECT_EQ(passes(field), expected) << field;
        write_file("users", "off:*\n");
        EXPECT_FALSE(passes(field)) << field;
    }
    write_file("users", "");
    EXPECT_FALSE(passes(rows[0].first));
    fs::remove(DIRECTORY / "users");
    EXPECT_FALSE(passes(rows[0].first));
    unsetenv("HTTP_AUTHORIZATION");
    t_vistra_auth_info info{};
    EXPECT_NE(cgi_check_user_authentication_v3(nullptr, &info, 11), 0);
}

TEST(HostPlatformTest, NoMessageCanForgeALogLine)
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
        {"0\n192\n", "cameras.txt:2: the channel is not in 0 to 191"},
        {"-1", "cameras.txt:1: the channel is not in 0 to 191"},
        {"99999999999", "cameras.txt:1: the channel is not in 0 to 191"},
        {"7\n\n7\n", "cameras.txt:3: channel 7 is there twice"},
        {"Roof 191", "cameras.txt:1: no channel number at the start of the line"},
        {"5x", "cameras.txt:1: no channel number at the start of the line"},
    };
    for (const auto& [list, reason] : rows) {
        EXPECT_EQ(load(list), nullptr) << list;
        EXPECT_NE(last_log_line().find(reason), std::string::npos) << last_log_line();
    }
    auto array = std::make_unique<st_cmsvr_conf_array>();
    fs::remove(DIRECTORY / "cameras.txt");
    EXPECT_LT(get_cmsvr_conf_array(*array), 0);
    fs::create_directory(DIRECTORY / "cameras.txt");
    EXPECT_LT(get_cmsvr_conf_array(*array), 0);
}

TEST(HostPlatformTest, PathIsSplitAndSigpipeIgnored)
{
    std::string path = "/rule//list/";
    std::vector<std::string> tokens;
    EXPECT_EQ(cgi_uri_token_paser(path.data(), &tokens), 0);
    EXPECT_EQ(tokens, (std::vector<std::string>{"rule", "list"}));
    EXPECT_EQ(path, "/rule//list/");

    register_signal_handler();
    EXPECT_EQ(std::signal(SIGPIPE, SIG_DFL), SIG_IGN);
}

}  // namespace
