#include "rule_operation/creation/identifiers.h"

#include <sys/prctl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "platform/device_utility.h"

std::string guid_rander()
{
    constexpr int DIGITS = 18;
    constexpr unsigned int PAUSE_MICROSECONDS = 100;

    // By default the kernel lets a pause last 50 microseconds longer than asked for.
    prctl(PR_SET_TIMERSLACK, 1UL);

    std::string digits;
    std::srand(static_cast<unsigned int>(current_time_stamp() % 100));
    for (int i = 0; i < DIGITS; ++i) {
        const int r = std::rand();
        usleep(PAUSE_MICROSECONDS);
        digits += "0123456789ABCDEF"[r % 16];
    }
    return digits;
}

namespace identifiers
{

std::string derive_guid(const char* prefix, int channel)
{
    char text[1024];
    std::snprintf(text, sizeof text, "%s%s%04X", prefix, guid_rander().c_str(),
                  static_cast<unsigned int>(channel));
    return text;
}

std::string profile_name(const char* kind, int channel)
{
    char text[1024];
    std::snprintf(text, sizeof text, "%s%04d", kind, channel);
    return text;
}

}  // namespace identifiers
