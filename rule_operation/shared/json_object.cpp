#include "rule_operation/shared/json_object.h"

#include <cerrno>
#include <cstddef>
#include <new>

std::string_view json_text(const TJsonObject& object, int flags)
{
    if (object == nullptr) {
        return "null";
    }
    // When its buffer cannot grow, json-c omits what does not fit and continues; only errno shows
    // it.
    errno = 0;
    size_t length = 0;
    const char* const text = json_object_to_json_string_length(object.get(), flags, &length);
    if (text == nullptr || errno == ENOMEM || errno == EFBIG) {
        throw std::bad_alloc();
    }
    return {text, length};
}
