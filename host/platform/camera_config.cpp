#include "platform/camera_config.h"

#include <algorithm>
#include <bitset>
#include <charconv>
#include <cstdio>
#include <string>
#include <string_view>

#include "host/platform/recorder_files.h"
#include "host/platform/result_codes.h"
#include "platform/rule_log.h"

namespace host
{
namespace
{

using Channels = std::bitset<MAX_NVR_CHANNEL_NO>;

constexpr std::string_view BLANKS = " \t\r";

// Reads the channel at the beginning of `line`. False when there is none, or when the recorder does
// not have it; `error` then says which.
bool read_channel(std::string_view line, int& channel, std::string& error)
{
    const char* const end = line.data() + line.size();
    const auto [rest, outcome] = std::from_chars(line.data(), end, channel);
    if (outcome == std::errc::invalid_argument ||
        (rest != end && BLANKS.find(*rest) == std::string_view::npos)) {
        error = "no channel number at the start of the line";
        return false;
    }
    if (outcome != std::errc() || channel < 0 || channel >= MAX_NVR_CHANNEL_NO) {
        error = "the channel is not in 0 to " + std::to_string(MAX_NVR_CHANNEL_NO - 1);
        return false;
    }
    return true;
}

// A camera's GUID ends in its channel as four decimal digits.
void add_camera(st_cmsvr_conf_element& element, int channel)
{
    element.camera_added = 1;
    std::snprintf(element.camera_guid, sizeof element.camera_guid,
                  "CA3E7A000000000000000000C0DE%04d", channel);
}

// Adds the camera of one line, which is the channel, optionally followed by blanks and a name.
// Blank lines and those that begin with '#' add none. False when the line is malformed or its
// channel is one of `added`; `error` then says why.
bool read_line(std::string_view line, st_cmsvr_conf_array& array, Channels& added,
               std::string& error)
{
    line.remove_prefix(std::min(line.find_first_not_of(BLANKS), line.size()));
    if (line.empty() || line.front() == '#') {
        return true;
    }
    int channel = -1;
    if (!read_channel(line, channel, error)) {
        return false;
    }
    if (added.test(static_cast<size_t>(channel))) {
        error = "channel " + std::to_string(channel) + " is there twice";
        return false;
    }
    added.set(static_cast<size_t>(channel));
    add_camera(array[channel], channel);
    return true;
}

}  // namespace
}  // namespace host

// The table is zero before it is loaded. Most of it is usually empty, so only the memory of cameras
// is touched.
int get_cmsvr_conf_array(st_cmsvr_conf_array& array)
{
    constexpr char LIST[] = "cameras.txt";
    std::string error;
    const auto list = host::read_recorder_file(LIST, error);
    if (!list) {
        rule_log("Camera configuration: %s", error.c_str());
        return host::CAMERAS_NOT_READ;
    }
    host::Channels added;
    std::string_view rest = *list;
    for (int number = 1; !rest.empty(); ++number) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        if (!host::read_line(line, array, added, error)) {
            rule_log("Camera configuration: %s:%d: %s", LIST, number, error.c_str());
            return host::BAD_CAMERA_LIST;
        }
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    }
    return 0;
}
