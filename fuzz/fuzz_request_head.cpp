// The request head: method, path, content length, func; and a body of whatever length.
#include "fuzz/fuzz_request.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::vector<std::string> parts = split_input(data, size, 5);
    const FakePlatform& platform = fresh_platform(parts[3]);
    const std::string method = parts[0].substr(0, parts[0].find('\0'));
    const FuzzOutcome outcome = run_fuzz_request({method, parts[4], parts[2], parts[1]});

    const bool refused = platform.authentication_result != 0;
    require(refused == (outcome.status == "401 Unauthorized"), "only a stranger is turned away");
    require(!refused || outcome.services.empty(), "a stranger causes no call");
    return 0;
}
