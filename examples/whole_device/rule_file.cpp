#include "examples/whole_device/rule_file.h"

#include <fcntl.h>
#include <json/reader.h>
#include <json/writer.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace device
{

namespace
{

constexpr const char* RULES = "rules.json";
constexpr const char* NEW_RULES = "rules.new";
constexpr const char* LOCK = "rules.lock";
constexpr size_t MAX_SIZE = 32UL * 1024 * 1024;

[[noreturn]] void fail(const std::string& what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

class File
{
 public:
    // The file of that name in `directory`, or relative to the working directory for AT_FDCWD.
    File(int directory, const char* name, int flags)
        : descriptor_(::openat(directory, name, flags | O_CLOEXEC, S_IRUSR | S_IWUSR))
    {
        if (descriptor_ < 0) {
            fail(name);
        }
    }
    ~File() { ::close(descriptor_); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    int get() const { return descriptor_; }

 private:
    int descriptor_;
};

File open_directory()
{
    const char* const path = std::getenv("RULE_RECORDER_DIR");
    if (path == nullptr) {
        throw std::runtime_error("there is no RULE_RECORDER_DIR");
    }
    return {AT_FDCWD, path, O_RDONLY | O_DIRECTORY};
}

void lock(const File& file, long seconds)
{
    constexpr useconds_t PAUSE_MICROSECONDS = 5000;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK || std::chrono::steady_clock::now() >= end) {
            fail(LOCK);
        }
        ::usleep(PAUSE_MICROSECONDS);
    }
}

void check_size(const std::string& text)
{
    if (text.size() > MAX_SIZE) {
        throw std::length_error("the list of rules is too long");
    }
}

// Afterwards the file has the text. If the call throws, it is the old file or, when only the
// directory could not be synced, the new one.
void replace_rule_list(int directory, std::string_view text)
{
    const File file(directory, NEW_RULES, O_WRONLY | O_CREAT | O_TRUNC);
    while (!text.empty()) {
        const ssize_t length = ::write(file.get(), text.data(), text.size());
        if (length < 0) {
            fail(NEW_RULES);
        }
        text.remove_prefix(static_cast<size_t>(length));
    }
    if (::fsync(file.get()) != 0 || ::renameat(directory, NEW_RULES, directory, RULES) != 0 ||
        ::fsync(directory) != 0) {
        fail(RULES);
    }
}

}  // namespace

Json::Value parse_json(const std::string& text)
{
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value document;
    if (!reader->parse(text.data(), text.data() + text.size(), &document, nullptr)) {
        throw std::runtime_error("not JSON");
    }
    return document;
}

std::string read_rule_list()
{
    const File directory = open_directory();
    struct stat status = {};
    if (::fstatat(directory.get(), RULES, &status, 0) != 0 && errno == ENOENT) {
        return R"({"ruleList": []})";
    }
    const File file(directory.get(), RULES, O_RDONLY);
    std::string text;
    char part[16384];
    ssize_t length = 0;
    while ((length = ::read(file.get(), part, sizeof part)) > 0) {
        text.append(part, static_cast<size_t>(length));
        check_size(text);
    }
    if (length < 0) {
        fail(RULES);
    }
    return text;
}

void change_rules(long seconds, const std::function<void(Json::Value& rules)>& change)
{
    const File directory = open_directory();
    const File lock_file(directory.get(), LOCK, O_RDWR | O_CREAT);
    lock(lock_file, seconds);
    Json::Value document = parse_json(read_rule_list());
    change(document["ruleList"]);
    // In ASCII: bytes of a name that are not UTF-8 become U+FFFD.
    const std::string text = Json::writeString(Json::StreamWriterBuilder(), document);
    check_size(text);
    replace_rule_list(directory.get(), text);
}

}  // namespace device
