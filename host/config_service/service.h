// The operations of the service.
#pragma once

#include "host/config_service/http_message.h"
#include "host/config_service/store.h"

namespace host
{

// The reply to a request:
//
//   GET    /cfg/Schedule      all schedules
//   GET    /cfg/Rule          all rules and profiles
//   DELETE /cfg/Rule?GUID=... deletes a rule
//   POST   /cfg/multicalls    creates rules and profiles
//
// A refusal, including a failure of the database, is a reply too.
HttpReply serve(Store& store, const HttpRequest& request);

}  // namespace host
