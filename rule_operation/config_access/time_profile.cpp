#include "rule_operation/config_access/time_profile.h"

#include "rule_operation/config_access/config_service.h"
#include "rule_operation/shared/diagnostics.h"

namespace
{

// The first schedule whose member `key` is exactly `wanted`; absent when there is none.
json::Value find_schedule(json::Value schedules, const char* key, const std::string& wanted)
{
    for (unsigned int i = 0; i < schedules.size(); ++i) {
        const json::Value schedule = schedules.element(i);
        if (schedule.is_object() && schedule.member(key).text() == wanted) {
            return schedule;
        }
    }
    return json::Value(nullptr);
}

}  // namespace

int time_profile_factory(int func_type, std::string& timeprofileGUID)
{
    query_object query;
    std::string text;
    const long r = config_service::get("/cfg/Schedule", query, text);
    if (r != 0) {
        RULE_LOG("Error ROVA Get /cfg/Schedule event time profile fail ret=%d\n",
                 static_cast<int>(r));
        return -101;
    }
    const std::optional<config_service::Reply> reply = config_service::read_reply(text);
    if (!reply) {
        RULE_LOG("Error parsing time profile input Json format error\n");
        return -102;
    }
    if (reply->err_code != 0) {
        RULE_LOG("Error ROVA Get /cfg/Schedule err_code=%d, err_str=[%s]\n", reply->err_code,
                 reply->err_str.c_str());
        return -103;
    }
    const json::Value schedules = reply->document.root().member("content");
    if (func_type == FIND_ALL_DAY_PROFILE) {
        const json::Value all_day = find_schedule(schedules, "name", "_ALL_DAY_");
        if (all_day.is_object()) {
            timeprofileGUID = all_day.member("GUID").text_or_empty();
        }
        return 0;
    }
    if (func_type == CHECK_NAMED_PROFILE) {
        if (find_schedule(schedules, "GUID", timeprofileGUID).is_absent()) {
            RULE_LOG("Error input timeprofileGUID=[%s] not exist\n", timeprofileGUID.c_str());
            return -104;
        }
        return 0;
    }
    RULE_LOG("Error input func_type=%d not supported\n", func_type);
    return -105;
}
