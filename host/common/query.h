// The query of a URI.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace host
{

struct QueryParameter {
    std::string name;
    std::string value;  // empty too for a name without '='
};

// The parameters of a query, decoded, in their order. None when the query has a zero byte: as C
// text such a parameter would be taken for its own beginning.
std::vector<QueryParameter> split_query(std::string_view query);

}  // namespace host
