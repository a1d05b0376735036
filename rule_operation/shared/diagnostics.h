// Diagnostics: every message of the program goes to the device log, with the function and the
// source line that logs it.
#pragma once

#include <cstdio>
#include <string>

#include "platform/rule_log.h"

// Logs one message: RULE_LOG(format, arguments...), as for `printf`. The compiler checks the
// arguments against the format at every call.
#define RULE_LOG(...)                              \
    do {                                           \
        if (false) {                               \
            rule_log(__VA_ARGS__);                 \
        }                                          \
        log_from(__func__, __LINE__, __VA_ARGS__); \
    } while (false)

// Refuses a request: REFUSE(err, code, format, arguments...) logs the formatted text, makes it the
// whole content of `err` and evaluates to `code`.
#define REFUSE(err, code, ...) refuse_from(__func__, __LINE__, err, code, __VA_ARGS__)

// A message is formatted in two stages: function, line and the message's own format become the
// format, cut at 255 bytes, that the device log gets with the message's arguments. The compiler
// cannot check that format; RULE_LOG and REFUSE have it check the message's own.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
template <typename... Arguments>
void log_from(const char* function, int line, const char* format, Arguments... arguments)
{
    char full_format[256];
    std::snprintf(full_format, sizeof full_format, "[%s](%d) %s", function, line, format);
    rule_log(full_format, arguments...);
}
#pragma GCC diagnostic pop

// The text is cut at 1,023 bytes.
[[gnu::format(printf, 5, 6)]] int refuse_from(const char* function, int line, std::string& err,
                                              int code, const char* format, ...);
