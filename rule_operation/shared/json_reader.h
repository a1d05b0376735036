// The JSON reader: every document from outside is parsed and read here, and reading a value never
// throws, whatever the shape of the document.
#pragma once

#include <json/value.h>

#include <optional>
#include <string>
#include <string_view>

// A value in a parsed document, which may be absent. Cheap to copy, valid as long as the
// `TJsonDocument` that it came from.
class TJsonValue
{
 public:
    explicit TJsonValue(const Json::Value* value) : value_(value) {}

    // No value, or the JSON literal null; the two are not distinguished.
    bool is_absent() const;
    bool is_object() const;
    bool is_array() const;

    // The member `key`; absent when this is not an object or has no such member.
    TJsonValue member(std::string_view key) const;

    // The number of elements; 0 when this is not an array.
    unsigned int size() const;

    // The element at `index`; absent when this is not an array or ends before it.
    TJsonValue element(unsigned int index) const;

    // The value as text: a string as it is (it may contain zero bytes), a number or a boolean as
    // its text, an absent value as the empty text. Nothing for an object or an array.
    std::optional<std::string> text() const;

    // The same, with the empty text for an object or an array.
    std::string text_or_empty() const;

    // The value as a 32-bit integer: a number without its fraction, a boolean as 0 or 1, an absent
    // value as 0. Nothing for anything else and for a number outside 32 bits.
    std::optional<int> integer() const;

    // The value if it is a whole number of 32 bits, or 0 if it is absent; nothing for anything
    // else.
    std::optional<int> whole_number() const;

 private:
    const Json::Value* value_;
};

// A parsed document; owns all its values.
class TJsonDocument
{
 public:
    // Parses `text`: comments, text after the document and repeated keys (the last one counts) are
    // accepted. Returns nothing when it is not JSON or nested too deep; `*errors`, when given, then
    // says why. Throws std::bad_alloc when memory does not suffice.
    static std::optional<TJsonDocument> parse(std::string_view text, std::string* errors = nullptr);

    TJsonValue root() const { return TJsonValue(&root_); }

 private:
    TJsonDocument() = default;

    Json::Value root_;
};
