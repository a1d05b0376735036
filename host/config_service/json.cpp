#include "host/config_service/json.h"

#include <new>

namespace host
{

namespace
{

constexpr int MAX_DEPTH = 16;

struct TokenerDeleter {
    void operator()(json_tokener* tokener) const { json_tokener_free(tokener); }
};
using Tokener = std::unique_ptr<json_tokener, TokenerDeleter>;

std::string describe_error(json_tokener_error error)
{
    switch (error) {
        case json_tokener_success:
            return "there is more than one value";
        case json_tokener_continue:
            return "it is not a whole object";
        default:
            return json_tokener_error_desc(error);
    }
}

}  // namespace

JsonDocument parse_json(std::string_view text, std::string& error)
{
    const Tokener tokener(json_tokener_new_ex(MAX_DEPTH));
    if (tokener == nullptr) {
        throw std::bad_alloc();
    }
    json_tokener_set_flags(tokener.get(), JSON_TOKENER_STRICT | JSON_TOKENER_VALIDATE_UTF8);
    JsonDocument document(
        json_tokener_parse_ex(tokener.get(), text.data(), static_cast<int>(text.size())));
    if (document != nullptr && json_tokener_get_parse_end(tokener.get()) == text.size()) {
        return document;
    }
    error = describe_error(json_tokener_get_error(tokener.get()));
    return nullptr;
}

json_object* find_member(json_object* object, const char* name, json_type type)
{
    json_object* member = nullptr;
    if (!json_object_is_type(object, json_type_object) ||
        json_object_object_get_ex(object, name, &member) == 0 ||
        !json_object_is_type(member, type)) {
        return nullptr;
    }
    return member;
}

std::optional<std::string> read_text(json_object* string)
{
    if (string == nullptr) {
        return std::nullopt;
    }
    std::string text(json_object_get_string(string),
                     static_cast<size_t>(json_object_get_string_len(string)));
    if (text.find('\0') != std::string::npos) {
        return std::nullopt;
    }
    return text;
}

std::string quote_json(std::string_view text)
{
    const JsonDocument string(
        json_object_new_string_len(text.data(), static_cast<int>(text.size())));
    size_t length = 0;
    const char* const rendered =
        json_object_to_json_string_length(string.get(), JSON_C_TO_STRING_NOSLASHESCAPE, &length);
    if (string == nullptr || rendered == nullptr) {
        throw std::bad_alloc();
    }
    return {rendered, length};
}

}  // namespace host
