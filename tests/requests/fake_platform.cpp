#include "tests/requests/fake_platform.h"

#include <json-c/json.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "platform/camera_config.h"
#include "platform/cgi_input.h"
#include "platform/cgi_support.h"
#include "platform/config_client.h"
#include "platform/device_utility.h"
#include "platform/rule_library.h"
#include "platform/rule_log.h"
#include "tests/requests/failing_allocation.h"

// The program's own `main`, under this name in the test programs.
int rule_operation_main();

// Holds the URI parameter that was found last.
struct tagINPUT : st_cgi_parameter {
};

namespace
{

// The allocations of the JSON libraries while the program runs.
struct AllocationCount {
    bool is_on;
    long count;
    long failing;  // the number of the one that fails, or 0
} allocations;

// The program's standard output, up to the last flush.
char* output = nullptr;
size_t output_length = 0;

Json::Value& answers(const char* word)
{
    return fake_platform().answers[word];
}

// Records a call as its parts, separated by blanks. Throws or terminates if the request says so.
template <typename... Parts>
void record(const char* name, Parts... parts)
{
    std::ostringstream call;
    call << name;
    ((call << ' ' << parts), ...);
    errno = ENOMEM;  // a library may leave any value there
    fake_platform().calls.push_back(call.str());
    if (answers("throwing_at").asUInt() == fake_platform().calls.size()) {
        throw std::runtime_error(call.str());
    }
    if (answers("terminating_at").asUInt() == fake_platform().calls.size()) {
        std::terminate();
    }
}

long reply_with(const Json::Value& answered, std::string& reply)
{
    reply += answered[1].asString();
    return answered[0].asInt64();
}

void set_variable(const char* name, const Json::Value& value)
{
    value.isNull() ? unsetenv(name) : setenv(name, value.asCString(), 1);
}

void reset_platform(const Json::Value& request)
{
    fake_platform() = FakePlatform();
    answers("func") = "addRule";
    answers("schedules") =
        answer(0, R"({"err_code": 0, "content": [{"name": "_ALL_DAY_", "GUID": "BBBB"}]})");
    answers("rules") = answer(0, R"({"ruleList": []})");
    answers("multicall") = answer(0, R"({"err_code": 0, "err_str": ""})");
    for (const std::string& word : request.getMemberNames()) {
        answers(word.c_str()) = request[word];
    }
}

}  // namespace

FakePlatform& fake_platform()
{
    static FakePlatform platform;
    return platform;
}

Json::Value answer(Json::Int64 result, const std::string& reply)
{
    Json::Value value;
    value.append(result);
    value.append(reply);
    return value;
}

Outcome run_request(const Json::Value& request)
{
    reset_platform(request);
    std::string body = request["body"].asString();
    const Json::Value length = body.empty() ? Json::Value() : std::to_string(body.size());
    set_variable("REQUEST_METHOD", request["method"]);
    set_variable("PATH_INFO", request["path"]);
    set_variable("CONTENT_LENGTH", request.get("length", length));

    FILE* const real_input = std::exchange(stdin, fmemopen(body.data(), body.size(), "r"));
    FILE* const real_output = std::exchange(stdout, open_memstream(&output, &output_length));
    allocations = {true, 0, request["allocation"].asInt64()};
    const int status = rule_operation_main();
    allocations.is_on = false;
    std::fclose(std::exchange(stdin, real_input));
    std::fclose(std::exchange(stdout, real_output));
    Outcome outcome = {std::string(output, output_length), status, allocations.count};
    // NOLINTNEXTLINE(cppcoreguidelines-no-malloc,cppcoreguidelines-owning-memory): open_memstream's
    free(std::exchange(output, nullptr));
    output_length = 0;
    return outcome;
}

// Ends the process without an outcome. The response so far goes to the real standard output.
extern "C" void __wrap__Exit(int status)
{
    static_cast<void>(!write(STDOUT_FILENO, output, output_length));
    _exit(status);
}

bool allocation_fails()
{
    errno = ENOMEM;  // a successful allocation may leave this value
    return allocations.is_on && ++allocations.count == allocations.failing;
}

void register_signal_handler()
{
    record("signals");
}

tagINPUT* CGI_Get_Input_URL()
{
    record("input");
    // Static, because the program does not release it when there is no camera table.
    static tagINPUT input;
    return fake_platform().answers.isMember("input") ? nullptr : &input;
}

st_cgi_parameter* _CGI_Find_Parameter(tagINPUT* input, const char* name, int reserved)
{
    record("parameter", name, reserved);
    if (answers(name).isNull()) {
        return nullptr;
    }
    *input = {{name, answers(name).asCString()}};
    return input;
}

void CGI_Free_Input(tagINPUT* input)
{
    record("free", input == nullptr ? "null" : "input", "after", std::ftell(stdout), "bytes");
}

int cgi_uri_token_paser(char* path, std::vector<std::string>*)
{
    record("tokens", path);
    return answers("tokenizer").asInt();
}

int cgi_check_user_authentication_v3(tagINPUT*, t_vistra_auth_info*, unsigned int what)
{
    record("authentication", what);
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
        allocations.is_on = false;  // json-c's parser does not survive a failed allocation
        json_tokener* const tokener = json_tokener_new_ex(4000);
        json_tokener_set_flags(tokener, JSON_TOKENER_STRICT);
        *out = json_tokener_parse_ex(tokener, answers("rules")[1].asCString(), -1);
        json_tokener_free(tokener);
        allocations.is_on = true;
    }
    return result;
}

void rule_log(const char* format, ...)
{
    char text[1 << 16];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    fake_platform().log.emplace_back(text);
}

long rova_GET_request(const char* host, int port, const char* path, query_object* query,
                      std::string& reply, long timeout, bool first, bool second, int third,
                      char** fourth)
{
    record("GET", host, port, timeout, first, second, third, fourth, path, query->params.size());
    return reply_with(answers("schedules"), reply);
}

long rova_POST_request(const char* host, int port, const char* path, std::string body,
                       std::string& reply, long timeout, bool first, bool second, int third,
                       char** fourth)
{
    record("POST", host, port, timeout, first, second, third, fourth, path, body);
    return reply_with(answers("multicall"), reply);
}

long rova_DELETE_request(const char* host, int port, const char* path, query_object* query,
                         std::string& reply, long timeout, bool first, bool second, int third,
                         char** fourth)
{
    record("DELETE", host, port, timeout, first, second, third, fourth, path, query->params.size(),
           query->params["GUID"]);
    Json::Value answered = answer(0, R"({"err_code": 0})");
    answers("deletion").removeIndex(0, &answered);
    return reply_with(answered, reply);
}

// Leaves the documents readable instead of encoding them, so that tests can compare them.
int b64_encode_v2(const unsigned char* data, size_t length, std::string& encoded)
{
    encoded += "b64(" + std::string(reinterpret_cast<const char*>(data), length) + ")";
    return 0;
}

extern "C" size_t __real_fread(void* data, size_t size, size_t count, FILE* stream);
extern "C" size_t __wrap_fread(void* data, size_t size, size_t count, FILE* stream)
{
    constexpr size_t LONGEST_PIECE = 100;
    record("read", size, count);
    return __real_fread(data, size, std::min(count, LONGEST_PIECE), stream);
}

extern "C" int usleep(unsigned int useconds)
{
    fake_platform().pauses += useconds;
    return 0;
}

// The clock advances by one with each call.
int64_t current_time_stamp()
{
    const int64_t now = answers("clock").asInt64();
    answers("clock") = now + 1;
    return now;
}
