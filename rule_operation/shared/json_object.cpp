#include "rule_operation/shared/json_object.h"

#include <cerrno>
#include <cstddef>
#include <new>
#include <optional>

namespace
{

// Prints the object; nothing when errno says that a part of the text may be missing.
std::optional<std::string_view> print(json_object* object, int flags)
{
    errno = 0;
    size_t length = 0;
    const char* const text = json_object_to_json_string_length(object, flags, &length);
    if (text == nullptr || errno == ENOMEM || errno == EFBIG) {
        return std::nullopt;
    }
    return std::string_view(text, length);
}

}  // namespace

std::string_view json_text(const TJsonObject& object, int flags)
{
    if (object == nullptr) {
        return "null";
    }
    // When its buffer cannot grow, json-c omits what does not fit and continues; only errno shows
    // it. An allocation that succeeds may leave ENOMEM behind, too: where the heap cannot grow, it
    // takes other memory. The object keeps its buffer, so a text that is whole is printed again
    // without any allocation.
    std::optional<std::string_view> text = print(object.get(), flags);
    if (!text) {
        text = print(object.get(), flags);
    }
    if (!text) {
        throw std::bad_alloc();
    }
    return *text;
}
