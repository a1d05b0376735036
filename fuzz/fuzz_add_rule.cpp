// A whole add-rule request: body, func, and the replies to all of its calls.
#include "fuzz/fuzz_request.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::vector<std::string> parts = split_input(data, size, 5);
    Json::Value request = request_of("POST", parts[0], parts[1]);
    request["schedules"] = read_answer(parts[2]);
    request["rules"] = read_answer(parts[3]);
    request["multicall"] = read_answer(parts[4]);
    const FuzzOutcome outcome = run_fuzz_request(request);

    require(outcome.has_envelope, "the answer is an envelope");
    const bool created = outcome.services == "GET rules POST ";
    require(created || outcome.code != 0, "a success has created a rule");
    require(created || outcome.services.find("POST") == std::string::npos,
            "every check comes before the POST");
    return 0;
}
