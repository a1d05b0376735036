#include "tests/scripted_server.h"

#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/read.hpp>
#include <chrono>

namespace asio = boost::asio;
using asio::ip::tcp;

ScriptedServer::ScriptedServer(std::vector<ServerStep> steps, ServerEnd end)
    : acceptor_(context_, {asio::ip::address_v4::loopback(), 0}),
      thread_([this, steps = std::move(steps), end] { serve(steps, end); })
{
}

void ScriptedServer::serve(const std::vector<ServerStep>& steps, ServerEnd end)
{
    boost::system::error_code error;
    tcp::socket connection = acceptor_.accept();
    boost::beast::flat_buffer buffer;
    boost::beast::http::read(connection, buffer, request_, error);
    for (const ServerStep& step : steps) {
        for (int i = 0; i < step.times && !error; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(step.pause_ms));
            asio::write(connection, asio::buffer(step.bytes), error);
        }
    }
    if (end == ServerEnd::hold) {
        connection.wait(tcp::socket::wait_read, error);
    }
    if (end == ServerEnd::reset) {
        connection.set_option(tcp::socket::linger(true, 0));
    }
}
