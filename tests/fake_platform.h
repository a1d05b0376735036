// A platform that does what a test tells it to, and remembers what it was asked.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

struct Answer {
    long result = 0;
    std::string reply = R"({"err_code": 0, "err_str": ""})";
};

struct FakePlatform {
    // What the platform answers.
    bool has_input = true;
    std::vector<std::pair<std::string, std::string>> parameters;
    int tokenizer_result = 0;
    int authentication_result = 0;
    int table_result = 0;
    std::map<int, std::pair<unsigned char, std::string>> cameras;  // channel: first byte, GUID
    Answer schedules;
    Answer multicall;
    std::deque<Answer> deletions;  // one for each DELETE; the default answer when none is left
    Answer rules;                  // the reply as JSON; empty: a null document
    int64_t clock = 0;
    std::function<void(const std::string& call)> before_call = [](const std::string&) {};

    // What it was asked: each call with its arguments, in order, and each message as logged.
    std::vector<std::string> calls;
    std::vector<std::string> log;
    unsigned int pauses = 0;                     // in microseconds; they pass at once
    std::vector<std::string>* tokens = nullptr;  // the program's token list, once it is split
};

// The one platform of this process.
FakePlatform& fake_platform();

// Cameras on channels 3, 10 and 191, a schedule list with an all-day profile, an empty rule list,
// and the URI parameter func=addRule.
FakePlatform usual_platform();
