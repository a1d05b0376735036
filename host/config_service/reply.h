// The envelope of every reply.
#pragma once

#include <string>
#include <string_view>

#include "host/config_service/http_message.h"
#include "host/config_service/refusal.h"

namespace host
{

// Success without content.
HttpReply success_reply();

// Success; `content` is the JSON text of an array.
HttpReply content_reply(std::string_view content);

// A refusal under HTTP status `status`.
HttpReply error_reply(int status, ErrorCode code, const std::string& text);

}  // namespace host
