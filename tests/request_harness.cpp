// Runs requests, each given as a JSON object on a line of standard input, and prints the outcome of
// each as another.
#include <json/json.h>

#include <iostream>
#include <sstream>

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
    Json::StreamWriterBuilder one_line;
    one_line["emitUTF8"] = true;  // the bytes as they are
    one_line["indentation"] = "";
    for (std::string line; std::getline(std::cin, line);) {
        Json::Value request;
        std::istringstream(line) >> request;
        const Outcome outcome = run_request(request);

        Json::Value result;
        result["response"] = outcome.response;
        result["exit_status"] = outcome.exit_status;
        result["calls"] = array(fake_platform().calls);
        result["log"] = array(fake_platform().log);
        result["pauses"] = fake_platform().pauses;
        std::cout << Json::writeString(one_line, result) << std::endl;
    }
}
