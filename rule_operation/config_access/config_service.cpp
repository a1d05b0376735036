#include "rule_operation/config_access/config_service.h"

namespace
{

constexpr const char* HOST = "127.0.0.1";
constexpr int PORT = 10141;
constexpr long TIMEOUT_SECONDS = 15;

}  // namespace

namespace config_service
{

long get(const char* path, query_object& query, std::string& reply)
{
    return rova_GET_request(HOST, PORT, path, &query, reply, TIMEOUT_SECONDS, false, false, 0,
                            nullptr);
}

long post(const char* path, const std::string& body, std::string& reply)
{
    return rova_POST_request(HOST, PORT, path, body, reply, TIMEOUT_SECONDS, false, false, 0,
                             nullptr);
}

long remove(const char* path, query_object& query, std::string& reply)
{
    return rova_DELETE_request(HOST, PORT, path, &query, reply, TIMEOUT_SECONDS, false, false, 0,
                               nullptr);
}

std::optional<Reply> read_reply(const std::string& text)
{
    std::optional<json::Document> document = json::Document::parse(text);
    if (!document || !document->root().is_object()) {
        return std::nullopt;
    }
    const std::optional<int> err_code = document->root().member("err_code").whole_number();
    if (!err_code) {
        return std::nullopt;
    }
    std::string err_str = document->root().member("err_str").text_or_empty();
    return Reply{*err_code, std::move(err_str), std::move(*document)};
}

}  // namespace config_service
