// A whole DELETE: body, and the replies to its first calls in turn; further calls succeed.
#include "fuzz/fuzz_request.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::vector<std::string> parts = split_input(data, size, 4);
    Json::Value request = request_of("DELETE", parts[0], "");
    for (unsigned int call = 0; call < 12; ++call) {
        request["deletion"].append(read_answer(parts[1 + call % 3]));
    }
    const FuzzOutcome outcome = run_fuzz_request(request);

    require(outcome.has_envelope, "the answer is an envelope");
    const bool refused_before = outcome.code <= -300 && outcome.code >= -303;
    require(!refused_before || outcome.services.empty(), "a refused list deletes nothing");
    return 0;
}
