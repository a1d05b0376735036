#include "host/platform/query.h"

#include <algorithm>
#include <charconv>

namespace host
{
namespace
{

constexpr std::string_view UNRESERVED =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";

// Anything that is not an escape remains unchanged.
std::string decode(std::string_view text)
{
    std::string decoded;
    while (!text.empty()) {
        const char* const digits = text.data() + 1;
        unsigned char byte = 0;
        if (text[0] == '%' && text.size() > 2 &&
            std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2) {
            decoded += static_cast<char>(byte);
            text.remove_prefix(3);
        } else {
            decoded += text[0] == '+' ? ' ' : text[0];
            text.remove_prefix(1);
        }
    }
    return decoded;
}

}  // namespace

std::vector<QueryParameter> split_query(std::string_view query)
{
    std::vector<QueryParameter> parameters;
    while (!query.empty() && query.find("%00") == std::string_view::npos) {
        const std::string_view parameter = query.substr(0, query.find('&'));
        query.remove_prefix(std::min(parameter.size() + 1, query.size()));
        if (!parameter.empty()) {
            const std::string_view name = parameter.substr(0, parameter.find('='));
            const size_t value = std::min(name.size() + 1, parameter.size());
            parameters.push_back({decode(name), decode(parameter.substr(value))});
        }
    }
    return parameters;
}

std::string encode_query_text(std::string_view text)
{
    constexpr char DIGITS[] = "0123456789ABCDEF";
    std::string encoded;
    for (const char c : text) {
        if (UNRESERVED.find(c) != std::string_view::npos) {
            encoded += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            encoded.append({'%', DIGITS[byte / 16], DIGITS[byte % 16]});
        }
    }
    return encoded;
}

}  // namespace host
