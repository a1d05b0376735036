#include "tests/request_runner.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "tests/failing_allocation.h"
#include "tests/fake_platform.h"

// The program's own `main`, under this name in the test programs.
int rule_operation_main();

bool allocation_fails()
{
    return allocations.is_on && ++allocations.count == allocations.failing;
}

Outcome run_request(const Json::Value& request)
{
    reset_platform(request);
    const auto set_variable = [](const char* name, const Json::Value& value) {
        value.isNull() ? unsetenv(name) : setenv(name, value.asCString(), 1);
    };
    std::string body = request["body"].asString();
    const Json::Value length = body.empty() ? Json::Value() : std::to_string(body.size());
    set_variable("REQUEST_METHOD", request["method"]);
    set_variable("PATH_INFO", request["path"]);
    set_variable("CONTENT_LENGTH", request.get("length", length));

    char* output = nullptr;
    size_t output_length = 0;
    FILE* const real_input = std::exchange(stdin, fmemopen(body.data(), body.size(), "r"));
    FILE* const real_output = std::exchange(stdout, open_memstream(&output, &output_length));
    allocations = {true, 0, request["allocation"].asInt64()};
    const int status = rule_operation_main();
    allocations.is_on = false;
    std::fclose(std::exchange(stdin, real_input));
    std::fclose(std::exchange(stdout, real_output));
    Outcome outcome = {std::string(output, output_length), status, allocations.count};
    free(output);
    return outcome;
}
