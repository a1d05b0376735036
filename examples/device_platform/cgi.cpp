// CGI: the query, the path, and callers that the web server has authenticated.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <list>
#include <map>
#include <memory>
#include <string_view>

#include "platform/cgi_input.h"
#include "platform/cgi_support.h"

struct tagINPUT {
    std::map<std::string, std::string> values;
    std::list<st_cgi_parameter> found;
};

namespace
{

bool is_hexadecimal(std::string_view digits)
{
    return digits.size() == 2 &&
           digits.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
}

std::string decode(std::string_view text)
{
    std::string decoded;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && is_hexadecimal(text.substr(i + 1, 2))) {
            decoded +=
                static_cast<char>(std::stoi(std::string(text.substr(i + 1, 2)), nullptr, 16));
            i += 2;
        } else {
            decoded += text[i] == '+' ? ' ' : text[i];
        }
    }
    return decoded;
}

// The text up to the separator; both are removed from `rest`.
std::string_view take(std::string_view& rest, char separator)
{
    const std::string_view text = rest.substr(0, rest.find(separator));
    rest.remove_prefix(text.size() + (text.size() < rest.size() ? 1 : 0));
    return text;
}

}  // namespace

void register_signal_handler()
{
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

tagINPUT* CGI_Get_Input_URL()
{
    const char* const query = std::getenv("QUERY_STRING");
    std::string_view rest = query != nullptr ? query : "";
    auto input = std::make_unique<tagINPUT>();
    while (!rest.empty()) {
        std::string_view value = take(rest, '&');
        const std::string name = decode(take(value, '='));
        input->values.emplace(name, decode(value));
    }
    return input.release();
}

st_cgi_parameter* _CGI_Find_Parameter(tagINPUT* input, const char* name, int /*reserved*/)
{
    const auto entry = input->values.find(name);
    if (entry == input->values.end()) {
        return nullptr;
    }
    input->found.push_back({entry->first.c_str(), entry->second.c_str()});
    return &input->found.back();
}

void CGI_Free_Input(tagINPUT* input)
{
    std::unique_ptr<tagINPUT>{input}.reset();
}

// NOLINTNEXTLINE(readability-non-const-parameter): the signature is the header's
int cgi_uri_token_paser(char* path, std::vector<std::string>* tokens)
{
    for (std::string_view rest = path; !rest.empty();) {
        tokens->emplace_back(take(rest, '/'));
    }
    return 0;
}

int cgi_check_user_authentication_v3(tagINPUT* /*input*/, t_vistra_auth_info* info,
                                     unsigned int /*what*/)
{
    const char* const user = std::getenv("REMOTE_USER");
    if (user == nullptr || *user == '\0' || std::strlen(user) >= sizeof info->user_name) {
        return 1;
    }
    std::snprintf(info->user_name, sizeof info->user_name, "%s", user);
    return 0;
}
