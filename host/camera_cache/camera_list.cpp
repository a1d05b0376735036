#include "host/camera_cache/camera_list.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <fstream>
#include <set>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "platform/camera_config.h"

namespace
{

constexpr std::string_view BLANKS = " \t\r";

std::string_view without_leading_blanks(std::string_view text)
{
    return text.substr(std::min(text.find_first_not_of(BLANKS), text.size()));
}

// The channel that `line` begins with.
int read_channel(std::string_view line)
{
    const char* const end = line.data() + line.size();
    int channel = -1;
    const auto [rest, error] = std::from_chars(line.data(), end, channel);
    if (error == std::errc::invalid_argument ||
        (rest != end && BLANKS.find(*rest) == std::string_view::npos)) {
        throw std::runtime_error("no channel number at the start of the line");
    }
    if (error != std::errc() || channel < 0 || channel >= MAX_NVR_CHANNEL_NO) {
        throw std::runtime_error("the channel is not in 0 to " +
                                 std::to_string(MAX_NVR_CHANNEL_NO - 1));
    }
    return channel;
}

void read_line(std::string_view line, std::set<int>& channels)
{
    line = without_leading_blanks(line);
    if (line.empty() || line.front() == '#') {
        return;
    }
    const int channel = read_channel(line);
    if (!channels.insert(channel).second) {
        throw std::runtime_error("channel " + std::to_string(channel) + " is there twice");
    }
}

}  // namespace

std::vector<int> read_camera_list(const std::string& file)
{
    std::ifstream list(file);
    std::set<int> channels;
    std::string line;
    for (int number = 1; std::getline(list, line); ++number) {
        try {
            read_line(line, channels);
        } catch (const std::runtime_error& failure) {
            throw std::runtime_error(file + ":" + std::to_string(number) + ": " + failure.what());
        }
    }
    if (!list.eof()) {
        throw std::system_error(errno, std::generic_category(), file);
    }
    return {channels.begin(), channels.end()};
}
