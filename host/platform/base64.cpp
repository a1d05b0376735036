#include "host/platform/base64.h"

#include <nettle/base64.h>

#include <cstdint>

namespace host
{

std::string encode_base64(std::string_view bytes)
{
    std::string text(BASE64_ENCODE_RAW_LENGTH(bytes.size()), '\0');
    base64_encode_raw(text.data(), bytes.size(), reinterpret_cast<const uint8_t*>(bytes.data()));
    return text;
}

std::optional<std::string> decode_base64(std::string_view text)
{
    base64_decode_ctx decoder;
    base64_decode_init(&decoder);
    std::string bytes(BASE64_DECODE_LENGTH(text.size()), '\0');
    size_t length = bytes.size();
    if (base64_decode_update(&decoder, &length, reinterpret_cast<uint8_t*>(bytes.data()),
                             text.size(), text.data()) == 0 ||
        base64_decode_final(&decoder) == 0) {
        return std::nullopt;
    }
    bytes.resize(length);
    // The decoder skips white space, which this form does not have.
    if (BASE64_ENCODE_RAW_LENGTH(length) != text.size()) {
        return std::nullopt;
    }
    return bytes;
}

}  // namespace host
