#include "platform/device_utility.h"

#include <chrono>
#include <string_view>

#include "host/platform/base64.h"

int b64_encode_v2(const unsigned char* data, size_t length, std::string& encoded)
{
    encoded += host::encode_base64(std::string_view(reinterpret_cast<const char*>(data), length));
    return 0;
}

// Microseconds since the epoch.
int64_t current_time_stamp()
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}
