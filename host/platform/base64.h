// Base64 with the standard alphabet, padded, without line breaks.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace host
{

std::string encode_base64(std::string_view bytes);

// Decodes `text`. Nothing when it is not base64 of that form; an empty text gives an empty one.
std::optional<std::string> decode_base64(std::string_view text);

}  // namespace host
