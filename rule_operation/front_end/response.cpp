#include "rule_operation/front_end/response.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>
#include <string_view>
#include <utility>

namespace
{

constexpr const char* STATUS_OK = "Status: 200 OK\r\n";
constexpr const char* STATUS_BAD_REQUEST = "Status: 400 Bad Request\r\n";
constexpr const char* STATUS_UNAUTHORIZED = "Status: 401 Unauthorized\r\n";

void add_member(const TJsonObject& object, const char* key, TJsonObject value)
{
    if (value == nullptr || json_object_object_add(object.get(), key, value.get()) != 0) {
        throw std::bad_alloc();
    }
    static_cast<void>(value.release());  // now owned by the object
}

TJsonObject envelope(int code, const char* message)
{
    TJsonObject body(json_object_new_object());
    if (body == nullptr) {
        throw std::bad_alloc();
    }
    add_member(body, "ret_code", TJsonObject(json_object_new_int(code)));
    add_member(body, "ret_mesg", TJsonObject(json_object_new_string(message)));
    return body;
}

void write(const char* status_line, std::string_view json)
{
    std::set_terminate(exit_answered);
    http_header_output(status_line);
    std::fwrite(json.data(), 1, json.size(), stdout);
    std::fputs("\n\n", stdout);
}

}  // namespace

void exit_answered()
{
    std::fflush(stdout);
    std::_Exit(INTERNAL_ERROR);
}

int http_header_output(const char* status)
{
    std::fputs(status, stdout);
    return std::fputs("Content-type: application/json\r\n\r\n", stdout);
}

TResponse not_authorised_response(int exit_status)
{
    return {STATUS_UNAUTHORIZED, envelope(NOT_AUTHORISED, "Authorized failed"), exit_status};
}

TResponse bad_method_response(const char* message)
{
    return {STATUS_OK, envelope(BAD_METHOD, message), BAD_METHOD};
}

TResponse document_response(TJsonObject body)
{
    return {STATUS_OK, std::move(body), 0};
}

TResponse result_response(int result, const std::string& err, const char* success_text)
{
    if (result == NOT_AUTHORISED) {
        return not_authorised_response(NOT_AUTHORISED);
    }
    if (result == 0) {
        return {STATUS_OK, envelope(0, success_text), 0};
    }
    const char* const message = err.empty() ? "Request failed" : err.c_str();
    return {STATUS_BAD_REQUEST, envelope(result, message), result};
}

void write_response(const TResponse& response)
{
    write(response.status_line, json_text(response.body));
}

void write_internal_error()
{
    static_assert(INTERNAL_ERROR == -4, "the text below contains the code");
    write(STATUS_BAD_REQUEST, R"({ "ret_code": -4, "ret_mesg": "Internal error" })");
}
