// The request head: method, path, content length, func; and a body of whatever length.
#include <cstring>

#include "fuzz/fuzz_platform.h"
#include "fuzz/fuzz_request.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::vector<std::string> parts = split_input(data, size, 5);
    FuzzPlatform& platform = fuzz_platform();
    platform.func = parts[3];
    platform.schedules = {0, "{}"};
    platform.multicall = {0, "{}"};
    platform.rules = {0, R"({"ruleList":[]})"};
    platform.deletions = {{0, "{}"}};
    const FuzzOutcome outcome = run_fuzz_request({parts[0].c_str(), parts[1], parts[2], parts[4]});

    const bool refused = std::strcmp(parts[3].c_str(), "stranger") == 0;
    require(refused == (outcome.status == "401 Unauthorized"), "only a stranger is turned away");
    require(!refused || platform.calls.empty(), "a stranger causes no call");
    return 0;
}
