// Base64 with the standard alphabet, padded, without line breaks.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace host
{

std::string encode_base64(std::string_view bytes);

// Nothing when `text` is not base64 of that form; an empty text is the empty result.
std::optional<std::string> decode_base64(std::string_view text);

}  // namespace host
