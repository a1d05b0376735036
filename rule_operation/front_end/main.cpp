// The rule endpoint of the recorder: one process serves one HTTP request.
#include <optional>
#include <string>
#include <vector>

#include "platform/camera_config.h"
#include "platform/cgi_input.h"
#include "platform/cgi_support.h"
#include "rule_operation/config_access/camera_table.h"
#include "rule_operation/front_end/cgi_request.h"
#include "rule_operation/front_end/dispatch.h"
#include "rule_operation/front_end/process.h"
#include "rule_operation/front_end/response.h"
#include "rule_operation/shared/diagnostics.h"

namespace
{

// Releases the handle on the request's parameters, null included, once it is set.
struct TInputRelease {
    std::optional<tagINPUT*> input;
    ~TInputRelease()
    {
        if (input) {
            CGI_Free_Input(*input);
        }
    }
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
    set_up_process();
    // The order of release, after the response: the handle first, the body last.
    TCgiRequest request;
    std::vector<std::string> tokens;
    TInputRelease release_at_end;
    try {
        register_signal_handler();
        tagINPUT* const input = CGI_Get_Input_URL();
        if (const int r = get_cmsvr_conf_array(camera_info_array); r != 0) {
            RULE_LOG("Error get_cmsvr_conf_array fail ret=%d", r);
            return r;
        }
        release_at_end.input = input;
        request = read_cgi_request();
        int tokenizer_result = 0;
        if (request.path_info != nullptr) {
            RULE_LOG("PathInfo = %s", request.path_info);
            tokenizer_result = cgi_uri_token_paser(request.path_info, &tokens);
        }
        const TResponse response = is_authorised(input) ? dispatch(request, tokens, input)
                                                        : not_authorised_response(tokenizer_result);
        write_response(response);
        return response.exit_status;
    } catch (...) {
        // No response has begun: nothing in the block above throws after that.
        write_internal_error();
        return INTERNAL_ERROR;
    }
}
