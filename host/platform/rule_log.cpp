#include "platform/rule_log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <boost/locale/utf.hpp>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <exception>
#include <string>
#include <string_view>

#include "host/platform/recorder_files.h"
#include "platform/device_utility.h"

namespace host
{
namespace
{

namespace utf = boost::locale::utf;

constexpr size_t MAX_MESSAGE_LENGTH = 32UL * 1024;

// The log file, or standard error.
int open_log()
{
    const auto path = recorder_path("rule.log");
    constexpr int FLAGS = O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY;
    const int descriptor = path ? ::open(path->c_str(), FLAGS, S_IRUSR | S_IWUSR) : -1;
    return descriptor >= 0 ? descriptor : STDERR_FILENO;
}

// Whether the log ends within a line, as after a full disk.
bool ends_within_line(int descriptor)
{
    struct stat status = {};
    char last = '\n';
    return ::fstat(descriptor, &status) == 0 && status.st_size > 0 &&
           ::pread(descriptor, &last, 1, status.st_size - 1) == 1 && last != '\n';
}

std::string line_start()
{
    const int64_t microseconds = current_time_stamp();
    const time_t seconds = microseconds / 1000000;
    std::tm utc{};
    ::gmtime_r(&seconds, &utc);
    char text[96];
    const size_t end = std::strftime(text, sizeof text, "%FT%T", &utc);
    (void)std::snprintf(text + end, sizeof text - end, ".%06dZ [%d] ",
                        static_cast<int>(microseconds % 1000000), static_cast<int>(::getpid()));
    return text;
}

// Each byte as a backslash and a letter, or "\x" and two digits.
void append_escaped(std::string& line, std::string_view bytes)
{
    constexpr std::string_view NAMED = "\n\r\t\\";
    constexpr std::string_view LETTERS = "nrt\\";
    for (const char byte : bytes) {
        const size_t name = NAMED.find(byte);
        char text[8];
        if (name != std::string_view::npos) {
            (void)std::snprintf(text, sizeof text, "\\%c", LETTERS[name]);
        } else {
            (void)std::snprintf(text, sizeof text, "\\x%02x", static_cast<unsigned char>(byte));
        }
        line += text;
    }
}

bool is_printable(utf::code_point character)
{
    const bool is_control = character < 0x20 || (character >= 0x7f && character < 0xa0);
    return utf::is_valid_codepoint(character) && !is_control && character != '\\';
}

void append_message(std::string& line, std::string_view message)
{
    const char* next = message.data();
    const char* const end = next + message.size();
    while (next != end) {
        const char* const first = next;
        const utf::code_point character = utf::utf_traits<char>::decode(next, end);
        if (!utf::is_valid_codepoint(character)) {
            next = first + 1;
        }
        const std::string_view bytes(first, static_cast<size_t>(next - first));
        if (is_printable(character)) {
            line += bytes;
        } else {
            append_escaped(line, bytes);
        }
    }
}

// The message on a line, cut at the limit.
std::string compose_line(const char* format, va_list arguments)
{
    std::string message(MAX_MESSAGE_LENGTH, '\0');
    const int length =
        std::max(0, std::vsnprintf(message.data(), MAX_MESSAGE_LENGTH + 1, format, arguments));
    const bool is_cut = static_cast<size_t>(length) > MAX_MESSAGE_LENGTH;
    message.resize(is_cut ? MAX_MESSAGE_LENGTH : static_cast<size_t>(length));
    if (!message.empty() && message.back() == '\n') {
        message.pop_back();
    }
    std::string line = line_start();
    append_message(line, message);
    return line + (is_cut ? "... (" + std::to_string(length) + " bytes)\n" : "\n");
}

// A line that cannot be written is lost: there is no other place to report it.
void write_line(std::string line)
{
    static const int descriptor = open_log();
    static bool is_within_line = ends_within_line(descriptor);
    if (is_within_line) {
        line.insert(0, 1, '\n');
    }
    const ssize_t written = ::write(descriptor, line.data(), line.size());
    if (written > 0) {
        is_within_line = static_cast<size_t>(written) < line.size();
    }
}

}  // namespace
}  // namespace host

void rule_log(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    try {
        host::write_line(host::compose_line(format, arguments));
    } catch (const std::exception&) {
        std::fputs("A log message was lost: out of memory\n", stderr);
    }
    va_end(arguments);
}
