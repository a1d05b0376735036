// Runs one request and checks what holds for every request. An input consists of parts, each a word
// and a blank and a value, with lines between them that contain only "--". The words are those of
// request_cases.txt. One without a value is not there; a caller who is a "stranger" is refused. A
// part "rules" alone is a list for a sound request.
#include <json-c/json_object.h>
#include <json-c/json_tokener.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "rule_operation/front_end/response.h"
#include "tests/fake_platform.h"
#include "tests/request_runner.h"

namespace
{

// Ends the process with a message unless `holds`.
void require(bool holds, const char* what)
{
    if (!holds) {
        std::fprintf(stderr, "the contract is broken, which says that %s\n", what);
        std::abort();
    }
}

struct FuzzOutcome {
    std::string status;  // "200 OK"
    bool has_envelope = false;
    int code = 0;          // of the envelope
    std::string services;  // the services called, each "GET ", "rules ", "POST " or "DELETE "
};

// A reply, or, when it begins with '!', a failed call whose result is the number after it if that
// is negative and not one of the front end's own codes.
Json::Value read_answer(const std::string& value)
{
    if (value.empty() || value.front() != '!') {
        return answer(0, value);
    }
    const int number = std::atoi(value.c_str() + 1);
    const bool own = number == -2 || number < INTERNAL_ERROR;
    return answer(own ? number : -1001, "");
}

void read_part(const std::string& part, Json::Value& request)
{
    const size_t blank = part.find(' ');
    const std::string word = part.substr(0, blank);
    const std::string value = blank == std::string::npos ? "" : part.substr(blank + 1);
    if (word == "body") {
        request[word] = value;
    } else if (word == "method" || word == "path" || word == "length" || word == "func" ||
               word == "GUID") {
        request[word] = blank == std::string::npos ? Json::Value() : value.c_str();
    } else if (word == "schedules" || word == "rules" || word == "multicall") {
        request[word] = read_answer(value);
    } else if (word == "deletion") {
        request[word].append(read_answer(value));
    } else if (word == "stranger") {
        request["authentication"] = -1;
    }
}

Json::Value read_request(std::string_view rest)
{
    constexpr std::string_view separator = "\n--\n";
    Json::Value request;
    while (!rest.empty()) {
        const size_t end = rest.find(separator);
        read_part(std::string(rest.substr(0, end)), request);
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + separator.size());
    }
    return request;
}

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

FuzzOutcome read_outcome(const Json::Value& request, std::string output)
{
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
    return outcome;
}

void check_method(const Json::Value& request, const FuzzOutcome& outcome)
{
    const std::string& services = outcome.services;
    const std::string method = request["method"].asString();
    const bool is_401 = outcome.status == "401 Unauthorized";
    require(request.isMember("authentication") == (is_401 && services.empty()),
            "a stranger, and nobody else, is refused before any call");
    require(!is_401 || services.empty() || request.isMember("schedules") ||
                request.isMember("rules") || request.isMember("multicall") ||
                request.isMember("deletion"),
            "the usual answers of the platform refuse nobody");
    require(
        outcome.has_envelope || method == "PUT" || (method == "GET" && outcome.status == "200 OK"),
        "the answer is an envelope, or a list that is passed on");
    const bool created = services == "GET rules POST ";
    require(created || services.find("POST") == std::string::npos,
            "there is one POST at most, after every check");
    if (method == "POST") {
        require(created || outcome.code != 0, "a success has created a rule");
        require(!created || outcome.code == 0 || request.isMember("multicall"),
                "a rule that was created is a success");
        require(services != "GET rules " || outcome.code == -911 ||
                    (outcome.code <= -601 && outcome.code >= -603),
                "a rule list leads to one of the outcomes for a list");
    } else if (method == "DELETE") {
        const bool refused_before = outcome.code <= -300 && outcome.code >= -303;
        require(!refused_before || services.empty(), "a refused list deletes nothing");
    }
}

// The request again, with an allocation that fails, which the request draws: the answer is the same
// or the one for that, and the platform is asked nothing else.
void check_failing_allocation(Json::Value request, const Outcome& usual)
{
    if (usual.allocations == 0) {
        return;
    }
    const std::vector<std::string> asked = fake_platform().calls;
    const size_t draw = std::hash<std::string>()(request["body"].asString() + usual.response);
    request["allocation"] = Json::Int64(1 + draw % static_cast<size_t>(usual.allocations));
    const std::string response = run_request(request).response;
    require(response == usual.response ||
                response ==
                    "Status: 400 Bad Request\r\nContent-type: application/json\r\n\r\n"
                    "{ \"ret_code\": -4, \"ret_mesg\": \"Internal error\" }\n\n",
            "a lack of memory is answered as such");
    std::vector<std::string>& calls = fake_platform().calls;
    calls.pop_back();  // releases the parameters
    require(calls.size() < asked.size() && std::equal(calls.begin(), calls.end(), asked.begin()),
            "a lack of memory changes nothing that is asked");
}

FuzzOutcome check_request(const Json::Value& request)
{
    const Outcome outcome = run_request(request);
    FuzzOutcome result = read_outcome(request, outcome.response);
    check_method(request, result);
    check_failing_allocation(request, outcome);
    return result;
}

// A list of rules, read for duplicates and passed on to a client.
void check_list(Json::Value request)
{
    request["method"] = "POST";
    request["body"] = R"({"rule":{"event":[{"eventID":536936448,"camera":[{"chIdx":3}]}]}})";
    const FuzzOutcome added = check_request(request);
    require(added.services.compare(0, 10, "GET rules ") == 0, "a list is read for a sound request");
    request["method"] = "GET";
    check_request(request);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const Json::Value request = read_request({reinterpret_cast<const char*>(data), size});
    const bool is_list = request.size() == 1 && request.isMember("rules");
    is_list ? check_list(request) : static_cast<void>(check_request(request));
    return 0;
}
