// The XML documents of rules and profiles.
#pragma once

#include <json/value.h>

#include <string_view>

namespace device
{

// Returns a document as the list of rules contains it: {"rule": {"active": "1", ...}}. An element
// without children becomes its text; of elements with the same name the first one counts. Null if
// `encoded` is not base64, or if the document is not XML, has a document type, or is nested too
// deeply.
Json::Value read_content(std::string_view encoded);

}  // namespace device
