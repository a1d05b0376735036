// The camera configuration cache: which channels of the recorder have a camera.
//
// The layout is the cache's, byte for byte, and holds no number wider than a byte.
#pragma once

#include <cstddef>
#include <type_traits>

// Channels run from 0 to MAX_NVR_CHANNEL_NO - 1.
constexpr int MAX_NVR_CHANNEL_NO = 192;

// One channel.
struct st_cmsvr_conf_element {
    unsigned char camera_added;  // bit 0: a camera is configured; the other bits mean nothing here
    unsigned char reserved[87];
    char camera_guid[3632];  // text up to its zero byte, or to the end of the element without one
};

// The table of all channels. All zero: no channel has a camera.
struct st_cmsvr_conf_array {
    st_cmsvr_conf_element channels[MAX_NVR_CHANNEL_NO];

    // The element of channel `idx`, which must be in 0 .. MAX_NVR_CHANNEL_NO - 1.
    st_cmsvr_conf_element& operator[](int idx) { return channels[idx]; }
    const st_cmsvr_conf_element& operator[](int idx) const { return channels[idx]; }
};

static_assert(offsetof(st_cmsvr_conf_element, camera_added) == 0);
static_assert(offsetof(st_cmsvr_conf_element, camera_guid) == 88);
static_assert(sizeof(st_cmsvr_conf_element) == 3720);
static_assert(sizeof(st_cmsvr_conf_array) == 714240);
static_assert(std::is_trivial_v<st_cmsvr_conf_array>);

// Fills `array`, which is all zero, with the camera configuration of this moment. Returns 0 on
// success, any other value on failure; `array` may then be partly filled.
int get_cmsvr_conf_array(st_cmsvr_conf_array& array);
