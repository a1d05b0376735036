// The list of cameras that a person writes.
#pragma once

#include <string>
#include <vector>

// Reads the channels of the list, one a line: the channel, then perhaps blanks and a name. Blank
// lines, and lines whose first character other than a blank is '#', are skipped. Throws
// std::runtime_error, with the file's name and the line, when the file cannot be read, a line is
// something else, or a channel is there twice.
std::vector<int> read_camera_list(const std::string& file);
