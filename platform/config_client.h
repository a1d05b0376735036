// The client library of the recorder's configuration service, an HTTP service.
//
// Each call is one synchronous exchange. It returns 0 when the exchange succeeded, and `reply` then
// holds the body of the reply; any other value when the call itself failed, and `reply` is then not
// to be read. The result -2 stands for "not authorised", here as everywhere.
#pragma once

#include <map>
#include <string>

// The query of a call. The client encodes names and values for the URI and only reads the record.
struct query_object {
    std::map<std::string, std::string> params;  // query parameters by name
    std::string extra;                          // not used by the rule endpoint: always empty
};

// `timeout` is the time limit for the whole exchange, in seconds; the rule endpoint always passes
// 15, and false, false, 0 and null for the parameters without a name.
long rova_GET_request(const char* host, int port, const char* path, query_object* query,
                      std::string& reply, long timeout, bool, bool, int, char**);

// As above. `body` is sent as it is.
long rova_POST_request(const char* host, int port, const char* path, std::string body,
                       std::string& reply, long timeout, bool, bool, int, char**);

// As above.
long rova_DELETE_request(const char* host, int port, const char* path, query_object* query,
                         std::string& reply, long timeout, bool, bool, int, char**);
