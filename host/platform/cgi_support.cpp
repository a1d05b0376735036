#include "platform/cgi_support.h"

#include <csignal>
#include <string_view>

void register_signal_handler()
{
    struct sigaction action = {};
    action.sa_handler = SIG_IGN;
    ::sigaction(SIGPIPE, &action, nullptr);
    ::sigaction(SIGXFSZ, &action, nullptr);  // raised when the log has reached a file size limit
}

// NOLINTNEXTLINE(readability-non-const-parameter): the signature is the header's
int cgi_uri_token_paser(char* path, std::vector<std::string>* tokens)
{
    std::string_view rest = path != nullptr ? path : "";
    while (!rest.empty()) {
        const std::string_view token = rest.substr(0, rest.find('/'));
        if (!token.empty()) {
            tokens->emplace_back(token);
        }
        rest.remove_prefix(token.size() == rest.size() ? token.size() : token.size() + 1);
    }
    return 0;
}
