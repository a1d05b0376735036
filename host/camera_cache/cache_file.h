// The camera configuration cache as the recorder's programs read it.
#pragma once

#include <string>
#include <vector>

#include "platform/camera_config.h"

// Writes `table` to a file at one stroke: a reader finds the old file or the new one. Throws
// std::system_error, and then leaves the old file as it was.
void write_cache_file(const std::string& file, const st_cmsvr_conf_array& table);

// Puts a camera on a channel, which must be in 0 .. MAX_NVR_CHANNEL_NO - 1. Its GUID ends in the
// channel as four decimal digits.
void add_camera(st_cmsvr_conf_array& table, int channel);
