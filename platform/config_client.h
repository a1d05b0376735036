// The client library of the recorder's configuration service, an HTTP service.
//
// Each call is one synchronous exchange: one GET and one POST for a new rule, one DELETE for each
// GUID of a deletion. It returns 0 when the exchange succeeded, and `reply` then holds the body of
// the reply, whose size the client must limit. It returns any other value when the call itself
// failed, and `reply` is then not read. Only the lowest 32 bits of the result are kept, so no
// failure may be a multiple of 2^32.
#pragma once

#include <map>
#include <string>

// The query of a call, which the client only reads. It must encode every byte of names and values
// that is not unreserved in a URI, so that no value can end its parameter early.
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
