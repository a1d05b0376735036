#include "rule_operation/creation/add_rules.h"

#include <cstdint>
#include <string>
#include <vector>

#include "rule_operation/config_access/camera_table.h"
#include "rule_operation/config_access/duplicate_rule.h"
#include "rule_operation/config_access/time_profile.h"
#include "rule_operation/creation/identifiers.h"
#include "rule_operation/creation/multicall.h"
#include "rule_operation/documents/action_profile.h"
#include "rule_operation/documents/event_profile.h"
#include "rule_operation/documents/rule_document.h"
#include "rule_operation/shared/diagnostics.h"

namespace
{

// Checks the event and its channel, and appends the call that creates the event profile `evtGUID`.
int add_event(std::string& err, int eventID, const TCameraContent& camera, std::string& evtGUID,
              std::vector<std::string>& calls)
{
    const int chIdx = camera.chIdx;
    if (!is_event_with_ch_info(static_cast<uint32_t>(eventID))) {
        return REFUSE(err, -202, "Error input eventID=0x%X unsupported", eventID);
    }
    const std::string chGUID = find_camera_guid(chIdx);
    if (chGUID.empty()) {
        return REFUSE(err, -200, "Error ch-%d GUID is NULL, please check camera is added", chIdx);
    }
    evtGUID = derive_guid(EVENT_PROFILE, chIdx);
    const std::string content = get_evt_content_with_chinfo(eventID, chGUID, camera.alarmIdx);
    if (evtGUID.size() != GUID_LENGTH) {
        return REFUSE(err, -201, "Error evt chIdx=%d detect evtGUID=[%s] length not 32 bytes",
                      chIdx, evtGUID.c_str());
    }
    calls.push_back(compose_call(profile_name(EVENT_PROFILE, chIdx), evtGUID, EVENT_PROFILE.type,
                                 content, eventID));
    return 0;
}

// Checks the recording channel, and appends the call that creates the action profile `actGUID`.
int add_recording(std::string& err, int act_chIdx, std::string& actGUID,
                  std::vector<std::string>& calls)
{
    const std::string targetGUID = find_camera_guid(act_chIdx);
    if (targetGUID.empty()) {
        return REFUSE(err, -211,
                      "Error recording act ch-%d GUID is NULL, please check camera is added",
                      act_chIdx);
    }
    actGUID = derive_guid(ACTION_PROFILE, act_chIdx);
    const std::string content = get_act_rec_content(targetGUID);
    if (actGUID.size() != GUID_LENGTH) {
        return REFUSE(err, -203, "Error act act_chIdx=%d detect actGUID=[%s] length not 32 bytes",
                      act_chIdx, actGUID.c_str());
    }
    calls.push_back(compose_call(profile_name(ACTION_PROFILE, act_chIdx), actGUID,
                                 ACTION_PROFILE.type, content));
    return 0;
}

int settle_time_profile(std::string& err, std::string& timeprofileGUID)
{
    if (timeprofileGUID.empty()) {
        const int r = time_profile_factory(FIND_ALL_DAY_PROFILE, timeprofileGUID);
        return r == 0 ? 0 : REFUSE(err, r, "Internal error get time profile guid fail ret=%d", r);
    }
    const int r = time_profile_factory(CHECK_NAMED_PROFILE, timeprofileGUID);
    return r == 0 ? 0
                  : REFUSE(err, r, "Error check time profile [%s] fail ret=%d",
                           timeprofileGUID.c_str(), r);
}

int refuse_duplicate(std::string& err, int eventID, int chIdx)
{
    bool found = false;
    if (const int r = is_event_already_in_rule(found, eventID, chIdx); r != 0) {
        return REFUSE(err, r, "Internal error get all rule list fail ret=%d", r);
    }
    if (found) {
        return REFUSE(err, -911,
                      "Warning chIdx=%d, eventID=%d already added in quick mode rule list", chIdx,
                      eventID);
    }
    return 0;
}

}  // namespace

int add_rules(std::string& err, std::string& timeprofileGUID, std::string& ruleName,
              TEventContent& eventInfo, std::string& ActionName, int& act_chIdx)
{
    RULE_LOG("eventInfo.camera size=%d", static_cast<int>(eventInfo.camera.size()));
    if (eventInfo.camera.empty()) {
        return REFUSE(err, -204, "Error input event has no camera");
    }
    const int eventID = eventInfo.eventID;
    const TCameraContent& camera = eventInfo.camera.front();
    const int chIdx = camera.chIdx;
    RULE_LOG("get eventID=0x%X (%d), chIdx=%d, alarmIdx=%d", eventID, eventID, chIdx,
             camera.alarmIdx);

    std::string evtGUID;
    std::string actGUID;
    std::vector<std::string> calls;
    if (const int r = add_event(err, eventID, camera, evtGUID, calls); r != 0) {
        return r;
    }
    if (ActionName == "RecordControl") {
        if (const int r = add_recording(err, act_chIdx, actGUID, calls); r != 0) {
            return r;
        }
    } else if (!ActionName.empty()) {
        return REFUSE(err, -212, "Error input ActionName=[%s] unsupported", ActionName.c_str());
    }
    if (const int r = settle_time_profile(err, timeprofileGUID); r != 0) {
        return r;
    }
    const std::string ruleGUID = derive_guid(RULE, chIdx);
    const std::string rule_content = get_rule_content(evtGUID, actGUID, timeprofileGUID);
    if (const int r = refuse_duplicate(err, eventID, chIdx); r != 0) {
        return r;
    }
    calls.push_back(compose_call(ruleName, ruleGUID, RULE.type, rule_content));
    return submit_multicall(err, chIdx, calls);
}
