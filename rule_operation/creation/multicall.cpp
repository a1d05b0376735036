#include "rule_operation/creation/multicall.h"

#include <new>

#include "rule_operation/config_access/config_service.h"
#include "rule_operation/shared/diagnostics.h"
#include "rule_operation/shared/json_object.h"

namespace
{

// The text as a JSON string, with its quotation marks.
std::string quoted(const std::string& text)
{
    const TJsonObject string(
        json_object_new_string_len(text.data(), static_cast<int>(text.size())));
    if (string == nullptr) {
        throw std::bad_alloc();
    }
    return std::string(json_text(string, JSON_C_TO_STRING_NOSLASHESCAPE));
}

std::string compose_multicall(const std::vector<std::string>& calls)
{
    std::string document = "{\"calls\": [";
    const char* separator = "";
    for (const std::string& call : calls) {
        document += separator + call;
        separator = ",";
    }
    return document + "]}";
}

}  // namespace

std::string compose_call(const std::string& name, const std::string& GUID, int type,
                         const std::string& content, std::optional<int> eventID)
{
    std::string call = R"({"object": "Rule","method": "POST","body": {"ruleNode": {"name": )";
    call += quoted(name);
    call += R"(,"isGroup": false,"description": "","GUID": ")" + GUID;
    call += R"(","type": )" + std::to_string(type);
    call += R"(,"active": true,"content": ")" + content + "\"";
    if (eventID) {
        call += R"(,"EventID": )" + std::to_string(*eventID);
    }
    return call + "}}}";
}

int submit_multicall(std::string& err, int chIdx, const std::vector<std::string>& calls)
{
    const std::string document = compose_multicall(calls);
    RULE_LOG("ch-%d multicallData=[%s]", chIdx, document.c_str());

    std::string text;
    const int r = static_cast<int>(post_to_service("/cfg/multicalls", document, text));
    if (r != 0) {
        RULE_LOG(
            "Error ROVA POST request /cfg/multicalls add event Rule fail ret=%d, "
            "multicallData=[%s]",
            r, document.c_str());
        err = "Error ROVA POST request /cfg/multicalls add event Rule fail";
        return r;
    }
    RULE_LOG("ch-%d add rule multicall reply=[%s]", chIdx, text.c_str());

    const std::optional<TServiceReply> reply = read_service_reply(text);
    if (!reply) {
        return REFUSE(err, -220, "Error add rule multicall reply Json format error");
    }
    if (reply->err_code != 0) {
        RULE_LOG("Error add rule multicall reply err_code=%d, err_str=[%s] multicallData=[%s]",
                 reply->err_code, reply->err_str.c_str(), document.c_str());
        err = "Error add rule multicall reply fail";
        return -221;
    }
    return 0;
}
