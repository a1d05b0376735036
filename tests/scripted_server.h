// An HTTP service that misbehaves as it is told to: one connection, one request, a list of steps.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>
#include <string>
#include <thread>
#include <vector>

struct ServerStep {
    std::string bytes;  // sent `times` times, each after a pause
    int times = 1;
    int pause_ms = 0;
};

// What happens to the connection after the last step; `hold` waits for the client to close it.
enum class ServerEnd { close, reset, hold };

class ScriptedServer
{
 public:
    explicit ScriptedServer(std::vector<ServerStep> steps, ServerEnd end = ServerEnd::close);
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;
    ~ScriptedServer() { thread_.join(); }  // the client must have connected

    int port() const { return acceptor_.local_endpoint().port(); }

    // What the client sent; complete once it has its reply.
    const auto& request() const { return request_; }

 private:
    void serve(const std::vector<ServerStep>& steps, ServerEnd end);

    boost::asio::io_context context_;
    boost::asio::ip::tcp::acceptor acceptor_;
    boost::beast::http::request<boost::beast::http::string_body> request_;
    std::thread thread_;
};
