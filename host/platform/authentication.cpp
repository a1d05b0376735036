#include <crypt.h>
#include <nettle/memops.h>
#include <strings.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/platform/base64.h"
#include "host/platform/recorder_files.h"
#include "platform/cgi_support.h"
#include "platform/rule_log.h"

namespace host
{
namespace
{

constexpr int AUTHENTICATED = 0;
constexpr int REFUSED = 1;

struct Credentials {
    std::string user;
    std::string password;
};

struct UserEntry {
    std::string user;
    std::string hash;
};

// Reads "Basic <base64 of user:password>". Nothing when `header` has any other form.
std::optional<Credentials> read_credentials(const char* header)
{
    constexpr std::string_view SCHEME = "Basic ";
    if (::strncasecmp(header, SCHEME.data(), SCHEME.size()) != 0) {
        return std::nullopt;
    }
    std::string_view token = header + SCHEME.size();
    token.remove_prefix(std::min(token.find_first_not_of(' '), token.size()));
    const auto text = decode_base64(token);
    const size_t colon = text ? text->find(':') : std::string::npos;
    if (colon == std::string::npos || text->find('\0') != std::string::npos) {
        return std::nullopt;
    }
    return Credentials{text->substr(0, colon), text->substr(colon + 1)};
}

// Whether crypt(3) accepts the hash. It does not accept that of a disabled account.
bool usable_hash(const std::string& hash)
{
    const int result = ::crypt_checksalt(hash.c_str());
    return result != CRYPT_SALT_INVALID && result != CRYPT_SALT_METHOD_DISABLED;
}

std::vector<UserEntry> read_entries(std::string_view text)
{
    std::vector<UserEntry> entries;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        const size_t colon = line.find(':');
        if (colon != std::string_view::npos && colon > 0 && line.front() != '#') {
            UserEntry entry{std::string(line.substr(0, colon)),
                            std::string(line.substr(colon + 1))};
            if (usable_hash(entry.hash)) {
                entries.push_back(std::move(entry));
            }
        }
        text.remove_prefix(std::min(line.size() + 1, text.size()));
    }
    return entries;
}

// The usable entries of the users file. Logs the reason if there are none.
std::vector<UserEntry> load_users()
{
    std::string error = "no usable entry in the users file";
    const auto text = read_recorder_file("users", error);
    auto entries = text ? read_entries(*text) : std::vector<UserEntry>();
    if (entries.empty()) {
        rule_log("Authentication: %s", error.c_str());
    }
    return entries;
}

bool password_matches(const std::string& password, const std::string& hash)
{
    const auto data = std::make_unique<crypt_data>();
    const char* digest = ::crypt_rn(password.c_str(), hash.c_str(), data.get(), sizeof(crypt_data));
    return digest != nullptr && std::strlen(digest) == hash.size() &&
           ::memeql_sec(digest, hash.data(), hash.size()) != 0;
}

// An unknown user is checked against another entry, so that the answer takes the same time.
bool user_accepted(const std::vector<UserEntry>& users, const Credentials& credentials)
{
    const auto entry = std::find_if(users.begin(), users.end(), [&](const UserEntry& each) {
        return each.user == credentials.user;
    });
    const bool known = entry != users.end();
    const std::string& hash = known ? entry->hash : users.front().hash;
    return password_matches(credentials.password, hash) && known;
}

}  // namespace
}  // namespace host

int cgi_check_user_authentication_v3(tagINPUT* /*input*/, t_vistra_auth_info* info,
                                     unsigned int /*what*/)
{
    const char* header = std::getenv("HTTP_AUTHORIZATION");
    const auto credentials = header != nullptr ? host::read_credentials(header) : std::nullopt;
    if (!credentials) {
        rule_log("Authentication: no usable Basic credentials in the request");
        return host::REFUSED;
    }
    const auto users = host::load_users();
    if (users.empty()) {
        return host::REFUSED;
    }
    if (!host::user_accepted(users, *credentials) ||
        credentials->user.size() >= sizeof info->user_name) {
        rule_log("Authentication: user [%s] refused", credentials->user.c_str());
        return host::REFUSED;
    }
    credentials->user.copy(info->user_name, sizeof info->user_name - 1);
    return host::AUTHENTICATED;
}
