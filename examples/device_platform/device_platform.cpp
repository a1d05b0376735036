// The smallest platform that conforms to the headers of the seam: cameras from a list, callers that
// the web server has authenticated, the log on standard error, and no configuration service.
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string_view>

#include "platform/camera_config.h"
#include "platform/cgi_input.h"
#include "platform/cgi_support.h"
#include "platform/config_client.h"
#include "platform/device_utility.h"
#include "platform/rule_library.h"
#include "platform/rule_log.h"

struct tagINPUT {
    std::map<std::string, std::string> values;
    st_cgi_parameter found;
};

namespace
{

constexpr long CANNOT_CONNECT = -1;
constexpr int CAMERA_CHANNELS[] = {0, 1, 2, 3, 4, 5, 191};

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
    input->found = {entry->first.c_str(), entry->second.c_str()};
    return &input->found;
}

void CGI_Free_Input(tagINPUT* input)
{
    std::unique_ptr<tagINPUT>{input}.reset();
}

// NOLINTNEXTLINE(readability-non-const-parameter): the signature is the seam's
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
    if (user == nullptr || *user == '\0') {
        return 1;
    }
    std::snprintf(info->user_name, sizeof info->user_name, "%s", user);
    return 0;
}

int get_cmsvr_conf_array(st_cmsvr_conf_array& array)
{
    for (const int channel : CAMERA_CHANNELS) {
        array[channel].camera_added = 1;
        std::snprintf(array[channel].camera_guid, sizeof array[channel].camera_guid, "CA3E7A%026d",
                      channel);
    }
    return 0;
}

long rova_GET_request(const char*, int, const char*, query_object*, std::string&, long, bool, bool,
                      int, char**)
{
    return CANNOT_CONNECT;
}

long rova_POST_request(const char*, int, const char*, std::string, std::string&, long, bool, bool,
                       int, char**)
{
    return CANNOT_CONNECT;
}

long rova_DELETE_request(const char*, int, const char*, query_object*, std::string&, long, bool,
                         bool, int, char**)
{
    return CANNOT_CONNECT;
}

int get_all_rules(json_object** /*out*/)
{
    return CANNOT_CONNECT;
}

int b64_encode_v2(const unsigned char* data, size_t length, std::string& encoded)
{
    constexpr char ALPHABET[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (size_t i = 0; i < length; i += 3) {
        const size_t count = length - i < 3 ? length - i : 3;
        unsigned int group = 0;
        for (size_t j = 0; j < 3; ++j) {
            group = group << 8U | (j < count ? data[i + j] : 0U);
        }
        for (size_t j = 0; j < 4; ++j) {
            encoded += j <= count ? ALPHABET[group >> (18 - 6 * j) & 63U] : '=';
        }
    }
    return 0;
}

int64_t current_time_stamp()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec * 1000000 + now.tv_nsec / 1000;
}

void rule_log(const char* format, ...)
{
    char message[8192];  // a longer message is cut
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(message, sizeof message, format, arguments);
    va_end(arguments);
    if (length < 0) {
        return;
    }
    for (char* at = message; *at != '\0'; ++at) {
        const auto byte = static_cast<unsigned char>(*at);
        *at = byte < 0x20 || byte == 0x7f ? ' ' : *at;
    }
    std::fprintf(stderr, "%s\n", message);
}
