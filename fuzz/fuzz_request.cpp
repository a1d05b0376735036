// Runs one request and checks what must hold for every request. Each line of an input is a word of
// tests/requests/request_cases.txt and its value.
#include <json-c/json_object.h>
#include <json-c/json_tokener.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <sstream>
#include <string>

#include "rule_operation/front_end/response.h"
#include "tests/requests/fake_platform.h"

namespace
{

const std::string HEAD_AFTER_STATUS = "\r\nContent-type: application/json\r\n\r\n";
const std::string OUT_OF_MEMORY = "Status: 400 Bad Request" + HEAD_AFTER_STATUS +
                                  R"({ "ret_code": -4, "ret_mesg": "Internal error" })" + "\n\n";

// Ends the process with a message unless `holds`.
void require(bool holds, const char* what)
{
    if (!holds) {
        std::fprintf(stderr, "This does not hold: %s\n", what);
        std::abort();
    }
}

Json::Value read_request(const std::string& input)
{
    const std::set<std::string> texts = {"method", "path", "length", "func", "GUID"};
    Json::Value request;
    std::istringstream lines(input);
    for (std::string word, value; lines >> word && std::getline(lines.ignore(), value);) {
        char* reply = nullptr;
        const int result = static_cast<int>(std::strtol(value.c_str(), &reply, 10));
        if (texts.count(word) != 0) {
            request[word] = value.c_str();  // cut at the first zero byte
        } else if (word == "body") {
            request[word] = value;
        } else if (word == "authentication") {
            request[word] = result;
        } else if (word == "schedules" || word == "rules" || word == "multicall") {
            request[word] = answer(result, reply);
        } else if (word == "deletion") {
            request[word].append(answer(result, reply));
        }
    }
    return request;
}

TJsonObject parse_json(const std::string& text)
{
    json_tokener* const tokener = json_tokener_new_ex(4100);
    json_tokener_set_flags(tokener, JSON_TOKENER_STRICT);
    // The zero byte after the text ends a bare literal.
    TJsonObject document(
        json_tokener_parse_ex(tokener, text.c_str(), static_cast<int>(text.size() + 1)));
    require(json_tokener_get_error(tokener) == json_tokener_success, "the body is JSON");
    json_tokener_free(tokener);
    return document;
}

// Checks that there is one response of the agreed form. Returns its code, or 0 for a document that
// is passed on.
int check_response(const std::string& method, const std::string& response)
{
    require(response != OUT_OF_MEMORY, "nothing escapes as an exception");
    const size_t head_end = response.find("\r\n\r\n");
    const std::string body = response.substr(head_end + 4, response.size() - head_end - 6);
    const TJsonObject document = parse_json(body);
    const bool is_read = method == "GET" || method == "PUT";
    const bool is_passed_on = is_read && response.find(" 200 ") < head_end;
    json_object* const number = json_object_object_get(document.get(), "ret_code");
    require(is_passed_on || json_object_is_type(number, json_type_int), "there is a code");
    const int code = is_passed_on ? 0 : json_object_get_int(number);
    const bool is_method = is_read || method == "POST" || method == "DELETE";
    std::string status = "400 Bad Request";
    if (code == 0 || (code == BAD_METHOD && !is_method)) {
        status = "200 OK";
    } else if (code == NOT_AUTHORISED) {
        status = "401 Unauthorized";
    }
    require(response == "Status: " + status + HEAD_AFTER_STATUS + body + "\n\n",
            "status and code agree, and the lines end as agreed");
    return code;
}

// Checks which services a request called that was answered with `code`.
void check_calls(const Json::Value& request, int code)
{
    const std::set<std::string> names = {"GET", "rules", "POST", "DELETE"};
    std::string services;
    for (const std::string& call : fake_platform().calls) {
        const std::string name = call.substr(0, call.find(' '));
        services += names.count(name) != 0 ? name + " " : "";
    }
    const bool is_stranger = request["authentication"].asInt() != 0;
    require(is_stranger == (code == NOT_AUTHORISED && services.empty()),
            "a stranger, and nobody else, is refused before any call");
    const bool created = request["method"] == "POST" && services == "GET rules POST ";
    require(created || services.find("POST") == std::string::npos,
            "there is one POST at most, after every check");
    require(request["method"] != "POST" || request.isMember("multicall") || created == (code == 0),
            "a success, and nothing else, has created a rule");
    require(request["method"] != "DELETE" || code < -303 || code > -300 || services.empty(),
            "a refused list deletes nothing");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Json::Value request = read_request(std::string(data, data + size));
    const Outcome usual = run_request(request);
    check_calls(request, check_response(request["method"].asString(), usual.response));

    // Runs it again with an allocation of the JSON libraries that fails. The input's length chooses
    // which one; 0 is none.
    const auto asked = fake_platform().calls;
    request["allocation"] = Json::Int64(size) % (usual.allocations + 1);
    const std::string response = run_request(request).response;
    require(response == usual.response || response == OUT_OF_MEMORY,
            "a lack of memory is answered as such");
    auto& calls = fake_platform().calls;
    calls.pop_back();  // the last call releases the parameters
    require(calls.size() < asked.size() && std::equal(calls.begin(), calls.end(), asked.begin()),
            "a lack of memory changes nothing that is asked");
    return 0;
}
