#include "examples/whole_device/content.h"

#include <expat.h>

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace device
{

namespace
{

constexpr size_t MAX_DEPTH = 16;

std::optional<std::string> decode_base64(std::string_view text)
{
    constexpr std::string_view ALPHABET =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const size_t length = text.find_last_not_of('=') + 1;
    if (text.size() % 4 != 0 || text.size() - length > 2) {
        return std::nullopt;
    }
    std::string decoded;
    unsigned int bits = 0;
    unsigned int count = 0;
    for (const char digit : text.substr(0, length)) {
        const size_t value = ALPHABET.find(digit);
        if (value == std::string_view::npos) {
            return std::nullopt;
        }
        bits = bits << 6U | static_cast<unsigned int>(value);
        count += 6;
        if (count >= 8) {
            count -= 8;
            decoded += static_cast<char>(bits >> count & 0xffU);
        }
    }
    return decoded;
}

struct Element {
    std::string name;
    std::string text;
    Json::Value members;
};

struct Builder {
    XML_Parser parser;
    std::vector<Element> open;  // the first one stands for the document
    bool has_failed;

    // Runs a step. No exception may pass through expat, which is written in C, and which may call
    // once more after it was stopped.
    template <typename Step>
    static void run(void* data, Step step)
    {
        auto* const builder = static_cast<Builder*>(data);
        if (builder->has_failed) {
            return;
        }
        try {
            step(builder->open);
        } catch (const std::exception&) {
            builder->has_failed = true;
            XML_StopParser(builder->parser, XML_FALSE);
        }
    }
};

void start_element(void* data, const char* name, const char** /*attributes*/)
{
    Builder::run(data, [name](std::vector<Element>& open) {
        if (open.size() > MAX_DEPTH) {
            throw std::length_error("nested too deep");
        }
        open.push_back({name, "", {}});
    });
}

void end_element(void* data, const char* /*name*/)
{
    Builder::run(data, [](std::vector<Element>& open) {
        const Element element = std::move(open.back());
        open.pop_back();
        Json::Value& siblings = open.back().members;
        if (!siblings.isMember(element.name)) {
            siblings[element.name] = element.members.isNull() ? element.text : element.members;
        }
    });
}

void add_text(void* data, const char* text, int length)
{
    Builder::run(data, [text, length](std::vector<Element>& open) {
        open.back().text.append(text, static_cast<size_t>(length));
    });
}

// Entities could make a short document endless.
void refuse_document_type(void* data, const char*, const char*, const char*, int)
{
    XML_StopParser(static_cast<Builder*>(data)->parser, XML_FALSE);
}

}  // namespace

Json::Value read_content(std::string_view encoded)
{
    const std::optional<std::string> document = decode_base64(encoded);
    const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser(
        XML_ParserCreate("UTF-8"), XML_ParserFree);
    if (!document || parser == nullptr) {
        return {};
    }
    Builder builder{parser.get(), std::vector<Element>(1), false};
    XML_SetUserData(parser.get(), &builder);
    XML_SetElementHandler(parser.get(), start_element, end_element);
    XML_SetCharacterDataHandler(parser.get(), add_text);
    XML_SetStartDoctypeDeclHandler(parser.get(), refuse_document_type);
    const auto length = static_cast<int>(document->size());
    if (XML_Parse(parser.get(), document->data(), length, XML_TRUE) != XML_STATUS_OK) {
        return {};
    }
    return builder.open.front().members;
}

}  // namespace device
