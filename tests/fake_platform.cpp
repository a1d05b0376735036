#include "tests/fake_platform.h"

#include <json-c/json.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/camera_config.h"
#include "platform/cgi_input.h"
#include "platform/cgi_support.h"
#include "platform/config_client.h"
#include "platform/device_utility.h"
#include "platform/rule_library.h"
#include "platform/rule_log.h"

using std::string_literals::operator""s;

struct tagINPUT {
    std::vector<st_cgi_parameter> parameters;
};

namespace
{

void record(const std::string& call)
{
    fake_platform().calls.push_back(call);
    fake_platform().before_call(call);
}

long exchange(const std::string& call, const char* host, int port, std::string& reply, long timeout,
              const Answer& answer)
{
    record(call + " at " + host + ":" + std::to_string(port) + " in " + std::to_string(timeout) +
           " s");
    reply += answer.reply;
    return answer.result;
}

std::string with_query(const char* path, const query_object& query)
{
    std::string text = path;
    for (const auto& [name, value] : query.params) {
        text.append("?").append(name).append("=").append(value);
    }
    return text + query.extra;
}

}  // namespace

FakePlatform& fake_platform()
{
    static FakePlatform platform = usual_platform();
    return platform;
}

FakePlatform usual_platform()
{
    FakePlatform fake;
    fake.parameters = {{"func", "addRule"}};
    for (const int channel : {3, 10, 191}) {
        const std::string number = std::to_string(channel);
        fake.cameras[channel] = {
            1, "CAFE0000000000000000000000000000"s.replace(32 - number.size(), 4, number)};
    }
    fake.schedules.reply = R"({"err_code": 0, "content": [
        {"name": "Night", "GUID": "AAAA"}, {"name": "_ALL_DAY_", "GUID": "BBBB"}]})";
    fake.rules.reply = R"({"ruleList": []})";
    return fake;
}

void register_signal_handler()
{
    record("signals");
}

tagINPUT* CGI_Get_Input_URL()
{
    record("input");
    if (!fake_platform().has_input) {
        return nullptr;
    }
    // Not the caller's to lose: without the camera table nothing is released.
    static tagINPUT input;
    input.parameters.clear();
    for (const auto& [name, value] : fake_platform().parameters) {
        input.parameters.push_back({name.c_str(), value.c_str()});
    }
    return &input;
}

st_cgi_parameter* _CGI_Find_Parameter(tagINPUT* input, const char* name, int reserved)
{
    record("parameter " + std::string(name) + " " + std::to_string(reserved));
    for (st_cgi_parameter& parameter : input->parameters) {
        if (std::strcmp(parameter.name, name) == 0) {
            return &parameter;
        }
    }
    return nullptr;
}

// The response comes before it, and the token list goes after it.
void CGI_Free_Input(tagINPUT* input)
{
    const std::string handle = input == nullptr ? "null" : "input";
    const std::vector<std::string>* const tokens = fake_platform().tokens;
    const bool in_order =
        std::ftell(stdout) > 0 && (tokens == nullptr || tokens->front() == getenv("PATH_INFO"));
    record((in_order ? "free " : "free out of order: ") + handle);
}

int cgi_uri_token_paser(char* path, std::vector<std::string>* tokens)
{
    record("tokens " + std::string(path));
    tokens->emplace_back(path);
    fake_platform().tokens = tokens;
    return fake_platform().tokenizer_result;
}

int cgi_check_user_authentication_v3(tagINPUT*, t_vistra_auth_info*, unsigned int what)
{
    record("authentication " + std::to_string(what));
    return fake_platform().authentication_result;
}

int get_cmsvr_conf_array(st_cmsvr_conf_array& array)
{
    record("camera table");
    std::memset(&array, 0, sizeof array);
    for (const auto& [channel, camera] : fake_platform().cameras) {
        array[channel].camera_added = camera.first;
        std::memcpy(array[channel].camera_guid, camera.second.data(), camera.second.size());
    }
    return fake_platform().table_result;
}

int get_all_rules(json_object** out)
{
    record("rules");
    const auto& [result, reply] = fake_platform().rules;
    if (result == 0) {
        json_tokener* const tokener = json_tokener_new_ex(4000);
        json_tokener_set_flags(tokener, JSON_TOKENER_STRICT);
        *out = json_tokener_parse_ex(tokener, reply.c_str(), -1);
        json_tokener_free(tokener);
    }
    return static_cast<int>(result);
}

void rule_log(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    char* text = nullptr;
    if (vasprintf(&text, format, arguments) >= 0) {
        fake_platform().log.emplace_back(text);
        free(text);
    }
    va_end(arguments);
}

long rova_GET_request(const char* host, int port, const char* path, query_object* query,
                      std::string& reply, long timeout, bool, bool, int, char**)
{
    return exchange("GET " + with_query(path, *query), host, port, reply, timeout,
                    fake_platform().schedules);
}

long rova_POST_request(const char* host, int port, const char* path, std::string body,
                       std::string& reply, long timeout, bool, bool, int, char**)
{
    return exchange("POST " + std::string(path) + " " + body, host, port, reply, timeout,
                    fake_platform().multicall);
}

long rova_DELETE_request(const char* host, int port, const char* path, query_object* query,
                         std::string& reply, long timeout, bool, bool, int, char**)
{
    Answer answer;
    if (!fake_platform().deletions.empty()) {
        answer = fake_platform().deletions.front();
        fake_platform().deletions.pop_front();
    }
    return exchange("DELETE " + with_query(path, *query), host, port, reply, timeout, answer);
}

// Not base64, so that the documents of a test can be read.
int b64_encode_v2(const unsigned char* data, size_t length, std::string& encoded)
{
    encoded += "b64(" + std::string(reinterpret_cast<const char*>(data), length) + ")";
    return 0;
}

extern "C" int usleep(unsigned int microseconds)
{
    fake_platform().pauses += microseconds;
    return 0;
}

int64_t current_time_stamp()
{
    return fake_platform().clock;
}
