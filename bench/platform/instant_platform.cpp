#include <json-c/json_object.h>

#include "bench/rule_list.h"
#include "platform/camera_config.h"
#include "platform/cgi_input.h"
#include "platform/cgi_support.h"
#include "platform/config_client.h"
#include "platform/device_utility.h"
#include "platform/rule_library.h"
#include "platform/rule_log.h"

struct tagINPUT {
    st_cgi_parameter func;
};

namespace
{

tagINPUT parameters = {{"func", "addRule"}};

}  // namespace

void register_signal_handler() {}

tagINPUT* CGI_Get_Input_URL()
{
    return &parameters;
}

st_cgi_parameter* _CGI_Find_Parameter(tagINPUT* input, const char* /*name*/, int /*reserved*/)
{
    return &input->func;
}

void CGI_Free_Input(tagINPUT* /*handle*/) {}

int cgi_uri_token_paser(char* /*path*/, std::vector<std::string>* /*tokens*/)
{
    return 0;
}

int cgi_check_user_authentication_v3(tagINPUT* /*handle*/, t_vistra_auth_info* /*info*/,
                                     unsigned int /*what*/)
{
    return 0;
}

// Cameras on the first eleven channels only, because filling a whole table would add to the cost.
int get_cmsvr_conf_array(st_cmsvr_conf_array& array)
{
    for (int channel = 0; channel <= 10; ++channel) {
        array[channel].camera_added = 1;
        std::string("CA3E7A000000000000000000C0DE0003").copy(array[channel].camera_guid, 32);
    }
    return 0;
}

int get_all_rules(json_object** out)
{
    *out = make_rule_list(rule_count()).release();
    return 0;
}

void rule_log(const char* /*format*/, ...) {}

long rova_GET_request(const char* /*host*/, int /*port*/, const char* /*path*/,
                      query_object* /*query*/, std::string& reply, long /*timeout*/, bool, bool,
                      int, char**)
{
    reply = R"({"err_code": 0, "content": [{"name": "_ALL_DAY_", "GUID": "5C4ED01E"}]})";
    return 0;
}

long rova_POST_request(const char* /*host*/, int /*port*/, const char* /*path*/,
                       std::string /*body*/, std::string& reply, long /*timeout*/, bool, bool, int,
                       char**)
{
    reply = R"({"err_code": 0, "err_str": ""})";
    return 0;
}

long rova_DELETE_request(const char* /*host*/, int /*port*/, const char* /*path*/,
                         query_object* /*query*/, std::string& reply, long /*timeout*/, bool, bool,
                         int, char**)
{
    reply = "{}";
    return 0;
}

int b64_encode_v2(const unsigned char* /*data*/, size_t length, std::string& encoded)
{
    encoded.append((length + 2) / 3 * 4, 'A');
    return 0;
}

int64_t current_time_stamp()
{
    return 42;
}
