// A small XML document as a tree. Attributes, comments and processing instructions are dropped.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace host
{

struct XmlElement {
    std::string name;
    std::string text;  // the character data directly inside, joined
    std::vector<XmlElement> children;

    // The first child of that name, or null.
    const XmlElement* child(std::string_view child_name) const;
};

// Parses a well-formed document and returns its root. Nothing when it is not well formed, has a
// document type, or is nested deeper than 32 levels; `error` then says what and in which line.
std::optional<XmlElement> parse_xml(std::string_view document, std::string& error);

}  // namespace host
