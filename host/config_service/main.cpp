// The configuration service of the host recorder.
#include <csignal>
#include <iostream>
#include <string>
#include <string_view>

#include "host/common/config_service.h"
#include "host/config_service/http_server.h"
#include "host/config_service/service.h"

namespace host
{
namespace
{

void serve_clients(const std::string& database)
{
    // Writing beyond a file size limit then fails as on a full disk.
    std::signal(SIGXFSZ, SIG_IGN);
    Store store(database);
    HttpServer server([&](const HttpRequest& request) { return serve(store, request); });
    std::cout << "configuration service listening on " << SERVICE_ADDRESS << ':' << SERVICE_PORT
              << std::endl;
    server.run();
}

}  // namespace
}  // namespace host

int main(int count, char** arguments)
{
    if (count != 3 || std::string_view(arguments[1]) != "--database") {
        std::cerr << "usage: config_service --database FILE\n";
        return 1;
    }
    try {
        host::serve_clients(arguments[2]);
    } catch (const boost::system::system_error& failure) {
        std::cerr << "config_service: port " << host::SERVICE_PORT << " of "
                  << host::SERVICE_ADDRESS << ": " << failure.code().message() << '\n';
        return 1;
    } catch (const std::exception& failure) {
        std::cerr << "config_service: " << arguments[2] << ": " << failure.what() << '\n';
        return 1;
    }
    return 0;
}
