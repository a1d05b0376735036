// The recorder's configuration service, as this program calls it.
#pragma once

#include <optional>
#include <string>

#include "platform/config_client.h"
#include "rule_operation/shared/json_reader.h"

// One exchange with the service. Each returns 0 when it succeeded, with the reply's text in
// `reply`; any other value is the client library's failure, and there is no reply to read. `reply`
// is cleared before the call.
long get_from_service(const char* path, query_object& query, std::string& reply);
long post_to_service(const char* path, const std::string& body, std::string& reply);
long delete_from_service(const char* path, query_object& query, std::string& reply);

// The envelope of every reply.
struct TServiceReply {
    int err_code;         // 0: success; a reply without it is a success
    std::string err_str;  // what failed, empty after a success; only for the log
    TJsonDocument document;
};

// Reads the envelope of a reply. Nothing when the text is not JSON or not an object, or has an
// `err_code` that is not a whole number of 32 bits.
std::optional<TServiceReply> read_service_reply(const std::string& text);
