#include "host/config_service/http_server.h"

#include <boost/asio/signal_set.hpp>
#include <chrono>
#include <csignal>
#include <utility>

#include "host/common/config_service.h"

namespace host
{

namespace asio = boost::asio;
using asio::ip::tcp;

namespace
{

constexpr int MAX_SESSIONS = 64;
constexpr std::chrono::milliseconds ACCEPT_PAUSE{100};

}  // namespace

HttpServer::HttpServer(RequestHandler handler)
    : acceptor_(context_, tcp::endpoint(asio::ip::make_address_v4(SERVICE_ADDRESS), SERVICE_PORT)),
      pause_(context_),
      handler_(std::move(handler))
{
}

void HttpServer::run()
{
    asio::signal_set signals(context_, SIGTERM, SIGINT);
    signals.async_wait([this](const boost::system::error_code&, int) { context_.stop(); });
    accept();
    context_.run();
}

void HttpServer::accept()
{
    acceptor_.async_accept([this](const boost::system::error_code& error, tcp::socket socket) {
        if (error) {
            accept_later();
            return;
        }
        start_session(std::move(socket));
        if (sessions_ < MAX_SESSIONS) {
            accept();
        }
    });
}

// The pause after a failure that would repeat at once, such as a lack of descriptors.
void HttpServer::accept_later()
{
    pause_.expires_after(ACCEPT_PAUSE);
    pause_.async_wait([this](const boost::system::error_code&) { accept(); });
}

void HttpServer::start_session(tcp::socket socket)
{
    ++sessions_;
    std::make_shared<HttpSession>(std::move(socket), handler_, [this] { end_session(); })->read();
}

void HttpServer::end_session()
{
    if (sessions_-- == MAX_SESSIONS) {
        accept();
    }
}

}  // namespace host
