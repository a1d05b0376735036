// The rule endpoint of the recorder: one process serves one HTTP request.
#include "platform/camera_config.h"
#include "platform/cgi_input.h"
#include "platform/cgi_support.h"
#include "rule_operation/config_access/camera_table.h"
#include "rule_operation/front_end/cgi_request.h"
#include "rule_operation/front_end/method_handlers.h"
#include "rule_operation/front_end/response.h"
#include "rule_operation/shared/diagnostics.h"

namespace
{

// Releases the handle on the request's parameters, null included.
struct InputRelease {
    tagINPUT* input;
    ~InputRelease() { CGI_Free_Input(input); }
};

bool is_authorised(tagINPUT* input)
{
    constexpr unsigned int RULE_PERMISSION = 11;
    t_vistra_auth_info info{};
    return input != nullptr && cgi_check_user_authentication_v3(input, &info, RULE_PERMISSION) == 0;
}

}  // namespace

int main()
{
    bool responded = false;
    try {
        register_signal_handler();
        tagINPUT* const input = CGI_Get_Input_URL();
        if (const int r = get_cmsvr_conf_array(camera_info_array); r != 0) {
            RULE_LOG("Error get_cmsvr_conf_array fail ret=%d", r);
            return r;
        }
        const InputRelease release_at_end{input};
        CgiRequest request = read_cgi_request();
        int status = 0;
        std::vector<std::string> tokens;
        if (request.path_info != nullptr) {
            RULE_LOG("PathInfo = %s", request.path_info);
            status = cgi_uri_token_paser(request.path_info, &tokens);
        }
        const Response response = is_authorised(input) ? dispatch(request, tokens, input, status)
                                                       : response::not_authorised();
        responded = true;
        response::write(response);
        return status;
    } catch (...) {
        if (!responded) {
            response::write_internal_error();
        }
        return response::INTERNAL_ERROR;
    }
}
