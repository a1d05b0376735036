#include "host/platform/recorder_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>

namespace host
{
namespace
{

constexpr off_t MAX_FILE_SIZE = 1024L * 1024L;

// Owns an open file descriptor.
class FileDescriptor
{
 public:
    explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor()
    {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
        }
    }

    int get() const { return descriptor_; }

 private:
    int descriptor_;
};

std::optional<std::string> read_file(const std::string& path, std::string& error)
{
    // Without O_NONBLOCK the opening of a pipe would wait for its writer.
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status = {};
    if (file.get() < 0 || ::fstat(file.get(), &status) != 0) {
        error = std::generic_category().message(errno);
        return std::nullopt;
    }
    if (!S_ISREG(status.st_mode) || status.st_size > MAX_FILE_SIZE) {
        error = "not a regular file of at most 1 MiB";
        return std::nullopt;
    }
    std::string text(static_cast<size_t>(status.st_size), '\0');
    for (size_t filled = 0; filled < text.size();) {
        const ssize_t count = ::read(file.get(), text.data() + filled, text.size() - filled);
        if (count <= 0) {
            error = count < 0 ? std::generic_category().message(errno) : "it ends too early";
            return std::nullopt;
        }
        filled += static_cast<size_t>(count);
    }
    return text;
}

}  // namespace

std::optional<std::string> recorder_path(const char* name)
{
    const char* directory = std::getenv("RULE_RECORDER_DIR");
    if (directory == nullptr || *directory == '\0') {
        return std::nullopt;
    }
    return std::string(directory) + '/' + name;
}

std::optional<std::string> read_recorder_file(const char* name, std::string& error)
{
    const auto path = recorder_path(name);
    if (!path) {
        error = "RULE_RECORDER_DIR is not set";
        return std::nullopt;
    }
    auto text = read_file(*path, error);
    if (!text) {
        error = *path + ": " + error;
    }
    return text;
}

}  // namespace host
