#include "rule_operation/documents/content_document.h"

#include "platform/device_utility.h"

std::string xml_element(const char* name, const std::string& value)
{
    std::string text = "<";
    text.append(name).append(">").append(value).append("</").append(name).append(">");
    return text;
}

std::string encode_document(const char* root, const std::string& elements)
{
    const std::string xml =
        R"(<?xml version="1.0" encoding="UTF-8"?>)" + xml_element(root, elements);
    std::string encoded;
    b64_encode_v2(reinterpret_cast<const unsigned char*>(xml.data()), xml.size(), encoded);
    return encoded;
}
