// A whole add-rule request: body, func, and the replies to all calls that it makes.
#include "fuzz/fuzz_request.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::vector<std::string> parts = split_input(data, size, 5);
    FakePlatform& platform = fresh_platform(parts[1]);
    platform.schedules = read_answer(parts[2]);
    platform.rules = read_answer(parts[3]);
    platform.multicall = read_answer(parts[4]);
    const FuzzOutcome outcome = run_fuzz_request({"POST", parts[0]});

    require(outcome.has_envelope, "the answer is an envelope");
    const bool created = outcome.services == "GET rules POST ";
    require(created || outcome.code != 0, "a success has created a rule");
    require(created || outcome.services.find("POST") == std::string::npos,
            "every check comes before the POST");
    return 0;
}
