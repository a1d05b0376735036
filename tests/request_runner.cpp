#include "tests/request_runner.h"

#include <json/value.h>
#include <json/writer.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <utility>

#include "tests/fake_platform.h"

// The program's own `main`, under this name in the test programs.
int rule_operation_main();

namespace
{

void set_environment(const Request& request)
{
    const auto set = [](const char* name, const std::optional<std::string>& value) {
        value ? setenv(name, value->c_str(), 1) : unsetenv(name);
    };
    set("REQUEST_METHOD", request.method);
    set("PATH_INFO", request.path_info);
    set("CONTENT_LENGTH", request.content_length);
    if (!request.content_length && !request.body.empty()) {
        set("CONTENT_LENGTH", std::to_string(request.body.size()));
    }
}

// Adds the exchange to the file that RULE_EXCHANGES names, if any, as one line of JSON.
void record_exchange(const Request& request, const std::string& response)
{
    const char* const path = std::getenv("RULE_EXCHANGES");
    if (path == nullptr) {
        return;
    }
    Json::Value exchange;
    exchange["method"] = request.method ? Json::Value(*request.method) : Json::Value();
    exchange["body"] = request.body;
    exchange["answer"] = response;
    Json::StreamWriterBuilder one_line;
    one_line["indentation"] = "";
    std::ofstream(path, std::ios::app) << Json::writeString(one_line, exchange) << '\n';
}

}  // namespace

Outcome run_request(const Request& request)
{
    set_environment(request);
    fake_platform().calls.clear();
    fake_platform().log.clear();
    std::string body = request.body;
    char* output = nullptr;
    size_t length = 0;
    FILE* const real_input = std::exchange(stdin, fmemopen(body.data(), body.size(), "r"));
    FILE* const real_output = std::exchange(stdout, open_memstream(&output, &length));
    const int status = rule_operation_main();
    std::fclose(std::exchange(stdin, real_input));
    std::fclose(std::exchange(stdout, real_output));
    Outcome outcome = {std::string(output, length), status};
    free(output);
    record_exchange(request, outcome.response);
    return outcome;
}
