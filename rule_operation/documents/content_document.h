// The frame that the three content documents of a rule share. A document is XML on one line,
// without white space between its elements; values are inserted as they are, without escaping.
#pragma once

#include <string>

// "<name>value</name>"
std::string xml_element(const char* name, const std::string& value);

// The base64 form of the document whose root element `root` holds `elements`.
std::string encode_document(const char* root, const std::string& elements);
