// The transport: HTTP on the loopback interface.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>

#include "host/config_service/http_session.h"

namespace host
{

// Serves several clients at once, in one thread. Clients beyond the 64th wait for a connection.
class HttpServer
{
 public:
    // Listens on SERVICE_PORT of SERVICE_ADDRESS. Throws boost::system::system_error.
    explicit HttpServer(RequestHandler handler);

    // Serves until SIGTERM or SIGINT.
    void run();

 private:
    void accept();
    void accept_later();
    void start_session(boost::asio::ip::tcp::socket socket);
    void end_session();

    boost::asio::io_context context_;
    boost::asio::ip::tcp::acceptor acceptor_;
    boost::asio::steady_timer pause_;
    RequestHandler handler_;
    int sessions_ = 0;
};

}  // namespace host
