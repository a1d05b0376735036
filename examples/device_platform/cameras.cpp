// The camera configuration: cameras on a few channels.
#include <cstdio>

#include "platform/camera_config.h"

int get_cmsvr_conf_array(st_cmsvr_conf_array& array)
{
    constexpr int CHANNELS[] = {0, 1, 2, 3, 4, 5, 191};
    for (const int channel : CHANNELS) {
        array[channel].camera_added = 1;
        std::snprintf(array[channel].camera_guid, sizeof array[channel].camera_guid, "CA3E7A%026d",
                      channel);
    }
    return 0;
}
