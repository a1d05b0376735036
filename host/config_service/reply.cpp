#include "host/config_service/reply.h"

#include "host/common/json.h"

namespace host
{

namespace
{

constexpr std::string_view SUCCESS = R"({"err_code": 0, "err_str": "")";

}  // namespace

HttpReply success_reply()
{
    return {200, std::string(SUCCESS) + "}", ""};
}

HttpReply content_reply(std::string_view content)
{
    std::string body;
    body.reserve(SUCCESS.size() + content.size() + 16);
    body.append(SUCCESS).append(R"(, "content": )").append(content).append("}");
    return {200, std::move(body), ""};
}

HttpReply error_reply(int status, ErrorCode code, const std::string& text)
{
    return {status,
            R"({"err_code": )" + std::to_string(static_cast<int32_t>(code)) + R"(, "err_str": )" +
                quote_json(text) + "}",
            ""};
}

}  // namespace host
