#include "host/config_service/node.h"

namespace host
{

bool is_guid(std::string_view text)
{
    constexpr size_t LENGTH = 32;
    constexpr std::string_view DIGITS = "0123456789abcdefABCDEF";
    return text.size() == LENGTH && text.find_first_not_of(DIGITS) == std::string_view::npos;
}

}  // namespace host
