// Reading and writing JSON.
#pragma once

#include <json/value.h>

#include <optional>
#include <string>
#include <string_view>

namespace host
{

// Parses a JSON object or array with nothing after it. Nothing when `text` is not that, is nested
// deeper than 16 levels, or has more than `max_elements` members and elements; `error` then says
// why. Strings may contain any bytes. Throws std::bad_alloc.
std::optional<Json::Value> parse_json(std::string_view text, size_t max_elements,
                                      std::string& error);

// The member of that name. Null when `value` is not an object or has no such member of that type.
const Json::Value* find_member(const Json::Value& value, std::string_view name,
                               Json::ValueType type);

// The bytes of a JSON string, valid as long as the string.
std::string_view read_text(const Json::Value& string);

// `text` as a JSON string, with its quotation marks.
std::string quote_json(const std::string& text);

}  // namespace host
