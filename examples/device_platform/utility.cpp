// Base64, the clock, and the log on standard error.
#include <cstdarg>
#include <cstdio>
#include <ctime>

#include "platform/device_utility.h"
#include "platform/rule_log.h"

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
