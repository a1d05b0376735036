#include "host/common/query.h"

#include <uriparser/Uri.h>

#include <memory>
#include <new>

namespace host
{
namespace
{

struct ListDeleter {
    void operator()(UriQueryListA* list) const { uriFreeQueryListA(list); }
};

}  // namespace

std::vector<QueryParameter> split_query(std::string_view query)
{
    if (query.find("%00") != std::string_view::npos) {
        return {};
    }
    UriQueryListA* first = nullptr;
    int count = 0;
    if (uriDissectQueryMallocA(&first, &count, query.data(), query.data() + query.size()) !=
        URI_SUCCESS) {
        throw std::bad_alloc();
    }
    const std::unique_ptr<UriQueryListA, ListDeleter> list(first);
    std::vector<QueryParameter> parameters;
    for (const UriQueryListA* item = first; item != nullptr; item = item->next) {
        parameters.push_back({item->key, item->value == nullptr ? "" : item->value});
    }
    return parameters;
}

}  // namespace host
