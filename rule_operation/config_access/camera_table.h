// The camera configuration of the recorder at the start of this process.
#pragma once

#include <string>

#include "platform/camera_config.h"

// All zero until it is loaded at start-up, read-only afterwards.
extern st_cmsvr_conf_array camera_info_array;

// The GUID of the camera on `channel`, any integer. Empty when the channel has no camera: outside
// the table, no camera added, or a camera without a GUID.
std::string find_camera_guid(int channel);
