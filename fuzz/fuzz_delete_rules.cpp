// A whole DELETE: body, and the replies to its calls in turn.
#include "fuzz/fuzz_platform.h"
#include "fuzz/fuzz_request.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::vector<std::string> parts = split_input(data, size, 4);
    FuzzPlatform& platform = fuzz_platform();
    platform.func = "";
    platform.deletions = {read_answer(parts[1]), read_answer(parts[2]), read_answer(parts[3])};
    const FuzzOutcome outcome = run_fuzz_body("DELETE", parts[0]);

    require(outcome.has_envelope, "the answer is an envelope");
    const bool refused_before = outcome.code <= -300 && outcome.code >= -303;
    require(!refused_before || platform.calls.empty(), "a refused list deletes nothing");
    return 0;
}
