// No configuration service: every exchange fails, and there is no list of rules.
#include "platform/config_client.h"
#include "platform/rule_library.h"

namespace
{

constexpr int CANNOT_CONNECT = -1;

}  // namespace

long rova_GET_request(const char*, int, const char*, query_object*, std::string&, long, bool, bool,
                      int, char**)
{
    return CANNOT_CONNECT;
}

long rova_POST_request(const char*, int, const char*, std::string, std::string&, long, bool, bool,
                       int, char**)
{
    return CANNOT_CONNECT;
}

long rova_DELETE_request(const char*, int, const char*, query_object*, std::string&, long, bool,
                         bool, int, char**)
{
    return CANNOT_CONNECT;
}

int get_all_rules(json_object** /*out*/)
{
    return CANNOT_CONNECT;
}
