#include "host/config_service/service.h"

#include <algorithm>
#include <iterator>
#include <new>

#include "host/common/json.h"
#include "host/common/query.h"
#include "host/config_service/multicall.h"
#include "host/config_service/refusal.h"
#include "host/config_service/reply.h"

namespace host
{

namespace
{

struct Target {
    std::string_view path;
    std::string_view query;  // encoded
};

Target split_target(std::string_view target)
{
    const size_t mark = target.find('?');
    if (mark == std::string_view::npos) {
        return {target, ""};
    }
    return {target.substr(0, mark), target.substr(mark + 1)};
}

std::string read_guid_parameter(std::string_view query)
{
    for (QueryParameter& parameter : split_query(query)) {
        if (parameter.name == "GUID") {
            return std::move(parameter.value);
        }
    }
    throw Refusal(ErrorCode::missing_guid, "the query has no parameter GUID");
}

// Composes the JSON text of an array, item by item.
class ArrayComposer
{
 public:
    // The text to append one item to.
    std::string& next()
    {
        text_ += text_.empty() ? "[" : ", ";
        return text_;
    }
    std::string finish() { return text_.empty() ? "[]" : text_ + "]"; }

 private:
    std::string text_;
};

void append_node(std::string& json, const Node& node)
{
    json += R"({"name": )" + quote_json(node.name) + R"(, "isGroup": false, "description": )" +
            quote_json(node.description) + R"(, "GUID": )" + quote_json(node.guid) +
            R"(, "type": )" + std::to_string(static_cast<int>(node.type)) + R"(, "active": )" +
            (node.active ? "true" : "false") + R"(, "content": )" + quote_json(node.content);
    if (node.event_id) {
        json += R"(, "EventID": )" + std::to_string(*node.event_id);
    }
    json += "}";
}

HttpReply list_schedules(Store& store, const HttpRequest& /*request*/)
{
    ArrayComposer content;
    for (const Schedule& schedule : store.schedules()) {
        content.next() += R"({"name": )" + quote_json(schedule.name) + R"(, "GUID": )" +
                          quote_json(schedule.guid) + "}";
    }
    return content_reply(content.finish());
}

HttpReply list_nodes(Store& store, const HttpRequest& /*request*/)
{
    ArrayComposer content;
    store.visit_nodes([&](const Node& node) { append_node(content.next(), node); });
    return content_reply(content.finish());
}

// The reply is made before the change: no lack of memory may make a refusal of a success.
HttpReply create_nodes(Store& store, const HttpRequest& request)
{
    HttpReply reply = success_reply();
    store.add_nodes(read_multicall(request.body));
    return reply;
}

HttpReply delete_rule(Store& store, const HttpRequest& request)
{
    HttpReply reply = success_reply();
    store.delete_rule(read_guid_parameter(split_target(request.target).query));
    return reply;
}

struct Operation {
    std::string_view path;
    std::string_view method;
    HttpReply (*handle)(Store&, const HttpRequest&);
};

constexpr Operation OPERATIONS[] = {
    {"/cfg/Schedule", "GET", list_schedules},
    {RULE_PATH, "GET", list_nodes},
    {RULE_PATH, "DELETE", delete_rule},
    {"/cfg/multicalls", "POST", create_nodes},
};

// The reply to a request that matches no operation.
HttpReply refuse_operation(std::string_view path)
{
    std::string methods;
    for (const Operation& operation : OPERATIONS) {
        if (operation.path == path) {
            methods += methods.empty() ? "" : ", ";
            methods += operation.method;
        }
    }
    if (methods.empty()) {
        return error_reply(404, ErrorCode::unknown_path, "there is nothing under this path");
    }
    HttpReply reply = error_reply(405, ErrorCode::wrong_method, "this path takes only " + methods);
    reply.allow = std::move(methods);
    return reply;
}

}  // namespace

HttpReply serve(Store& store, const HttpRequest& request)
{
    const std::string_view path = split_target(request.target).path;
    const auto* const operation =
        std::find_if(std::begin(OPERATIONS), std::end(OPERATIONS), [&](const Operation& candidate) {
            return candidate.path == path && candidate.method == request.method;
        });
    if (operation == std::end(OPERATIONS)) {
        return refuse_operation(path);
    }
    try {
        return operation->handle(store, request);
    } catch (const Refusal& refusal) {
        return error_reply(200, refusal.code, refusal.what());
    } catch (const DatabaseError& failure) {
        return error_reply(200, ErrorCode::database_failure,
                           std::string("database: ") + failure.what());
    } catch (const std::bad_alloc&) {
        return error_reply(200, ErrorCode::out_of_memory, "out of memory");
    }
}

}  // namespace host
