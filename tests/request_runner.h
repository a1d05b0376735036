// Runs one request through the program's own `main`, in this process, with the fake platform behind
// it.
#pragma once

#include <optional>
#include <string>

struct Request {
    std::optional<std::string> method = "POST";
    std::string body = {};                                     // after it, standard input ends
    std::optional<std::string> content_length = std::nullopt;  // by default the body's length
    std::optional<std::string> path_info = std::nullopt;
};

struct Outcome {
    std::string response;
    int exit_status;  // as `main` returns it
};

// The fake platform's calls and log are then those of this request.
Outcome run_request(const Request& request);
