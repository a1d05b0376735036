// Runs one request through the whole program in a process of its own, with the fake platform behind
// it: the environment, standard input, standard output and the exit status are real.
#pragma once

#include <optional>
#include <string>
#include <vector>

struct Request {
    std::optional<std::string> method = "POST";
    std::string body = {};
    std::optional<std::string> content_length =
        std::nullopt;  // the length of the body when not set
    std::optional<std::string> path_info = std::nullopt;
    bool close_input = false;  // otherwise standard input stays open behind the body
};

struct Outcome {
    std::string response;
    int exit_status = -1;  // 0 to 255; -1 when a signal ended the process or it had to be killed
    std::vector<std::string> calls;
    std::vector<std::string> log;
};

// Kills the process after ten seconds.
Outcome run_request(const Request& request);

// A whole response: the status line's text and the body's.
std::string response_text(const std::string& status, const std::string& body);

// A whole response with an envelope.
std::string envelope_text(const std::string& status, int code, const std::string& message);
