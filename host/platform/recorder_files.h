// The files of the host recorder. All of them live in one directory, which the environment variable
// RULE_RECORDER_DIR names.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace host
{

// Owns an open file descriptor.
class FileDescriptor
{
 public:
    explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept;
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    FileDescriptor& operator=(FileDescriptor&&) = delete;
    ~FileDescriptor();

    int get() const { return descriptor_; }

 private:
    int descriptor_;
};

// A regular file open for reading, and its size in bytes when it was opened.
struct InputFile {
    FileDescriptor descriptor;
    size_t size;
};

// The path of the recorder's file `name`. Nothing when no directory is set.
std::optional<std::string> recorder_path(const char* name);

// Opens a regular file. Nothing when that fails; `error` then says why, without the path.
std::optional<InputFile> open_input(const std::string& path, std::string& error);

// Reads the next `size` bytes into `data`. False when a read fails or the file ends before that;
// `error` then says why, and `data` may be partly filled.
bool read_exactly(const InputFile& file, void* data, size_t size, std::string& error);

}  // namespace host
