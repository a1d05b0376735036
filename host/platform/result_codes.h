// The results of failed platform calls, by producer. None is -2, which means "not authorised". None
// of the constants is a multiple of 256, which would be 0 as an exit status.
#pragma once

namespace host
{

// Calls to the configuration service. A reply with a status other than 200 gives that status
// negated, -100 to -999.
constexpr int CANNOT_CONNECT = -1001;
constexpr int TIME_LIMIT_REACHED = -1002;
constexpr int EXCHANGE_BROKEN = -1003;  // the connection broke, or the reply is not HTTP
constexpr int REPLY_TOO_LARGE = -1004;

// The list of cameras.
constexpr int CAMERAS_NOT_READ = -1101;
constexpr int BAD_CAMERA_LIST = -1102;

// The rule library.
constexpr int RULES_NOT_FETCHED = -1201;
constexpr int RULES_REFUSED = -1203;        // the service did not answer with a list
constexpr int RULE_LIST_NOT_BUILT = -1205;  // out of memory

}  // namespace host
