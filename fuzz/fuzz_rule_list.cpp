// The rule list document, read for duplicates and passed on to a client.
#include "fuzz/fuzz_request.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Json::Value request = request_of(
        "POST", R"({"rule":{"event":[{"eventID":536936448,"camera":[{"chIdx":3}]}]}})", "addRule");
    request["rules"] = read_answer({reinterpret_cast<const char*>(data), size});
    const FuzzOutcome added = run_fuzz_request(request);
    require(added.code == 0 || added.code == -911 || (added.code <= -601 && added.code >= -603),
            "a rule list leads to one of the outcomes for a list");

    request["method"] = "GET";
    const FuzzOutcome listed = run_fuzz_request(request);
    require(listed.has_envelope || listed.status == "200 OK", "a list is passed on unchanged");
    return 0;
}
