// The camera configuration cache: which channels of the recorder have a camera.
//
// The layout is the cache's, byte for byte, and contains no number wider than a byte.
#pragma once

#include <cstddef>
#include <type_traits>

// Channels run from 0 to MAX_NVR_CHANNEL_NO - 1.
constexpr int MAX_NVR_CHANNEL_NO = 192;

// One channel.
struct st_cmsvr_conf_element {
    unsigned char camera_added;  // bit 0: a camera is configured; the other bits are ignored
    unsigned char reserved[87];
    // Text up to its zero byte, or to the end of the element without one. It goes into XML as it
    // is, so it must not contain '<', '&' or quotation marks. Characters 28 to 31, counted from 0,
    // must be the channel in decimal ("0003"): duplicate rules are recognised by them.
    char camera_guid[3632];
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

// Fills `array`, which is all zero, with the current camera configuration. Called right after
// `CGI_Get_Input_URL`, before authentication. Returns 0 on success, any other value on failure;
// `array` may then be partly filled, and the process ends without a response and with that value as
// its exit status (a multiple of 256 looks like success).
int get_cmsvr_conf_array(st_cmsvr_conf_array& array);
