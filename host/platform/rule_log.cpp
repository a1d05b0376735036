#include "platform/rule_log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/locale/utf.hpp>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <exception>
#include <string>
#include <string_view>
#include <utility>

#include "host/platform/recorder_files.h"

namespace host
{
namespace
{

namespace utf = boost::locale::utf;

constexpr off_t SIZE_LIMIT = 8L * 1024 * 1024;

// The log file, or standard error.
int open_log()
{
    const auto path = recorder_path("rule.log");
    if (!path) {
        return STDERR_FILENO;
    }
    constexpr mode_t MODE = 0640;
    const int descriptor =
        ::open(path->c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY, MODE);
    return descriptor >= 0 ? descriptor : STDERR_FILENO;
}

// Renames the full log file to that of the previous log, unless another process has done so, and
// makes `descriptor` that of the current log.
void rotate_log(int descriptor, const struct stat& status)
{
    const std::string path = recorder_path("rule.log").value_or("");
    struct stat current = {};
    if (::stat(path.c_str(), &current) == 0 && current.st_ino == status.st_ino) {
        ::rename(path.c_str(), (path + ".1").c_str());
    }
    const int opened = open_log();
    if (opened != STDERR_FILENO) {
        ::dup3(opened, descriptor, O_CLOEXEC);
        ::close(opened);
    }
}

std::string format_message(const char* format, va_list arguments)
{
    va_list again;
    va_copy(again, arguments);
    constexpr size_t USUAL_LENGTH = 512;
    std::string message(USUAL_LENGTH, '\0');
    const int length = std::vsnprintf(message.data(), message.size() + 1, format, arguments);
    if (length < 0) {
        message = format;
    } else {
        message.resize(static_cast<size_t>(length));
        if (message.size() > USUAL_LENGTH) {
            (void)std::vsnprintf(message.data(), message.size() + 1, format, again);
        }
    }
    va_end(again);
    return message;
}

std::string line_start()
{
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    std::tm utc{};
    ::gmtime_r(&now.tv_sec, &utc);
    char text[96];
    const int length =
        std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%06ldZ [%d] ",
                      utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min,
                      utc.tm_sec, now.tv_nsec / 1000, static_cast<int>(::getpid()));
    return {text, static_cast<size_t>(length)};
}

void append_escaped(std::string& line, std::string_view bytes)
{
    constexpr std::string_view DIGITS = "0123456789abcdef";
    for (const char character : bytes) {
        const auto byte = static_cast<unsigned char>(character);
        if (character == '\n') {
            line += "\\n";
        } else if (character == '\r') {
            line += "\\r";
        } else if (character == '\t') {
            line += "\\t";
        } else if (character == '\\') {
            line += "\\\\";
        } else {
            line += "\\x";
            line += DIGITS[byte >> 4U];
            line += DIGITS[byte & 0xfU];
        }
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

// Whether the file ends within a line, as after a full disk.
bool ends_within_line(int descriptor, const struct stat& status)
{
    char last = '\n';
    return status.st_size > 0 && ::pread(descriptor, &last, 1, status.st_size - 1) == 1 &&
           last != '\n';
}

// A message that cannot be written is lost: there is no other place to report it.
void write_line(std::string line)
{
    static const int descriptor = open_log();
    struct stat status = {};
    if (::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode)) {
        if (status.st_size >= SIZE_LIMIT && descriptor != STDERR_FILENO) {
            rotate_log(descriptor, status);
        } else if (ends_within_line(descriptor, status)) {
            line.insert(0, 1, '\n');
        }
    }
    [[maybe_unused]] const ssize_t written = ::write(descriptor, line.data(), line.size());
}

}  // namespace
}  // namespace host

void rule_log(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    try {
        std::string message = host::format_message(format, arguments);
        if (!message.empty() && message.back() == '\n') {
            message.pop_back();
        }
        std::string line = host::line_start();
        line.reserve(line.size() + message.size() + 1);
        host::append_message(line, message);
        line += '\n';
        host::write_line(std::move(line));
    } catch (const std::exception&) {
        constexpr std::string_view LOST = "A log message was lost: out of memory\n";
        [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, LOST.data(), LOST.size());
    }
    va_end(arguments);
}
