#include "tests/scripted_server.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

namespace
{

// Waits; false when the other end of `stop` was closed meanwhile.
bool wait(int stop, int milliseconds)
{
    pollfd watched = {stop, POLLIN, 0};
    return poll(&watched, 1, milliseconds) == 0;
}

// Reads until the head and as much of the body as its length announces have arrived.
std::string receive(int connection)
{
    std::string text;
    char buffer[65536];
    ssize_t count = 0;
    while ((count = recv(connection, buffer, sizeof buffer, 0)) > 0) {
        text.append(buffer, static_cast<size_t>(count));
        const size_t head = text.find("\r\n\r\n");
        const size_t length = text.find("Content-Length: ");
        const size_t body = length < head ? std::stoul(text.substr(length + 16)) : 0;
        if (head != std::string::npos && text.size() >= head + 4 + body) {
            break;
        }
    }
    return text;
}

}  // namespace

ScriptedServer::ScriptedServer(std::vector<ServerStep> steps, ServerEnd end, bool read_request)
    : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* const name = reinterpret_cast<sockaddr*>(&address);
    if (bind(listener_, name, length) != 0 || listen(listener_, 1) != 0 ||
        getsockname(listener_, name, &length) != 0 || pipe(stop_) != 0) {
        throw std::runtime_error("no listening socket");
    }
    port_ = ntohs(address.sin_port);
    thread_ = std::thread(
        [this, steps = std::move(steps), end, read_request] { serve(steps, end, read_request); });
}

ScriptedServer::~ScriptedServer()
{
    close(stop_[1]);
    shutdown(listener_, SHUT_RDWR);
    if (thread_.joinable()) {
        thread_.join();
    }
    close(stop_[0]);
    close(listener_);
}

const std::string& ScriptedServer::request()
{
    if (thread_.joinable()) {
        thread_.join();
    }
    return request_;
}

void ScriptedServer::serve(const std::vector<ServerStep>& steps, ServerEnd end, bool read_request)
{
    const int connection = accept(listener_, nullptr, nullptr);
    if (connection < 0) {
        return;
    }
    if (read_request) {
        request_ = receive(connection);
    }
    bool connected = true;
    for (const ServerStep& step : steps) {
        for (int i = 0; i < step.times && connected; ++i) {
            connected = wait(stop_[0], step.pause_ms) &&
                        send(connection, step.bytes.data(), step.bytes.size(), MSG_NOSIGNAL) > 0;
        }
    }
    if (end == ServerEnd::hold) {
        wait(stop_[0], -1);
    }
    if (end == ServerEnd::reset) {
        const linger at_once = {1, 0};
        setsockopt(connection, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    }
    close(connection);
}
