#include "rule_operation/front_end/response.h"

#include <cstdio>
#include <new>

namespace
{

constexpr const char* STATUS_OK = "Status: 200 OK\r\n";
constexpr const char* STATUS_BAD_REQUEST = "Status: 400 Bad Request\r\n";
constexpr const char* STATUS_UNAUTHORIZED = "Status: 401 Unauthorized\r\n";

constexpr int NOT_AUTHORISED = -2;

void add_member(const JsonObject& object, const char* key, JsonObject value)
{
    if (value == nullptr || json_object_object_add(object.get(), key, value.get()) != 0) {
        throw std::bad_alloc();
    }
    static_cast<void>(value.release());  // now owned by the object
}

Response envelope(const char* status_line, int code, const char* message)
{
    JsonObject body(json_object_new_object());
    if (body == nullptr) {
        throw std::bad_alloc();
    }
    add_member(body, "ret_code", JsonObject(json_object_new_int(code)));
    add_member(body, "ret_mesg", JsonObject(json_object_new_string(message)));
    return {status_line, std::move(body)};
}

void write_body(const char* json)
{
    std::printf("%s\n\n", json);
}

}  // namespace

int http_header_output(const char* status)
{
    std::printf("%s", status);
    return std::printf("Content-type: application/json\r\n\r\n");
}

namespace response
{

Response not_authorised()
{
    return envelope(STATUS_UNAUTHORIZED, NOT_AUTHORISED, "Authorized failed");
}

Response bad_method(const char* message)
{
    return envelope(STATUS_OK, BAD_METHOD, message);
}

Response document(JsonObject body)
{
    return {STATUS_OK, std::move(body)};
}

Response from_result(int result, const std::string& err, const char* success_text)
{
    if (result == NOT_AUTHORISED) {
        return not_authorised();
    }
    if (result == 0) {
        return envelope(STATUS_OK, 0, success_text);
    }
    return envelope(STATUS_BAD_REQUEST, result, err.empty() ? "Request failed" : err.c_str());
}

void write(const Response& response)
{
    const char* const json = json_object_to_json_string(response.body.get());
    if (json == nullptr) {
        write_internal_error();
        return;
    }
    http_header_output(response.status_line);
    write_body(json);
}

void write_internal_error()
{
    static_assert(INTERNAL_ERROR == -4, "the code stands in the text below");
    http_header_output(STATUS_BAD_REQUEST);
    write_body(R"({ "ret_code": -4, "ret_mesg": "Internal error" })");
}

}  // namespace response
