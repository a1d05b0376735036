// Runs one request, given as a JSON object on standard input, and prints its outcome as another.
#include <json/json.h>

#include <iostream>

#include "tests/fake_platform.h"
#include "tests/request_runner.h"

namespace
{

Json::Value array(const std::vector<std::string>& texts)
{
    Json::Value value(Json::arrayValue);
    for (const std::string& text : texts) {
        value.append(text);
    }
    return value;
}

}  // namespace

int main()
{
    Json::Value request;
    std::cin >> request;
    const Outcome outcome = run_request(request);

    Json::Value result;
    result["response"] = outcome.response;
    result["exit_status"] = outcome.exit_status;
    result["calls"] = array(fake_platform().calls);
    result["log"] = array(fake_platform().log);
    result["pauses"] = fake_platform().pauses;
    Json::StreamWriterBuilder bytes_unchanged;
    bytes_unchanged["emitUTF8"] = true;
    bytes_unchanged["indentation"] = "";
    std::cout << Json::writeString(bytes_unchanged, result);
}
