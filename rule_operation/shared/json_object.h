// Ownership and printing of json-c objects.
#pragma once

#include <json-c/json_object.h>

#include <memory>
#include <string_view>

struct TJsonObjectRelease {
    void operator()(json_object* object) const { json_object_put(object); }
};

// Owns one reference to a json-c object, or none: null is the JSON literal null.
using TJsonObject = std::unique_ptr<json_object, TJsonObjectRelease>;

// The text of `object`, printed with json-c's `flags`; valid as long as the object and until the
// object is printed again. Throws std::bad_alloc when memory does not suffice for the whole text.
std::string_view json_text(const TJsonObject& object, int flags = JSON_C_TO_STRING_SPACED);
