#include "rule_operation/config_access/time_profile.h"

#include <optional>

#include "platform/config_client.h"
#include "rule_operation/config_access/config_service.h"
#include "rule_operation/shared/diagnostics.h"
#include "rule_operation/shared/json_reader.h"

namespace
{

constexpr int UNREADABLE_REPLY = -102;
constexpr int NO_SUCH_PROFILE = -104;
constexpr int UNKNOWN_FUNCTION = -105;

int find_all_day(TJsonValue schedules, std::string& timeprofileGUID)
{
    for (unsigned int i = 0; i < schedules.size(); ++i) {
        const TJsonValue schedule = schedules.element(i);
        if (schedule.member("name").text() == "_ALL_DAY_") {
            const std::optional<std::string> guid = schedule.member("GUID").text();
            if (!guid) {
                return UNREADABLE_REPLY;
            }
            timeprofileGUID = *guid;
            return 0;
        }
    }
    return 0;
}

int check_named(TJsonValue schedules, const std::string& timeprofileGUID)
{
    for (unsigned int i = 0; i < schedules.size(); ++i) {
        const TJsonValue schedule = schedules.element(i);
        const std::optional<std::string> guid = schedule.member("GUID").text();
        if (!guid) {
            return UNREADABLE_REPLY;
        }
        if (schedule.is_object() && guid == timeprofileGUID) {
            return 0;
        }
    }
    return NO_SUCH_PROFILE;
}

int settle(int func_type, TJsonValue schedules, std::string& timeprofileGUID)
{
    switch (func_type) {
        case FIND_ALL_DAY_PROFILE:
            return find_all_day(schedules, timeprofileGUID);
        case CHECK_NAMED_PROFILE:
            return check_named(schedules, timeprofileGUID);
        default:
            return UNKNOWN_FUNCTION;
    }
}

}  // namespace

int time_profile_factory(int func_type, std::string& timeprofileGUID)
{
    query_object query;
    std::string text;
    const long r = get_from_service("/cfg/Schedule", query, text);
    if (r != 0) {
        RULE_LOG("Error ROVA Get /cfg/Schedule event time profile fail ret=%d\n",
                 static_cast<int>(r));
        return -101;
    }
    const std::optional<TServiceReply> reply = read_service_reply(text);
    if (reply && reply->err_code != 0) {
        RULE_LOG("Error ROVA Get /cfg/Schedule err_code=%d, err_str=[%s]\n", reply->err_code,
                 reply->err_str.c_str());
        return -103;
    }
    const int result =
        reply ? settle(func_type, reply->document.root().member("content"), timeprofileGUID)
              : UNREADABLE_REPLY;
    if (result == UNREADABLE_REPLY) {
        RULE_LOG("Error parsing time profile input Json format error\n");
    } else if (result == NO_SUCH_PROFILE) {
        RULE_LOG("Error input timeprofileGUID=[%s] not exist\n", timeprofileGUID.c_str());
    } else if (result == UNKNOWN_FUNCTION) {
        RULE_LOG("Error input func_type=%d not supported\n", func_type);
    }
    return result;
}
