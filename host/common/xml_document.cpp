#include "host/common/xml_document.h"

#include <expat.h>

#include <algorithm>
#include <limits>
#include <new>
#include <utility>

namespace host
{

namespace
{

constexpr size_t MAX_DEPTH = 32;

struct Builder {
    XML_Parser parser;
    size_t& elements_left;
    std::vector<XmlElement> open;  // the elements whose end tag is still to come, outermost first
    XmlElement root;               // set at its end tag
    const char* refusal = nullptr;
};

Builder& builder_of(void* data)
{
    return *static_cast<Builder*>(data);
}

void refuse(Builder& builder, const char* reason)
{
    builder.refusal = reason;
    XML_StopParser(builder.parser, XML_FALSE);
}

void start_element(void* data, const char* name, const char** /*attributes*/)
{
    Builder& builder = builder_of(data);
    builder.open.push_back({name, {}, {}});
    if (builder.open.size() > MAX_DEPTH) {
        refuse(builder, "nested too deeply");
    }
    if (builder.elements_left == 0) {
        refuse(builder, "too many elements");
    } else {
        --builder.elements_left;
    }
}

void end_element(void* data, const char* /*name*/)
{
    Builder& builder = builder_of(data);
    XmlElement element = std::move(builder.open.back());
    builder.open.pop_back();
    if (builder.open.empty()) {
        builder.root = std::move(element);
    } else {
        builder.open.back().children.push_back(std::move(element));
    }
}

void character_data(void* data, const char* text, int length)
{
    builder_of(data).open.back().text.append(text, static_cast<size_t>(length));
}

// A document type could define entities that expand without end.
void start_document_type(void* data, const char* /*name*/, const char* /*system_id*/,
                         const char* /*public_id*/, int /*has_internal_subset*/)
{
    refuse(builder_of(data), "a document type is not allowed");
}

void set_handlers(Builder& builder)
{
    XML_SetUserData(builder.parser, &builder);
    XML_SetElementHandler(builder.parser, start_element, end_element);
    XML_SetCharacterDataHandler(builder.parser, character_data);
    XML_SetStartDoctypeDeclHandler(builder.parser, start_document_type);
}

std::string describe_error(const Builder& builder)
{
    const char* const reason = builder.refusal != nullptr
                                   ? builder.refusal
                                   : XML_ErrorString(XML_GetErrorCode(builder.parser));
    return "line " + std::to_string(XML_GetCurrentLineNumber(builder.parser)) + ": " + reason;
}

}  // namespace

const XmlElement* XmlElement::child(std::string_view child_name) const
{
    const auto found =
        std::find_if(children.begin(), children.end(),
                     [&](const XmlElement& element) { return element.name == child_name; });
    return found == children.end() ? nullptr : &*found;
}

XmlParser::XmlParser(size_t max_elements)
    : parser_(XML_ParserCreate(nullptr)), elements_left_(max_elements)
{
    if (parser_ == nullptr) {
        throw std::bad_alloc();
    }
}

void XmlParser::Deleter::operator()(XML_ParserStruct* parser) const
{
    XML_ParserFree(parser);
}

std::optional<XmlElement> XmlParser::parse(std::string_view document, std::string& error)
{
    if (document.size() > static_cast<size_t>(std::numeric_limits<int>::max())) {
        error = "line 1: the document is too long";
        return std::nullopt;
    }
    XML_ParserReset(parser_.get(), nullptr);
    Builder builder{parser_.get(), elements_left_, {}, {}};
    builder.open.reserve(MAX_DEPTH);
    set_handlers(builder);
    if (XML_Parse(parser_.get(), document.data(), static_cast<int>(document.size()), XML_TRUE) !=
        XML_STATUS_OK) {
        if (XML_GetErrorCode(parser_.get()) == XML_ERROR_NO_MEMORY) {
            throw std::bad_alloc();
        }
        error = describe_error(builder);
        return std::nullopt;
    }
    return std::move(builder.root);
}

}  // namespace host
