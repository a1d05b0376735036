#include "platform/cgi_input.h"

#include <uriparser/Uri.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

struct tagINPUT {
    std::vector<char> text;  // the query string, decoded in place; the parameters point into it
    std::vector<st_cgi_parameter> parameters;
};

namespace
{

// Decodes a zero-terminated text in place. False when the result holds a zero byte: as C text it
// would be taken for its own beginning.
bool decode(char* text)
{
    const char* end = uriUnescapeInPlaceExA(text, URI_TRUE, URI_BR_DONT_TOUCH);
    return end == text + std::strlen(text);
}

// Adds the parameter written from `first` up to the zero byte at `last`.
void add_parameter(tagINPUT& input, char* first, char* last)
{
    char* name_end = std::find(first, last, '=');
    char* value = name_end == last ? last : name_end + 1;
    *name_end = '\0';
    if (decode(first) && decode(value)) {
        input.parameters.push_back({first, value});
    }
}

}  // namespace

tagINPUT* CGI_Get_Input_URL()
{
    auto input = std::make_unique<tagINPUT>();
    if (const char* query = std::getenv("QUERY_STRING"); query != nullptr) {
        input->text.assign(query, query + std::strlen(query) + 1);
        char* const end = input->text.data() + input->text.size() - 1;
        for (char* first = input->text.data(); first < end;) {
            char* const last = std::find(first, end, '&');
            *last = '\0';
            if (first != last) {
                add_parameter(*input, first, last);
            }
            first = last + 1;
        }
    }
    return input.release();
}

st_cgi_parameter* _CGI_Find_Parameter(tagINPUT* input, const char* name, int /*reserved*/)
{
    if (input == nullptr || name == nullptr) {
        return nullptr;
    }
    const auto found = std::find_if(
        input->parameters.begin(), input->parameters.end(),
        [name](const st_cgi_parameter& each) { return std::strcmp(each.name, name) == 0; });
    return found == input->parameters.end() ? nullptr : &*found;
}

void CGI_Free_Input(tagINPUT* input)
{
    std::unique_ptr<tagINPUT>{input}.reset();
}
