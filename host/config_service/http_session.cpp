#include "host/config_service/http_session.h"

#include <boost/beast/http/error.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/write.hpp>
#include <chrono>
#include <utility>

#include "host/common/config_service.h"
#include "host/config_service/reply.h"

namespace host
{

namespace asio = boost::asio;
namespace http = boost::beast::http;
using boost::system::error_code;

namespace
{

constexpr uint32_t MAX_HEADER_BYTES = 8192;
constexpr uint64_t MAX_BODY_BYTES = 65536;
constexpr size_t BUFFER_BYTES = 16384;  // more than a header; also bounds what comes between chunks
constexpr std::chrono::seconds READ_TIME{10};
constexpr std::chrono::seconds WRITE_TIME{30};
constexpr std::chrono::seconds DRAIN_TIME{2};

// Whether a program sent the request, and not a page in a browser on this machine: a page sends its
// origin, cannot send JSON without permission, and can only reach this address by another name.
bool from_program(const http::request<http::string_body>& message)
{
    const std::string authority = std::string(SERVICE_ADDRESS) + ':' + std::to_string(SERVICE_PORT);
    return message[http::field::host] == authority && message.count(http::field::origin) == 0 &&
           (message.method() != http::verb::post ||
            message[http::field::content_type] == "application/json");
}

}  // namespace

HttpSession::HttpSession(asio::ip::tcp::socket socket, const RequestHandler& handler,
                         std::function<void()> on_end)
    : stream_(std::move(socket)),
      handler_(handler),
      on_end_(std::move(on_end)),
      buffer_(BUFFER_BYTES)
{
}

void HttpSession::read()
{
    parser_.emplace();
    parser_->header_limit(MAX_HEADER_BYTES);
    parser_->body_limit(MAX_BODY_BYTES);
    stream_.expires_after(READ_TIME);
    http::async_read(
        stream_, buffer_, *parser_,
        [self = shared_from_this()](const error_code& error, size_t) { self->on_read(error); });
}

void HttpSession::on_read(const error_code& error)
{
    if (error) {
        refuse(error);
        return;
    }
    http::request<http::string_body>& message = parser_->get();
    if (!from_program(message)) {
        write(error_reply(403, ErrorCode::bad_http_request, "not a request of a program here"),
              message.keep_alive());
        return;
    }
    const HttpRequest request{std::string(message.method_string()), std::string(message.target()),
                              std::move(message.body())};
    write(handler_(request), message.keep_alive());
}

void HttpSession::refuse(const error_code& error)
{
    if (error == http::error::header_limit || error == http::error::buffer_overflow) {
        write(error_reply(431, ErrorCode::bad_http_request, "the header is too large"), false);
    } else if (error == http::error::body_limit) {
        write(error_reply(413, ErrorCode::bad_http_request, "the body is too large"), false);
    } else if (error.category() == http::make_error_code(http::error::bad_method).category() &&
               error != http::error::end_of_stream) {
        write(error_reply(400, ErrorCode::bad_http_request, "not HTTP: " + error.message()), false);
    } else {
        on_end_();
    }
}

void HttpSession::write(HttpReply reply, bool keep_alive)
{
    response_ = {};
    response_.result(static_cast<unsigned>(reply.status));
    response_.set(http::field::content_type, "application/json");
    if (!reply.allow.empty()) {
        response_.set(http::field::allow, reply.allow);
    }
    response_.version(parser_->get().version());
    response_.keep_alive(keep_alive);
    response_.body() = std::move(reply.body);
    response_.prepare_payload();
    if (parser_->get().method() == http::verb::head) {
        response_.body().clear();
    }
    stream_.expires_after(WRITE_TIME);
    http::async_write(stream_, response_,
                      [self = shared_from_this(), keep_alive](const error_code& error, size_t) {
                          if (error) {
                              self->on_end_();
                          } else if (keep_alive) {
                              self->read();
                          } else {
                              self->close();
                          }
                      });
}

// Closing while the client still sends would reset the connection and could lose the reply.
void HttpSession::close()
{
    error_code error;
    stream_.socket().shutdown(asio::ip::tcp::socket::shutdown_send, error);
    stream_.expires_after(DRAIN_TIME);
    drain();
}

void HttpSession::drain()
{
    stream_.async_read_some(asio::buffer(unread_),
                            [self = shared_from_this()](const error_code& error, size_t) {
                                if (error) {
                                    self->on_end_();
                                } else {
                                    self->drain();
                                }
                            });
}

}  // namespace host
