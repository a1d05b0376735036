#include "rule_operation/shared/json_reader.h"

#include <json/reader.h>

#include <memory>
#include <new>

namespace
{

// JsonCpp throws exceptions of one kind for nesting that is too deep and for a lack of memory, and
// only their texts differ.
bool is_nesting_limit(const Json::Exception& failure)
{
    return std::string_view(failure.what()).find("stackLimit") != std::string_view::npos;
}

}  // namespace

bool TJsonValue::is_absent() const
{
    return value_ == nullptr || value_->isNull();
}

bool TJsonValue::is_object() const
{
    return value_ != nullptr && value_->isObject();
}

bool TJsonValue::is_array() const
{
    return value_ != nullptr && value_->isArray();
}

TJsonValue TJsonValue::member(std::string_view key) const
{
    return TJsonValue(is_object() ? value_->find(key.data(), key.data() + key.size()) : nullptr);
}

unsigned int TJsonValue::size() const
{
    return is_array() ? value_->size() : 0;
}

TJsonValue TJsonValue::element(unsigned int index) const
{
    return TJsonValue(index < size() ? &(*value_)[index] : nullptr);
}

std::optional<std::string> TJsonValue::text() const
{
    if (is_absent()) {
        return std::string();
    }
    if (!value_->isConvertibleTo(Json::stringValue)) {
        return std::nullopt;
    }
    return value_->asString();
}

std::string TJsonValue::text_or_empty() const
{
    return text().value_or(std::string());
}

std::optional<int> TJsonValue::integer() const
{
    if (is_absent()) {
        return 0;
    }
    if (!value_->isConvertibleTo(Json::intValue)) {
        return std::nullopt;
    }
    return value_->asInt();
}

std::optional<int> TJsonValue::whole_number() const
{
    if (!is_absent() && !value_->isInt()) {
        return std::nullopt;
    }
    return integer();
}

std::optional<TJsonDocument> TJsonDocument::parse(std::string_view text, std::string* errors)
{
    // Made once, because setting it up costs more than parsing a reply.
    static const Json::CharReaderBuilder builder;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    TJsonDocument document;
    try {
        if (reader->parse(text.data(), text.data() + text.size(), &document.root_, errors)) {
            return document;
        }
    } catch (const Json::Exception& failure) {
        if (!is_nesting_limit(failure)) {
            throw std::bad_alloc();
        }
        if (errors != nullptr) {
            *errors = failure.what();
        }
    }
    return std::nullopt;
}
