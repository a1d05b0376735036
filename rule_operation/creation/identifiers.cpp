#include "rule_operation/creation/identifiers.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "platform/device_utility.h"

std::string guid_rander()
{
    constexpr int DIGITS = 18;
    constexpr unsigned int PAUSE_MICROSECONDS = 100;

    std::string digits;
    std::srand(static_cast<unsigned int>(current_time_stamp() % 100));
    for (int i = 0; i < DIGITS; ++i) {
        const int r = std::rand();
        usleep(PAUSE_MICROSECONDS);
        digits += "0123456789ABCDEF"[r % 16];
    }
    return digits;
}

std::string derive_guid(const TObjectKind& kind, int channel)
{
    char text[1024];
    std::snprintf(text, sizeof text, "%s%s%04X", kind.guid_prefix, guid_rander().c_str(),
                  static_cast<unsigned int>(channel));
    return text;
}

std::string profile_name(const TObjectKind& kind, int channel)
{
    char text[1024];
    std::snprintf(text, sizeof text, "%s%04d", kind.name, channel);
    return text;
}
