// A small XML document as a tree. Attributes, comments and processing instructions are dropped.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct XML_ParserStruct;

namespace host
{

struct XmlElement {
    std::string name;
    std::string text;  // the character data directly inside, joined
    std::vector<XmlElement> children;

    // The first child of that name, or null.
    const XmlElement* child(std::string_view child_name) const;
};

// Parses documents one after another, of `max_elements` elements in all.
class XmlParser
{
 public:
    explicit XmlParser(size_t max_elements);

    // Parses a well-formed document and returns its root. Nothing when it is not well formed, has a
    // document type, is nested deeper than 32 levels or has more elements than are left; `error`
    // then says what and in which line. Throws std::bad_alloc.
    std::optional<XmlElement> parse(std::string_view document, std::string& error);

    size_t elements_left() const { return elements_left_; }

 private:
    struct Deleter {
        void operator()(XML_ParserStruct* parser) const;
    };
    std::unique_ptr<XML_ParserStruct, Deleter> parser_;
    size_t elements_left_;
};

}  // namespace host
