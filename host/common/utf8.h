#pragma once

#include <string_view>

namespace host
{

// Whether `text` is valid UTF-8: no overlong form, no surrogate, nothing above U+10FFFF.
bool is_utf8(std::string_view text);

}  // namespace host
