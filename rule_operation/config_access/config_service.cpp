#include "rule_operation/config_access/config_service.h"

#include <utility>

namespace
{

constexpr const char* HOST = "127.0.0.1";
constexpr int PORT = 10141;
constexpr long TIMEOUT_SECONDS = 15;

}  // namespace

long get_from_service(const char* path, query_object& query, std::string& reply)
{
    reply.clear();
    return rova_GET_request(HOST, PORT, path, &query, reply, TIMEOUT_SECONDS, false, false, 0,
                            nullptr);
}

long post_to_service(const char* path, const std::string& body, std::string& reply)
{
    reply.clear();
    return rova_POST_request(HOST, PORT, path, body, reply, TIMEOUT_SECONDS, false, false, 0,
                             nullptr);
}

long delete_from_service(const char* path, query_object& query, std::string& reply)
{
    reply.clear();
    return rova_DELETE_request(HOST, PORT, path, &query, reply, TIMEOUT_SECONDS, false, false, 0,
                               nullptr);
}

std::optional<TServiceReply> read_service_reply(const std::string& text)
{
    std::optional<TJsonDocument> document = TJsonDocument::parse(text);
    if (!document || !document->root().is_object()) {
        return std::nullopt;
    }
    const std::optional<int> err_code = document->root().member("err_code").whole_number();
    if (!err_code) {
        return std::nullopt;
    }
    std::string err_str;
    if (*err_code != 0) {
        err_str = document->root().member("err_str").text_or_empty();
    }
    return TServiceReply{*err_code, std::move(err_str), std::move(*document)};
}
