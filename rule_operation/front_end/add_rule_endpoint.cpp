#include "rule_operation/front_end/add_rule_endpoint.h"

#include <string_view>

#include "platform/cgi_input.h"
#include "rule_operation/creation/add_rules.h"
#include "rule_operation/request/event_content.h"
#include "rule_operation/request/request_document.h"
#include "rule_operation/shared/diagnostics.h"

int post_method_fun(std::vector<std::string>* /*tokens*/, std::string& err, char* data,
                    tagINPUT* input)
{
    const st_cgi_parameter* const func = _CGI_Find_Parameter(input, "func", 0);
    if (func == nullptr) {
        return REFUSE(err, -290, "post uri can not get func parameter");
    }
    if (data == nullptr) {
        return REFUSE(err, -291, "content data is NULL");
    }
    RULE_LOG("post method input content data=[%s], uri input func=[%s]", data, func->value);
    if (std::string_view(func->value) != "addRule") {
        return REFUSE(err, -292, "uri input func=[%s] not supported", func->value);
    }
    std::string timeprofileGUID;
    std::string ruleName;
    TEventContent eventInfo;
    std::string ActionName;
    int act_chIdx = -1;
    if (const int r = parsing_input_content(err, data, timeprofileGUID, ruleName, eventInfo,
                                            ActionName, act_chIdx);
        r != 0) {
        return r;
    }
    return add_rules(err, timeprofileGUID, ruleName, eventInfo, ActionName, act_chIdx);
}
