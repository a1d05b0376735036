#include "host/platform/recorder_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>
#include <utility>

namespace host
{
namespace
{

std::string system_error_text()
{
    return std::generic_category().message(errno);
}

}  // namespace

FileDescriptor::FileDescriptor(FileDescriptor&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1))
{
}

FileDescriptor::~FileDescriptor()
{
    if (descriptor_ >= 0) {
        ::close(descriptor_);
    }
}

std::optional<std::string> recorder_path(const char* name)
{
    const char* directory = std::getenv("RULE_RECORDER_DIR");
    if (directory == nullptr || *directory == '\0') {
        return std::nullopt;
    }
    return std::string(directory) + '/' + name;
}

std::optional<InputFile> open_input(const std::string& path, std::string& error)
{
    // Without O_NONBLOCK the opening of a pipe would wait for its writer.
    FileDescriptor descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status = {};
    if (descriptor.get() < 0 || ::fstat(descriptor.get(), &status) != 0) {
        error = system_error_text();
        return std::nullopt;
    }
    if (!S_ISREG(status.st_mode)) {
        error = "not a regular file";
        return std::nullopt;
    }
    return InputFile{std::move(descriptor), static_cast<size_t>(status.st_size)};
}

bool read_exactly(const InputFile& file, void* data, size_t size, std::string& error)
{
    char* next = static_cast<char*>(data);
    size_t missing = size;
    while (missing > 0) {
        const ssize_t count = ::read(file.descriptor.get(), next, missing);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            error = count < 0 ? system_error_text() : "the file ends too early";
            return false;
        }
        next += count;
        missing -= static_cast<size_t>(count);
    }
    return true;
}

}  // namespace host
