// Runs a request, given as a JSON object on standard input, and prints the outcome as another one.
// If the request has a "message", it is logged afterwards: no message of the program itself reaches
// the limit for log messages.
#include <json/json.h>

#include <iostream>

#include "rule_operation/shared/diagnostics.h"
#include "tests/requests/fake_platform.h"

int main()
{
    Json::Value request;
    std::cin >> request;
    const Outcome outcome = run_request(request);
    if (request.isMember("message")) {
        log_from("f", 1, request["message"].asCString());
    }

    Json::Value result;
    result["response"] = outcome.response;
    result["exit_status"] = outcome.exit_status;
    result["allocations"] = Json::Int64(outcome.allocations);
    result["pauses"] = fake_platform().pauses;
    for (const std::string& call : fake_platform().calls) {
        result["calls"].append(call);
    }
    for (const std::string& message : fake_platform().log) {
        result["log"].append(message);
    }
    Json::StreamWriterBuilder writer;
    writer["emitUTF8"] = true;  // prints bytes unchanged instead of escaping them
    std::cout << Json::writeString(writer, result);
}
