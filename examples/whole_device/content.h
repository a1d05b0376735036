// The XML documents of rules and profiles.
#pragma once

#include <json/value.h>

#include <string_view>

namespace device
{

// The document as the list of rules contains it: {"rule": {"active": "1", ...}}. An element without
// elements becomes its text, and of elements of the same name the first one counts. `encoded` is
// base64. Null if it is not, or if the document is not XML, has a document type, or is nested too
// deep.
Json::Value read_content(std::string_view encoded);

}  // namespace device
