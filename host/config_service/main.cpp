// The configuration service of the host recorder.
#include <charconv>
#include <csignal>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>

#include "host/config_service/http_server.h"
#include "host/config_service/service.h"

namespace
{

constexpr uint16_t DEFAULT_PORT = 10141;

struct Options {
    std::string database;
    uint16_t port = DEFAULT_PORT;
};

bool read_port(std::string_view text, uint16_t& port)
{
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, port);
    return error == std::errc() && rest == end;
}

std::optional<Options> read_options(int count, char** arguments)
{
    Options options;
    for (int i = 1; i < count; i += 2) {
        const std::string_view name = arguments[i];
        const std::string_view value = i + 1 < count ? arguments[i + 1] : "";
        if (name == "--database") {
            options.database = value;
        } else if (name != "--port" || !read_port(value, options.port)) {
            return std::nullopt;
        }
    }
    if (options.database.empty()) {
        return std::nullopt;
    }
    return options;
}

void serve_clients(const Options& options)
{
    // Writing beyond a limit on the size of files then fails as on a full disk.
    std::signal(SIGXFSZ, SIG_IGN);
    Store store(options.database);
    HttpServer server(options.port,
                      [&](const HttpRequest& request) { return serve(store, request); });
    std::cout << "configuration service listening on 127.0.0.1:" << server.port() << std::endl;
    server.run();
}

}  // namespace

int main(int count, char** arguments)
{
    const std::optional<Options> options = read_options(count, arguments);
    if (!options) {
        std::cerr << "usage: config_service --database FILE [--port N]\n";
        return 1;
    }
    try {
        serve_clients(*options);
    } catch (const boost::system::system_error& failure) {
        std::cerr << "config_service: port " << options->port
                  << " of 127.0.0.1: " << failure.code().message() << '\n';
        return 1;
    } catch (const std::exception& failure) {
        std::cerr << "config_service: " << options->database << ": " << failure.what() << '\n';
        return 1;
    }
    return 0;
}
