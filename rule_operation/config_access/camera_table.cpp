#include "rule_operation/config_access/camera_table.h"

#include <cstring>

st_cmsvr_conf_array camera_info_array;

std::string find_camera_guid(int channel)
{
    if (channel < 0 || channel >= MAX_NVR_CHANNEL_NO) {
        return {};
    }
    const st_cmsvr_conf_element& camera = camera_info_array[channel];
    const bool added = (camera.camera_added & 1U) != 0;
    if (!added) {
        return {};
    }
    return {camera.camera_guid, strnlen(camera.camera_guid, sizeof camera.camera_guid)};
}
