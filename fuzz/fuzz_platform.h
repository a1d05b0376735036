// A platform for fuzzing: its answers come from the input, it costs next to nothing, and it keeps
// what the checks of a run need.
#pragma once

#include <string>
#include <string_view>
#include <vector>

// An answer as the input gives it: a reply, or, when it begins with '!', a failed call whose result
// is the number behind it if that is negative and not one of the front end's own codes.
struct FuzzAnswer {
    int result = 0;
    std::string text;
};

FuzzAnswer read_answer(std::string_view section);

struct FuzzPlatform {
    std::string func;
    FuzzAnswer schedules;
    FuzzAnswer rules;
    FuzzAnswer multicall;
    std::vector<FuzzAnswer> deletions;  // in turn, from the front again at the end

    std::vector<std::string> calls;  // "GET", "RULES", "POST" or "DELETE", in order
};

FuzzPlatform& fuzz_platform();
