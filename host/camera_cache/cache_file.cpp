#include "host/camera_cache/cache_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <system_error>

namespace
{

constexpr char GUID_PREFIX[] = "CA3E7A000000000000000000C0DE";
static_assert(sizeof GUID_PREFIX == 28 + 1);

constexpr mode_t FILE_MODE = 0644;

[[noreturn]] void fail(const std::string& file)
{
    throw std::system_error(errno, std::generic_category(), file);
}

// A new file beside the one it is to replace; removed again unless it has done so.
class Replacement
{
 public:
    explicit Replacement(const std::string& file)
        : file_(file), name_(file + ".XXXXXX"), descriptor_(mkstemp(name_.data()))
    {
        if (descriptor_ < 0) {
            fail(name_);
        }
    }
    ~Replacement()
    {
        close(descriptor_);
        if (!done_) {
            unlink(name_.c_str());
        }
    }
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

    void write_all(const char* bytes, size_t size)
    {
        while (size > 0) {
            const ssize_t written = write(descriptor_, bytes, size);
            if (written < 0) {
                fail(name_);
            }
            bytes += written;
            size -= static_cast<size_t>(written);
        }
    }

    void replace()
    {
        if (fchmod(descriptor_, FILE_MODE) != 0 || fsync(descriptor_) != 0) {
            fail(name_);
        }
        if (std::rename(name_.c_str(), file_.c_str()) != 0) {
            fail(file_);
        }
        done_ = true;
    }

 private:
    std::string file_;
    std::string name_;
    int descriptor_;
    bool done_ = false;
};

}  // namespace

void add_camera(st_cmsvr_conf_array& table, int channel)
{
    st_cmsvr_conf_element& element = table[channel];
    element.camera_added = 1;
    std::snprintf(element.camera_guid, sizeof element.camera_guid, "%s%04d", GUID_PREFIX, channel);
}

void write_cache_file(const std::string& file, const st_cmsvr_conf_array& table)
{
    Replacement replacement(file);
    replacement.write_all(reinterpret_cast<const char*>(&table), sizeof table);
    replacement.replace();
}
