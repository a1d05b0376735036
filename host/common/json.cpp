#include "host/common/json.h"

#include <json/reader.h>
#include <json/writer.h>

#include <algorithm>
#include <memory>
#include <new>

namespace host
{
namespace
{

constexpr int MAX_DEPTH = 16;

// The position after the string whose opening quotation mark is before `start`.
size_t skip_string(std::string_view text, size_t start)
{
    for (;;) {
        const size_t quote = text.find('"', start);
        if (quote == std::string_view::npos) {
            return text.size();
        }
        const size_t before = text.find_last_not_of('\\', quote - 1);
        if ((quote - before) % 2 == 1) {
            return quote + 1;
        }
        start = quote + 1;
    }
}

// Whether the text is within the limits. The parser itself is limited only by memory.
bool keeps_limits(std::string_view text, size_t max_elements, std::string& error)
{
    int depth = 0;
    size_t elements = 0;
    for (size_t next = 0; next < text.size() && depth <= MAX_DEPTH;) {
        const char character = text[next++];
        if (character == '"') {
            next = skip_string(text, next);
        } else if (character == '{' || character == '[') {
            ++depth;
            ++elements;
        } else if (character == '}' || character == ']') {
            --depth;
        } else if (character == ',') {
            ++elements;
        }
    }
    error = depth > MAX_DEPTH ? "it is nested too deeply" : "it has too many elements";
    return depth <= MAX_DEPTH && elements <= max_elements;
}

std::unique_ptr<Json::CharReader> make_reader()
{
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    builder["rejectDupKeys"] = false;  // costs a search for each member
    return std::unique_ptr<Json::CharReader>(builder.newCharReader());
}

}  // namespace

std::optional<Json::Value> parse_json(std::string_view text, size_t max_elements,
                                      std::string& error)
{
    if (!keeps_limits(text, max_elements, error)) {
        return std::nullopt;
    }
    try {
        Json::Value value;
        if (make_reader()->parse(text.data(), text.data() + text.size(), &value, &error)) {
            return value;
        }
        std::replace(error.begin(), error.end(), '\n', ' ');
        return std::nullopt;
    } catch (const Json::Exception&) {
        // Depth is limited above, so what remains is an allocation.
        throw std::bad_alloc();
    }
}

const Json::Value* find_member(const Json::Value& value, std::string_view name,
                               Json::ValueType type)
{
    if (!value.isObject()) {
        return nullptr;
    }
    const Json::Value* const member = value.find(name.data(), name.data() + name.size());
    return member != nullptr && member->type() == type ? member : nullptr;
}

std::string_view read_text(const Json::Value& string)
{
    const char* first = nullptr;
    const char* last = nullptr;
    string.getString(&first, &last);
    return {first, static_cast<size_t>(last - first)};
}

std::string quote_json(const std::string& text)
{
    return Json::valueToQuotedString(text.c_str());
}

}  // namespace host
