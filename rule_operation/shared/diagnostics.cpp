#include "rule_operation/shared/diagnostics.h"

#include <cstdarg>

int refuse_from(const char* function, int line, std::string& err, int code, const char* format, ...)
{
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);

    log_from(function, line, "%s", text);
    err = text;
    return code;
}
