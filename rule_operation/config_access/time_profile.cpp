#include "rule_operation/config_access/time_profile.h"

#include <optional>

#include "platform/config_client.h"
#include "rule_operation/config_access/config_service.h"
#include "rule_operation/shared/diagnostics.h"
#include "rule_operation/shared/json_reader.h"

namespace
{

int refuse_unreadable()
{
    RULE_LOG("Error parsing time profile input Json format error\n");
    return -102;
}

int find_all_day(TJsonValue schedules, std::string& timeprofileGUID)
{
    for (unsigned int i = 0; i < schedules.size(); ++i) {
        const TJsonValue schedule = schedules.element(i);
        const std::optional<std::string> name = schedule.member("name").text();
        if (!name) {
            return refuse_unreadable();
        }
        if (*name == "_ALL_DAY_") {
            const std::optional<std::string> guid = schedule.member("GUID").text();
            if (!guid) {
                return refuse_unreadable();
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
            return refuse_unreadable();
        }
        if (schedule.is_object() && *guid == timeprofileGUID) {
            return 0;
        }
    }
    RULE_LOG("Error input timeprofileGUID=[%s] not exist\n", timeprofileGUID.c_str());
    return -104;
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
    if (!reply) {
        return refuse_unreadable();
    }
    if (reply->err_code != 0) {
        RULE_LOG("Error ROVA Get /cfg/Schedule err_code=%d, err_str=[%s]\n", reply->err_code,
                 reply->err_str.c_str());
        return -103;
    }
    const TJsonValue schedules = reply->document.root().member("content");
    switch (func_type) {
        case FIND_ALL_DAY_PROFILE:
            return find_all_day(schedules, timeprofileGUID);
        case CHECK_NAMED_PROFILE:
            return check_named(schedules, timeprofileGUID);
        default:
            RULE_LOG("Error input func_type=%d not supported\n", func_type);
            return -105;
    }
}
