// The one door for JSON: every document that comes from outside is parsed and read here, and
// nothing in it, whatever its shape, throws.
#pragma once

#include <json/value.h>

#include <optional>
#include <string>
#include <string_view>

namespace json
{

// A place in a parsed document; it may be a place where nothing stands. Cheap to copy, valid as
// long as the `Document` that it came from.
class Value
{
 public:
    explicit Value(const Json::Value* value) : value_(value) {}

    // Nothing stands here, or the JSON literal null; the two are never told apart.
    bool is_absent() const;
    bool is_object() const;
    bool is_array() const;

    // The member `key`; absent when this is no object or has no such member.
    Value member(std::string_view key) const;

    // The number of elements; 0 when this is no array.
    unsigned int size() const;

    // The element at `index`; absent when this is no array or ends before it.
    Value element(unsigned int index) const;

    // The value as text: a string as it is (it may hold zero bytes), a number or a boolean as its
    // text, an absent value as the empty text. Nothing for an object or an array.
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
class Document
{
 public:
    // Parses `text`: comments, text behind the document and repeated keys (the last one counts) are
    // accepted. Returns nothing when it is not JSON or nested too deep; `*errors`, when given, then
    // says why.
    static std::optional<Document> parse(std::string_view text, std::string* errors = nullptr);

    Value root() const { return Value(&root_); }

 private:
    Document() = default;

    Json::Value root_;
};

}  // namespace json
