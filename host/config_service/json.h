// Reading and writing JSON with json-c.
#pragma once

#include <json-c/json.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace host
{

struct JsonDeleter {
    void operator()(json_object* object) const { json_object_put(object); }
};
using JsonDocument = std::unique_ptr<json_object, JsonDeleter>;

// Parses one JSON value in UTF-8 with nothing behind it. Null when `text` is not that, is nested
// deeper than 16 levels, or is the value null; `error` then says why.
JsonDocument parse_json(std::string_view text, std::string& error);

// The member of that name, owned by `object`. Null when `object` is no object, has no such member,
// or the member is not of that type.
json_object* find_member(json_object* object, const char* name, json_type type);

// The bytes of a JSON string. Nothing when `string` is null or has a zero byte.
std::optional<std::string> read_text(json_object* string);

// `text` as a JSON string, with its quotation marks.
std::string quote_json(std::string_view text);

}  // namespace host
