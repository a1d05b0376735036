#include "tests/fake_platform.h"

#include <json-c/json.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <stdexcept>

#include "platform/camera_config.h"
#include "platform/cgi_input.h"
#include "platform/cgi_support.h"
#include "platform/config_client.h"
#include "platform/device_utility.h"
#include "platform/rule_library.h"
#include "platform/rule_log.h"

struct tagINPUT {
    st_cgi_parameter found;
};

namespace
{

Json::Value& answers(const char* word)
{
    return fake_platform().answers[word];
}

void record(const std::string& call)
{
    errno = ENOMEM;  // a call may leave it so
    std::vector<std::string>& calls = fake_platform().calls;
    calls.push_back(call);
    if (answers("throwing_at") == static_cast<int>(calls.size()) - 1) {
        throw std::runtime_error(call);
    }
}

// `arguments` are those that are the same in every call.
template <typename... Arguments>
long exchange(const std::string& call, const Json::Value& answered, std::string& reply,
              Arguments... arguments)
{
    std::ostringstream text;
    text << call << " with";
    ((text << ' ' << arguments), ...);
    record(text.str());
    reply += answered[1].asString();
    return answered[0].asInt64();
}

// json-c prints less when its buffer cannot grow, and only errno shows it.
int print_short(json_object*, printbuf* text, int, int)
{
    printbuf_strappend(text, "{}");
    errno = answers("errno").asInt();
    return 0;
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

AllocationCount& allocation_count()
{
    static AllocationCount allocations = {};
    return allocations;
}

Json::Value answer(Json::Int64 result, const std::string& reply)
{
    Json::Value value;
    value.append(result);
    value.append(reply);
    return value;
}

FakePlatform usual_platform()
{
    FakePlatform fake;
    fake.answers["func"] = "addRule";
    fake.answers["schedules"] = answer(0, R"({"err_code": 0, "content": [
        {"name": "Night", "GUID": "AAAA"}, {"name": "_ALL_DAY_", "GUID": "BBBB"}]})");
    fake.answers["rules"] = answer(0, R"({"ruleList": []})");
    fake.answers["multicall"] = answer(0, R"({"err_code": 0, "err_str": ""})");
    return fake;
}

void register_signal_handler()
{
    record("signals");
}

tagINPUT* CGI_Get_Input_URL()
{
    record("input");
    // Not owned by the caller: without the camera table nothing is released.
    static tagINPUT input;
    return fake_platform().answers.isMember("input") ? nullptr : &input;
}

st_cgi_parameter* _CGI_Find_Parameter(tagINPUT* input, const char* name, int reserved)
{
    record("parameter " + std::string(name) + " " + std::to_string(reserved));
    if (answers(name).isNull()) {
        return nullptr;
    }
    input->found = {name, answers(name).asCString()};
    return &input->found;
}

// Called after the response and before the token list is released.
void CGI_Free_Input(tagINPUT* input)
{
    const std::vector<std::string>* const tokens = fake_platform().tokens;
    record((input == nullptr ? "free null after " : "free input after ") +
           std::to_string(std::ftell(stdout)) + " bytes" +
           (tokens == nullptr ? "" : ", before " + tokens->front()));
}

int cgi_uri_token_paser(char* path, std::vector<std::string>* tokens)
{
    record("tokens " + std::string(path));
    tokens->emplace_back(path);
    fake_platform().tokens = tokens;
    return answers("tokenizer").asInt();
}

int cgi_check_user_authentication_v3(tagINPUT*, t_vistra_auth_info*, unsigned int what)
{
    record("authentication " + std::to_string(what));
    return answers("authentication").asInt();
}

int get_cmsvr_conf_array(st_cmsvr_conf_array& array)
{
    record("camera table");
    std::memset(&array, 0, sizeof array);
    for (const int channel : {1, 3, 10, 191}) {
        array[channel].camera_added = 1;
        std::snprintf(array[channel].camera_guid, sizeof array[channel].camera_guid, "CAFE%028d",
                      channel);
    }
    for (const Json::Value& camera : answers("camera")) {
        st_cmsvr_conf_element& element = array[camera[0].asInt()];
        element = {static_cast<unsigned char>(camera[1].asUInt()), {}, {}};
        std::memcpy(element.camera_guid, camera[2].asCString(), camera[2].asString().size());
    }
    return answers("table").asInt();
}

int get_all_rules(json_object** out)
{
    record("rules");
    const int result = answers("rules")[0].asInt();
    if (result == 0) {
        allocation_count().is_on = false;  // json-c's parser does not survive a lack of memory
        json_tokener* const tokener = json_tokener_new_ex(4000);
        json_tokener_set_flags(tokener, JSON_TOKENER_STRICT);
        *out = json_tokener_parse_ex(tokener, answers("rules")[1].asCString(), -1);
        json_tokener_free(tokener);
        if (!answers("errno").isNull()) {
            json_object_set_serializer(*out, print_short, nullptr, nullptr);
        }
        allocation_count().is_on = true;
    }
    return result;
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
                      std::string& reply, long timeout, bool first, bool second, int third,
                      char** fourth)
{
    return exchange("GET " + with_query(path, *query), answers("schedules"), reply, host, port,
                    timeout, first, second, third, fourth);
}

long rova_POST_request(const char* host, int port, const char* path, std::string body,
                       std::string& reply, long timeout, bool first, bool second, int third,
                       char** fourth)
{
    return exchange("POST " + std::string(path) + " " + body, answers("multicall"), reply, host,
                    port, timeout, first, second, third, fourth);
}

long rova_DELETE_request(const char* host, int port, const char* path, query_object* query,
                         std::string& reply, long timeout, bool first, bool second, int third,
                         char** fourth)
{
    const Json::Value scripted = answers("deletion")[fake_platform().deletions++];
    return exchange("DELETE " + with_query(path, *query),
                    scripted.isNull() ? answer(0, R"({"err_code": 0})") : scripted, reply, host,
                    port, timeout, first, second, third, fourth);
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

// Each call is one later.
int64_t current_time_stamp()
{
    const int64_t now = answers("clock").asInt64();
    answers("clock") = now + 1;
    return now;
}
