#include "platform/rule_log.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <exception>
#include <string>
#include <string_view>

#include "host/platform/recorder_files.h"

namespace host
{
namespace
{

// The log file, open until the process ends, or standard error.
int open_log()
{
    const auto path = recorder_path("rule.log");
    if (!path) {
        return STDERR_FILENO;
    }
    constexpr mode_t MODE = 0640;
    const int descriptor =
        ::open(path->c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY, MODE);
    return descriptor >= 0 ? descriptor : STDERR_FILENO;
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

void append_escaped(std::string& line, std::string_view message)
{
    constexpr std::string_view DIGITS = "0123456789abcdef";
    for (const char character : message) {
        const auto byte = static_cast<unsigned char>(character);
        if (character == '\n') {
            line += "\\n";
        } else if (character == '\r') {
            line += "\\r";
        } else if (character == '\t') {
            line += "\\t";
        } else if (character == '\\') {
            line += "\\\\";
        } else if (byte < 0x20 || byte == 0x7f) {
            line += "\\x";
            line += DIGITS[byte >> 4U];
            line += DIGITS[byte & 0xfU];
        } else {
            line += character;
        }
    }
}

// What cannot be written is lost: there is no other place to tell of it.
void write_line(std::string_view line)
{
    static const int descriptor = open_log();
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
        host::append_escaped(line, message);
        line += '\n';
        host::write_line(line);
    } catch (const std::exception&) {
        constexpr std::string_view LOST = "A log message was lost: out of memory\n";
        [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, LOST.data(), LOST.size());
    }
    va_end(arguments);
}
