// The files of the host recorder. All of them are in one directory, which the environment variable
// RULE_RECORDER_DIR names.
#pragma once

#include <optional>
#include <string>

namespace host
{

// The path of the recorder's file `name`. Nothing when no directory is set.
std::optional<std::string> recorder_path(const char* name);

// The content of the recorder's file `name`, a regular file of at most 1 MiB. Nothing when it
// cannot be read; `error` then names the file and says why.
std::optional<std::string> read_recorder_file(const char* name, std::string& error);

}  // namespace host
