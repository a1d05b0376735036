#include "fuzz/fuzz_request.h"

#include <json-c/json_object.h>
#include <json-c/json_tokener.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string_view>

#include "fuzz/failing_allocation.h"
#include "rule_operation/front_end/response.h"

namespace
{

void take(std::string& text, const std::string& start, const char* what)
{
    require(text.compare(0, start.size(), start) == 0, what);
    text.erase(0, start.size());
}

TJsonObject parse_body(const std::string& body)
{
    json_tokener* const tokener = json_tokener_new_ex(4100);
    json_tokener_set_flags(tokener, JSON_TOKENER_STRICT);
    // The zero byte after the text ends a bare literal.
    TJsonObject document(
        json_tokener_parse_ex(tokener, body.c_str(), static_cast<int>(body.size() + 1)));
    require(json_tokener_get_error(tokener) == json_tokener_success, "the body is JSON");
    json_tokener_free(tokener);
    return document;
}

void check_envelope(json_object* document, std::string body, FuzzOutcome& outcome)
{
    require(json_object_object_length(document) == 2, "the envelope has two members");
    take(body, R"({ "ret_code": )", "there is a code");
    outcome.code = std::atoi(body.c_str());
    take(body, std::to_string(outcome.code) + R"(, "ret_mesg": ")", "there is a text");
    require(body.front() != '"', "the text is not empty");
    require(outcome.code <= 0, "the code is 0 or negative");
    require(outcome.code != INTERNAL_ERROR, "nothing escaped as an exception");
    const bool succeeded = outcome.code == 0 || outcome.code == BAD_METHOD;
    const char* const failure = outcome.code == -2 ? "401 Unauthorized" : "400 Bad Request";
    require(outcome.status == (succeeded ? "200 OK" : failure), "status line and code agree");
}

// The request again, with an allocation that fails, which the request draws: the answer is the same
// or the one for that, and the platform is asked nothing else.
void check_failing_allocation(const Json::Value& request, const std::string& response)
{
    const auto count = static_cast<size_t>(fail_allocation(0));
    if (count == 0) {
        return;
    }
    const std::vector<std::string> asked = fake_platform().calls;
    const size_t draw = std::hash<std::string>()(request["body"].asString() + response);
    fail_allocation(static_cast<long>(1 + draw % count));
    const std::string answer = run_request(request).response;
    fail_allocation(0);
    require(answer == response ||
                answer ==
                    "Status: 400 Bad Request\r\nContent-type: application/json\r\n\r\n"
                    "{ \"ret_code\": -4, \"ret_mesg\": \"Internal error\" }\n\n",
            "a lack of memory is answered as such");
    std::vector<std::string>& calls = fake_platform().calls;
    calls.pop_back();  // releases the parameters
    require(calls.size() < asked.size() && std::equal(calls.begin(), calls.end(), asked.begin()),
            "a lack of memory changes nothing that is asked");
}

}  // namespace

void require(bool holds, const char* what)
{
    if (!holds) {
        std::fprintf(stderr, "the contract is broken, which says that %s\n", what);
        std::abort();
    }
}

std::vector<std::string> split_input(const uint8_t* data, size_t size, size_t count)
{
    constexpr std::string_view separator = "\n--\n";
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    std::vector<std::string> parts;
    while (parts.size() + 1 < count) {
        const size_t end = rest.find(separator);
        parts.emplace_back(rest.substr(0, end));
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + separator.size());
    }
    parts.emplace_back(rest);
    return parts;
}

Json::Value request_of(const std::string& method, const std::string& body, const std::string& func)
{
    Json::Value request;
    request["method"] = method;
    request["body"] = body;
    request["func"] = request["GUID"] = func.empty() ? Json::Value() : func;
    if (func == "stranger") {
        request["authentication"] = -1;
    }
    return request;
}

Json::Value read_answer(const std::string& section)
{
    if (section.empty() || section.front() != '!') {
        return answer(0, section);
    }
    const int number = std::atoi(section.c_str() + 1);
    const bool own = number == -2 || number < INTERNAL_ERROR;
    return answer(own ? number : -1001, "");
}

FuzzOutcome run_fuzz_request(const Json::Value& request)
{
    const std::string response = run_request(request).response;
    std::string output = response;
    FuzzOutcome outcome;
    take(output, "Status: ", "there is a status line");
    outcome.status = output.substr(0, output.find('\r'));
    take(output, outcome.status + "\r\nContent-type: application/json\r\n\r\n", "there is a head");
    require(output.size() > 2 && output.substr(output.size() - 2) == "\n\n",
            "the body ends in two line feeds");
    output.resize(output.size() - 2);
    const TJsonObject document = parse_body(output);
    const bool is_list = request["method"] == "GET" && outcome.status == "200 OK";
    outcome.has_envelope = !is_list && output != "null";
    if (outcome.has_envelope) {
        check_envelope(document.get(), output, outcome);
    }
    for (const std::string& call : fake_platform().calls) {
        const std::string word = call.substr(0, call.find(' ')) + " ";
        if (word == "GET " || word == "rules " || word == "POST " || word == "DELETE ") {
            outcome.services += word;
        }
    }
    const size_t posted = outcome.services.find("POST ");
    require(posted == std::string::npos || posted + 5 == outcome.services.size(),
            "there is one POST at most, and nothing after it");
    check_failing_allocation(request, response);
    return outcome;
}
