#include "fuzz/fuzz_request.h"

#include <json-c/json_object.h>
#include <json-c/json_tokener.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "rule_operation/front_end/response.h"

// The program's own `main`, under this name in the fuzz programs.
int rule_operation_main();

// The pauses of the program, without the waiting.
extern "C" int usleep(useconds_t /*microseconds*/)
{
    return 0;
}

namespace
{

const std::string HEAD_END = "\r\nContent-type: application/json\r\n\r\n";

// Calls `main` with the request's standard input, and returns its standard output.
std::string run_main(const FuzzRequest& request)
{
    setenv("REQUEST_METHOD", request.method, 1);
    setenv("PATH_INFO", request.path_info.c_str(), 1);
    setenv("CONTENT_LENGTH", request.content_length.c_str(), 1);
    std::string body = request.body;
    FILE* const real_input = stdin;
    FILE* const real_output = stdout;
    char* output = nullptr;
    size_t length = 0;
    stdin = fmemopen(body.data(), body.size(), "r");
    stdout = open_memstream(&output, &length);
    rule_operation_main();
    std::fclose(stdin);
    std::fclose(stdout);
    stdin = real_input;
    stdout = real_output;
    std::string text(output, length);
    free(output);
    return text;
}

JsonObject parse_body(const std::string& body)
{
    json_tokener* const tokener = json_tokener_new_ex(4100);
    json_tokener_set_flags(tokener, JSON_TOKENER_STRICT);
    // The zero byte behind the text ends a bare literal.
    JsonObject document(
        json_tokener_parse_ex(tokener, body.c_str(), static_cast<int>(body.size() + 1)));
    require(json_tokener_get_error(tokener) == json_tokener_success, "the body is JSON");
    json_tokener_free(tokener);
    return document;
}

void check_envelope(json_object* body, FuzzOutcome& outcome)
{
    json_object* code = nullptr;
    json_object* message = nullptr;
    outcome.has_envelope = json_object_object_get_ex(body, "ret_code", &code) != 0;
    if (!outcome.has_envelope) {
        return;
    }
    outcome.code = json_object_get_int(code);
    require(json_object_object_get_ex(body, "ret_mesg", &message) != 0, "there is a text");
    require(json_object_get_string_len(message) > 0, "the text is not empty");
    require(json_object_object_length(body) == 2, "the envelope has two members");
    require(outcome.code != -4, "nothing escaped as an exception");
    const bool failed = outcome.code != 0;
    const char* const expected = outcome.code == -2             ? "401 Unauthorized"
                                 : failed && outcome.code != -3 ? "400 Bad Request"
                                                                : "200 OK";
    require(outcome.code <= 0, "the code is 0 or negative");
    require(outcome.status == expected, "status line and code agree");
}

}  // namespace

void require(bool holds, const char* what)
{
    if (!holds) {
        std::fprintf(stderr, "the contract is broken; it should hold that %s\n", what);
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

FakePlatform& fresh_platform(const std::string& func)
{
    reset_fake_platform();
    FakePlatform& platform = fake_platform();
    platform.parameters.clear();
    if (!func.empty()) {
        platform.parameters = {{"func", func}, {"GUID", func}};
    }
    platform.authentication_result = std::strcmp(func.c_str(), "stranger") == 0 ? -1 : 0;
    return platform;
}

Answer read_answer(const std::string& section)
{
    if (section.empty() || section.front() != '!') {
        return {0, section};
    }
    const int number = std::atoi(section.c_str() + 1);
    const bool own = number == -2 || number < response::INTERNAL_ERROR;
    return {own ? number : -1001, ""};
}

std::vector<std::string> service_calls()
{
    std::vector<std::string> words;
    for (const std::string& call : fake_platform().calls) {
        const std::string word = call.substr(0, call.find(' '));
        if (word == "GET" || word == "rules" || word == "POST" || word == "DELETE") {
            words.push_back(word);
        }
    }
    return words;
}

FuzzOutcome run_fuzz_request(const FuzzRequest& request)
{
    fake_platform().calls.clear();
    const std::string output = run_main(request);

    FuzzOutcome outcome;
    const std::string start = "Status: ";
    const size_t head_end = output.find(HEAD_END);
    require(output.compare(0, start.size(), start) == 0 && head_end != std::string::npos,
            "the response has its head");
    outcome.status = output.substr(start.size(), head_end - start.size());
    const std::string body = output.substr(head_end + HEAD_END.size());
    require(body.size() > 2 && body.substr(body.size() - 2) == "\n\n",
            "the body ends in two lines");
    const JsonObject document = parse_body(body.substr(0, body.size() - 2));
    const bool is_list = request.method == std::string_view("GET") && outcome.status == "200 OK";
    if (!is_list) {
        check_envelope(document.get(), outcome);
    }

    const std::vector<std::string> calls = service_calls();
    const auto first_post = std::find(calls.begin(), calls.end(), "POST");
    require(first_post == calls.end() || first_post + 1 == calls.end(),
            "there is one POST at most, and nothing after it");
    return outcome;
}

FuzzOutcome run_fuzz_body(const char* method, const std::string& body)
{
    return run_fuzz_request({method, "/fuzz", std::to_string(body.size()), body});
}
