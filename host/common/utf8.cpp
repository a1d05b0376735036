#include "host/common/utf8.h"

#include <boost/locale/utf.hpp>

namespace host
{

bool is_utf8(std::string_view text)
{
    namespace utf = boost::locale::utf;
    const char* next = text.data();
    const char* const end = next + text.size();
    while (next != end) {
        if (!utf::is_valid_codepoint(utf::utf_traits<char>::decode(next, end))) {
            return false;
        }
    }
    return true;
}

}  // namespace host
