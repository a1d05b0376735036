#include "platform/cgi_input.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <vector>

#include "host/platform/query.h"

struct tagINPUT {
    std::vector<host::QueryParameter> texts;
    std::vector<st_cgi_parameter> parameters;  // these point into the texts
};

tagINPUT* CGI_Get_Input_URL()
{
    auto input = std::make_unique<tagINPUT>();
    if (const char* query = std::getenv("QUERY_STRING"); query != nullptr) {
        input->texts = host::split_query(query);
    }
    for (const auto& [name, value] : input->texts) {
        input->parameters.push_back({name.c_str(), value.c_str()});
    }
    return input.release();
}

st_cgi_parameter* _CGI_Find_Parameter(tagINPUT* input, const char* name, int /*reserved*/)
{
    if (input == nullptr || name == nullptr) {
        return nullptr;
    }
    const std::string_view wanted = name;
    const auto found =
        std::find_if(input->parameters.begin(), input->parameters.end(),
                     [wanted](const st_cgi_parameter& each) { return each.name == wanted; });
    return found == input->parameters.end() ? nullptr : &*found;
}

void CGI_Free_Input(tagINPUT* input)
{
    std::unique_ptr<tagINPUT>{input}.reset();
}
