#pragma once

#include <string_view>

namespace host
{

// Whether `text` is UTF-8 throughout: no overlong form, no surrogate, nothing above U+10FFFF.
bool is_utf8(std::string_view text);

}  // namespace host
