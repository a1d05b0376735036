#include "platform/camera_config.h"

#include <string>

#include "host/platform/recorder_files.h"
#include "host/platform/result_codes.h"
#include "platform/rule_log.h"

namespace
{

int cache_failure(const std::string& path, const std::string& reason, int code)
{
    rule_log("Camera configuration: %s: %s", path.c_str(), reason.c_str());
    return code;
}

}  // namespace

int get_cmsvr_conf_array(st_cmsvr_conf_array& array)
{
    const auto path = host::recorder_path("camera.cache");
    if (!path) {
        return cache_failure("camera.cache", "RULE_RECORDER_DIR is not set",
                             host::NO_RECORDER_DIRECTORY);
    }
    std::string error;
    const auto file = host::open_input(*path, error);
    if (!file) {
        return cache_failure(*path, error, host::CANNOT_OPEN_CACHE);
    }
    if (file->size != sizeof array) {
        error = std::to_string(file->size) + " bytes instead of " + std::to_string(sizeof array);
        return cache_failure(*path, error, host::WRONG_CACHE_SIZE);
    }
    if (!host::read_exactly(*file, &array, sizeof array, error)) {
        return cache_failure(*path, error, host::CANNOT_READ_CACHE);
    }
    return 0;
}
