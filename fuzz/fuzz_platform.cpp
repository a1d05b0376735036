#include "fuzz/fuzz_platform.h"

#include <json-c/json_object.h>
#include <json-c/json_tokener.h>
#include <unistd.h>

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
#include "rule_operation/front_end/response.h"

struct tagINPUT {
    st_cgi_parameter func;
};

// The pauses of the program, without the waiting.
extern "C" int usleep(useconds_t /*microseconds*/)
{
    return 0;
}

namespace
{

long answer(const char* call, const FuzzAnswer& given, std::string& reply)
{
    fuzz_platform().calls.emplace_back(call);
    reply = given.text;
    return given.result;
}

}  // namespace

FuzzAnswer read_answer(std::string_view section)
{
    if (section.empty() || section.front() != '!') {
        return {0, std::string(section)};
    }
    const int number = std::atoi(std::string(section.substr(1)).c_str());
    const bool own = number == -2 || number < response::INTERNAL_ERROR;
    return {own ? number : -1001, ""};
}

FuzzPlatform& fuzz_platform()
{
    static FuzzPlatform platform;
    return platform;
}

void register_signal_handler() {}

tagINPUT* CGI_Get_Input_URL()
{
    return new tagINPUT{{"func", fuzz_platform().func.c_str()}};
}

st_cgi_parameter* _CGI_Find_Parameter(tagINPUT* input, const char* name, int /*reserved*/)
{
    const bool given = std::strcmp(name, "func") == 0 || std::strcmp(name, "GUID") == 0;
    return given && *input->func.value != '\0' ? &input->func : nullptr;
}

void CGI_Free_Input(tagINPUT* input)
{
    delete input;
}

int cgi_uri_token_paser(char* path, std::vector<std::string>* tokens)
{
    tokens->emplace_back(path);
    return 0;
}

// Refuses a caller whose func is "stranger".
int cgi_check_user_authentication_v3(tagINPUT* input, t_vistra_auth_info*, unsigned int)
{
    return std::strcmp(input->func.value, "stranger") == 0 ? -1 : 0;
}

// Every channel but each fourth has a camera. The table outlives a run and is filled by the first.
int get_cmsvr_conf_array(st_cmsvr_conf_array& array)
{
    if (array[MAX_NVR_CHANNEL_NO - 1].camera_added != 0) {
        return 0;
    }
    for (int channel = 0; channel < MAX_NVR_CHANNEL_NO; ++channel) {
        array[channel].camera_added = channel % 4 == 0 ? 0 : 1;
        std::snprintf(array[channel].camera_guid, sizeof array[channel].camera_guid, "%028d%04d", 0,
                      channel);
    }
    return 0;
}

int get_all_rules(json_object** out)
{
    std::string text;
    const long result = answer("RULES", fuzz_platform().rules, text);
    if (result == 0) {
        json_tokener* const tokener = json_tokener_new_ex(1200);
        *out = json_tokener_parse_ex(tokener, text.data(), static_cast<int>(text.size()));
        json_tokener_free(tokener);
    }
    return static_cast<int>(result);
}

// Formats the message, so that a wrong argument is found, and drops it.
void rule_log(const char* format, ...)
{
    static char text[1 << 16];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
}

long rova_GET_request(const char*, int, const char*, query_object*, std::string& reply, long, bool,
                      bool, int, char**)
{
    return answer("GET", fuzz_platform().schedules, reply);
}

long rova_POST_request(const char*, int, const char*, std::string, std::string& reply, long, bool,
                       bool, int, char**)
{
    return answer("POST", fuzz_platform().multicall, reply);
}

long rova_DELETE_request(const char*, int, const char*, query_object*, std::string& reply, long,
                         bool, bool, int, char**)
{
    const FuzzPlatform& platform = fuzz_platform();
    return answer("DELETE", platform.deletions[platform.calls.size() % platform.deletions.size()],
                  reply);
}

int b64_encode_v2(const unsigned char* data, size_t length, std::string& encoded)
{
    encoded.append(length, 'A');
    return data == nullptr ? -1 : 0;
}

int64_t current_time_stamp()
{
    return 42;
}
