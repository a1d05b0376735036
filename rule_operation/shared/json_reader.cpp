#include "rule_operation/shared/json_reader.h"

#include <json/reader.h>

#include <memory>

namespace json
{

bool Value::is_absent() const
{
    return value_ == nullptr || value_->isNull();
}

bool Value::is_object() const
{
    return value_ != nullptr && value_->isObject();
}

bool Value::is_array() const
{
    return value_ != nullptr && value_->isArray();
}

Value Value::member(std::string_view key) const
{
    return Value(is_object() ? value_->find(key.data(), key.data() + key.size()) : nullptr);
}

unsigned int Value::size() const
{
    return is_array() ? value_->size() : 0;
}

Value Value::element(unsigned int index) const
{
    return Value(index < size() ? &(*value_)[index] : nullptr);
}

std::optional<std::string> Value::text() const
{
    if (is_absent()) {
        return std::string();
    }
    if (!value_->isConvertibleTo(Json::stringValue)) {
        return std::nullopt;
    }
    return value_->asString();
}

std::string Value::text_or_empty() const
{
    return text().value_or(std::string());
}

std::optional<int> Value::integer() const
{
    if (is_absent()) {
        return 0;
    }
    if (!value_->isConvertibleTo(Json::intValue)) {
        return std::nullopt;
    }
    return value_->asInt();
}

std::optional<int> Value::whole_number() const
{
    if (!is_absent() && !value_->isInt()) {
        return std::nullopt;
    }
    return integer();
}

std::optional<Document> Document::parse(std::string_view text, std::string* errors)
{
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    Document document;
    try {
        if (reader->parse(text.data(), text.data() + text.size(), &document.root_, errors)) {
            return document;
        }
    } catch (const Json::Exception& nested_too_deep) {
        if (errors != nullptr) {
            *errors = nested_too_deep.what();
        }
    }
    return std::nullopt;
}

}  // namespace json
