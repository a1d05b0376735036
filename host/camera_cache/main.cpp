// Makes the camera configuration cache of the host recorder from a list of cameras.
#include <exception>
#include <iostream>
#include <memory>

#include "host/camera_cache/cache_file.h"
#include "host/camera_cache/camera_list.h"

int main(int count, char** arguments)
{
    if (count != 3) {
        std::cerr << "usage: camera_cache LIST OUTPUT\n";
        return 1;
    }
    try {
        const auto table = std::make_unique<st_cmsvr_conf_array>();
        for (const int channel : read_camera_list(arguments[1])) {
            add_camera(*table, channel);
        }
        write_cache_file(arguments[2], *table);
    } catch (const std::exception& failure) {
        std::cerr << "camera_cache: " << failure.what() << '\n';
        return 1;
    }
    return 0;
}
