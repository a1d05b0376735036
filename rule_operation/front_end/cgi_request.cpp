#include "rule_operation/front_end/cgi_request.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>

namespace
{

constexpr int MAX_BODY_LENGTH = 4095;

std::optional<std::string> read_body(const char* content_length)
{
    if (content_length == nullptr) {
        return std::nullopt;
    }
    const int length = static_cast<int>(std::strtol(content_length, nullptr, 10));
    if (length < 1 || length > MAX_BODY_LENGTH) {
        return std::nullopt;
    }
    std::string body(static_cast<size_t>(length), '\0');
    size_t arrived = 0;
    size_t count = 1;
    while (arrived < body.size() && count > 0) {
        count = std::fread(&body[arrived], 1, body.size() - arrived, stdin);
        arrived += count;
    }
    return body;
}

}  // namespace

TCgiRequest read_cgi_request()
{
    const char* const method = std::getenv("REQUEST_METHOD");
    char* const path_info = std::getenv("PATH_INFO");
    return {method, path_info, read_body(std::getenv("CONTENT_LENGTH"))};
}
