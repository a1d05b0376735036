// The request head: method, path, content length, func; and a body of any length.
#include "fuzz/fuzz_request.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::vector<std::string> parts = split_input(data, size, 5);
    Json::Value request = request_of(parts[0].c_str(), parts[4], parts[3]);
    request["path"] = parts[1];
    request["length"] = parts[2];
    const FuzzOutcome outcome = run_fuzz_request(request);

    const bool refused = request.isMember("authentication");
    require(refused == (outcome.status == "401 Unauthorized"), "only a stranger is refused");
    require(!refused || outcome.services.empty(), "a stranger causes no call");
    return 0;
}
