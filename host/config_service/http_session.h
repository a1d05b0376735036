// One client's connection.
#pragma once

#include <array>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>
#include <functional>
#include <memory>
#include <optional>

#include "host/config_service/http_message.h"

namespace host
{

using RequestHandler = std::function<HttpReply(const HttpRequest&)>;

// Reads requests and answers them until the client disconnects. A request that violates HTTP or the
// limits (a header of 8 KiB, a body of 64 KiB), or that a page in a browser could send, is refused
// here; a client that does not send a whole request within 10 s or receive its reply within 30 s is
// disconnected. The session exists as long as it is waiting for its client.
class HttpSession : public std::enable_shared_from_this<HttpSession>
{
 public:
    // `on_end` is called once, when the session is over. `handler` must outlive the session.
    HttpSession(boost::asio::ip::tcp::socket socket, const RequestHandler& handler,
                std::function<void()> on_end);

    // Waits for the next request.
    void read();

 private:
    void on_read(const boost::system::error_code& error);
    void refuse(const boost::system::error_code& error);
    void write(HttpReply reply, bool keep_alive);
    void close();
    void drain();

    boost::beast::tcp_stream stream_;
    const RequestHandler& handler_;
    std::function<void()> on_end_;
    boost::beast::flat_buffer buffer_;
    std::optional<boost::beast::http::request_parser<boost::beast::http::string_body>> parser_;
    boost::beast::http::response<boost::beast::http::string_body> response_;
    std::array<char, 4096> unread_{};
};

}  // namespace host
