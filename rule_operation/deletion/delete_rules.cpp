#include "rule_operation/deletion/delete_rules.h"

#include <optional>

#include "platform/cgi_input.h"
#include "platform/config_client.h"
#include "rule_operation/config_access/config_service.h"
#include "rule_operation/shared/diagnostics.h"
#include "rule_operation/shared/json_reader.h"

namespace
{

// The service's error code for a GUID that names no rule: the bit pattern 0x94062A2A.
constexpr int NO_SUCH_RULE = -1811535318;

int read_guids(std::string& err, const char* data, std::vector<std::string>& guids)
{
    const std::optional<TJsonDocument> document = TJsonDocument::parse(data);
    if (!document) {
        RULE_LOG("Error input Json format error, data=[%s]", data);
        err = "Error input Json format error";
        return -301;
    }
    const TJsonValue list = document->root().member("ruleGUID");
    if (list.is_absent()) {
        return REFUSE(err, -302, "Error input Json no ruleGUID object");
    }
    if (!list.is_array()) {
        return REFUSE(err, -303, "Error input Json ruleGUID object not array");
    }
    for (unsigned int i = 0; i < list.size(); ++i) {
        const std::optional<std::string> guid = list.element(i).text();
        if (!guid) {
            return REFUSE(err, -303, "<%d> Error input Json ruleGUID object not string", i);
        }
        guids.push_back(*guid);
    }
    return 0;
}

// Deletes the rule that the query names; `position` is its index in the client's list.
int delete_rule(std::string& err, unsigned int position, query_object& query)
{
    std::string text;
    const long r = delete_from_service("/cfg/Rule", query, text);
    if (r != 0) {
        return REFUSE(err, -304, "<%d> Error ROVA Delete /cfg/Rule fail ret=%d", position,
                      static_cast<int>(r));
    }
    RULE_LOG("<%d> Delete rule reply=[%s]", position, text.c_str());
    const std::optional<TServiceReply> reply = read_service_reply(text);
    if (!reply) {
        return REFUSE(err, -305, "<%d> Error delete rule reply Json format error", position);
    }
    if (reply->err_code == NO_SUCH_RULE) {
        RULE_LOG("<%d> Warning delete rule, get no such rule reply, will skip", position);
        return 0;
    }
    if (reply->err_code != 0) {
        RULE_LOG("<%d> Error delete rule reply err_code=%d, err_str=[%s]", position,
                 reply->err_code, reply->err_str.c_str());
        return -306;
    }
    return 0;
}

}  // namespace

int delete_method_fun(std::vector<std::string>* /*tokens*/, std::string& err, char* data,
                      tagINPUT* input)
{
    const st_cgi_parameter* const guid = _CGI_Find_Parameter(input, "GUID", 0);
    if (guid != nullptr) {
        RULE_LOG("Get uri input GUID=[%s]", guid->value);
    }
    if (data == nullptr) {
        return REFUSE(err, -300, "input data is NULL");
    }
    RULE_LOG("delete method input content data=[%s]", data);

    std::vector<std::string> guids;
    if (const int r = read_guids(err, data, guids); r != 0) {
        return r;
    }
    query_object query;
    for (unsigned int i = 0; i < guids.size(); ++i) {
        RULE_LOG("<%d> Delete GUID list [%s]", i, guids[i].c_str());
        query.params["GUID"] = guids[i];
        if (const int r = delete_rule(err, i, query); r != 0) {
            return r;
        }
    }
    return 0;
}
