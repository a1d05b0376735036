// Ownership of json-c objects.
#pragma once

#include <json-c/json_object.h>

#include <memory>

struct JsonObjectRelease {
    void operator()(json_object* object) const { json_object_put(object); }
};

// Owns one reference to a json-c object, or none: null is the JSON literal null.
using JsonObject = std::unique_ptr<json_object, JsonObjectRelease>;
