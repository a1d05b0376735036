#include "platform/config_client.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <chrono>
#include <cstdint>
#include <exception>
#include <optional>
#include <utility>
#include <vector>

#include "host/platform/query.h"
#include "host/platform/result_codes.h"
#include "host/platform/rule_list.h"
#include "platform/rule_log.h"

namespace host
{
namespace
{

namespace asio = boost::asio;
namespace http = boost::beast::http;
using asio::ip::tcp;
using boost::system::error_code;
using Request = http::request<http::string_body>;
using ReplyParser = http::response_parser<http::string_body>;

constexpr std::uint64_t MAX_BODY_SIZE = 64ULL * 1024;
// 4,800 rules, with the longest names of characters that take six bytes each.
constexpr std::uint64_t MAX_RULE_LIST_SIZE = 128ULL * 1024 * 1024;
constexpr std::uint32_t MAX_HEADER_SIZE = 16 * 1024;

// A connection whose operations together take no longer than its time limit. An operation that is
// not finished in time ends with `timed_out`.
class Connection
{
 public:
    explicit Connection(std::chrono::seconds limit)
        : deadline_(std::chrono::steady_clock::now() + limit)
    {
    }

    error_code connect(const tcp::endpoint& service)
    {
        return finish([&](auto handler) { socket_.async_connect(service, handler); });
    }

    error_code write(const Request& request)
    {
        return finish([&](auto handler) { http::async_write(socket_, request, handler); });
    }

    error_code read_header(ReplyParser& parser)
    {
        return finish(
            [&](auto handler) { http::async_read_header(socket_, buffer_, parser, handler); });
    }

    error_code read_body(ReplyParser& parser)
    {
        return finish([&](auto handler) { http::async_read(socket_, buffer_, parser, handler); });
    }

 private:
    template <class Start>
    error_code finish(Start start)
    {
        std::optional<error_code> outcome;
        start([&outcome](const error_code& error, auto...) { outcome = error; });
        io_.restart();
        io_.run_until(deadline_);
        if (!outcome) {
            error_code ignored;
            socket_.close(ignored);
            io_.run();
            return asio::error::timed_out;
        }
        return *outcome;
    }

    std::chrono::steady_clock::time_point deadline_;
    asio::io_context io_{1};
    tcp::socket socket_{io_};
    boost::beast::flat_buffer buffer_;
};

std::string request_target(const char* path, const query_object* query)
{
    std::string target = path;
    if (query != nullptr) {
        char separator = '?';
        for (const auto& [name, value] : query->params) {
            target +=
                separator + host::encode_query_text(name) + '=' + host::encode_query_text(value);
            separator = '&';
        }
    }
    return target;
}

Request make_request(http::verb method, const tcp::endpoint& service, const std::string& target,
                     std::string body)
{
    constexpr unsigned HTTP_1_1 = 11;
    Request request(method, target, HTTP_1_1);
    request.set(http::field::host,
                service.address().to_string() + ':' + std::to_string(service.port()));
    request.set(http::field::connection, "close");
    if (method == http::verb::post) {
        request.set(http::field::content_type, "application/json");
    }
    request.body() = std::move(body);
    request.prepare_payload();
    return request;
}

struct Failure {
    int code;  // 0: none
    std::string reason;
};

// The failure for `error`, the result of a read or write.
Failure exchange_failure(const error_code& error)
{
    if (error == asio::error::timed_out) {
        return {TIME_LIMIT_REACHED, "the time limit was reached"};
    }
    if (error == http::error::body_limit || error == http::error::header_limit) {
        return {REPLY_TOO_LARGE, "the reply is too large"};
    }
    return {EXCHANGE_BROKEN, error.message()};
}

// Reads the reply. The header is read separately: in one step with the body the parser can lose the
// error of an announced length over the limit.
Failure read_reply(Connection& connection, std::uint64_t body_limit, std::string& reply)
{
    ReplyParser parser;
    parser.body_limit(body_limit);
    parser.header_limit(MAX_HEADER_SIZE);
    if (const auto error = connection.read_header(parser)) {
        return exchange_failure(error);
    }
    const int status = static_cast<int>(parser.get().result_int());
    if (status < 100) {
        return {EXCHANGE_BROKEN, "the status of the reply is not valid"};
    }
    if (parser.get().result() != http::status::ok) {
        return {-status, "the service answered with status " + std::to_string(status)};
    }
    if (const auto error = connection.read_body(parser)) {
        return exchange_failure(error);
    }
    reply = std::move(parser.get().body());
    return {0, ""};
}

Failure exchange(const tcp::endpoint& service, const Request& request, std::chrono::seconds limit,
                 std::string& reply)
{
    Connection connection(limit);
    if (const auto error = connection.connect(service)) {
        return error == asio::error::timed_out ? exchange_failure(error)
                                               : Failure{CANNOT_CONNECT, error.message()};
    }
    if (const auto error = connection.write(request)) {
        return exchange_failure(error);
    }
    const bool lists_rules = request.target() == RULE_LIST_PATH;
    return read_reply(connection, lists_rules ? MAX_RULE_LIST_SIZE : MAX_BODY_SIZE, reply);
}

// Makes every call. Logs each failure.
long call_service(http::verb method, const char* host, int port, const char* path,
                  const query_object* query, std::string body, std::string& reply, long timeout)
{
    try {
        const tcp::endpoint service(asio::ip::make_address(host), static_cast<std::uint16_t>(port));
        const std::string target = request_target(path, query);
        const Request request = make_request(method, service, target, std::move(body));
        const Failure failure = exchange(service, request, std::chrono::seconds(timeout), reply);
        if (failure.code != 0) {
            rule_log("Configuration service: %s %s:%d%s: %s", http::to_string(method).data(), host,
                     port, target.c_str(), failure.reason.c_str());
        }
        return failure.code;
    } catch (const std::exception& exception) {
        rule_log("Configuration service: %s", exception.what());
        return EXCHANGE_BROKEN;
    }
}

}  // namespace
}  // namespace host

long rova_GET_request(const char* host, int port, const char* path, query_object* query,
                      std::string& reply, long timeout, bool /*unused*/, bool /*unused*/,
                      int /*unused*/, char** /*unused*/)
{
    return host::call_service(host::http::verb::get, host, port, path, query, "", reply, timeout);
}

long rova_POST_request(const char* host, int port, const char* path, std::string body,
                       std::string& reply, long timeout, bool /*unused*/, bool /*unused*/,
                       int /*unused*/, char** /*unused*/)
{
    return host::call_service(host::http::verb::post, host, port, path, nullptr, std::move(body),
                              reply, timeout);
}

long rova_DELETE_request(const char* host, int port, const char* path, query_object* query,
                         std::string& reply, long timeout, bool /*unused*/, bool /*unused*/,
                         int /*unused*/, char** /*unused*/)
{
    return host::call_service(host::http::verb::delete_, host, port, path, query, "", reply,
                              timeout);
}
