// An HTTP service that misbehaves as it is told to: one connection, a list of steps.
#pragma once

#include <string>
#include <thread>
#include <vector>

struct ServerStep {
    std::string bytes;  // sent `times` times, each after a pause
    int times = 1;
    int pause_ms = 0;
};

// What happens to the connection after the last step.
enum class ServerEnd { close, reset, hold };

class ScriptedServer
{
 public:
    explicit ScriptedServer(std::vector<ServerStep> steps, ServerEnd end = ServerEnd::close,
                            bool read_request = true);
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;
    ~ScriptedServer();

    int port() const { return port_; }

    // What the client sent; waits for the connection's end.
    const std::string& request();

 private:
    void serve(const std::vector<ServerStep>& steps, ServerEnd end, bool read_request);

    int listener_ = -1;
    int stop_[2] = {-1, -1};  // a pipe whose closing ends a held connection
    int port_ = 0;
    std::string request_;
    std::thread thread_;
};
