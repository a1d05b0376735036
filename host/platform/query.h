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
// text such a parameter would be cut there.
std::vector<QueryParameter> split_query(std::string_view query);

// A name or value of a parameter, with every byte escaped that RFC 3986 does not call unreserved.
std::string encode_query_text(std::string_view text);

}  // namespace host
