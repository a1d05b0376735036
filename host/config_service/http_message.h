// A request and its reply, independent of the transport.
#pragma once

#include <string>

namespace host
{

struct HttpRequest {
    std::string method;
    std::string target;  // path and query as sent, still encoded
    std::string body;
};

struct HttpReply {
    int status = 200;
    std::string body;   // JSON
    std::string allow;  // with status 405: the methods of the path
};

}  // namespace host
