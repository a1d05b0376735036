// The request as the CGI environment and standard input describe it.
#pragma once

#include <optional>
#include <string>

struct TCgiRequest {
    const char* method = nullptr;     // REQUEST_METHOD, or null
    char* path_info = nullptr;        // PATH_INFO, or null
    std::optional<std::string> body;  // of the announced length; bytes that did not arrive are zero
};

// Reads the environment and then the body. A body is read when CONTENT_LENGTH, converted as
// `strtol` does and kept in 32 bits, is 1 to 4,095; otherwise there is none and standard input is
// not touched. Reading ends early when standard input ends or fails.
TCgiRequest read_cgi_request();
