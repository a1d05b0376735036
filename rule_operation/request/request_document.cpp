#include "rule_operation/request/request_document.h"

#include <optional>
#include <string>

#include "rule_operation/shared/diagnostics.h"
#include "rule_operation/shared/event_id.h"
#include "rule_operation/shared/json_reader.h"

namespace
{

// The rule's own members, besides event and action.
int read_rule(std::string& err, TJsonValue rule, std::string& timeprofileGUID,
              std::string& ruleName)
{
    const std::optional<std::string> profile = rule.member("timeprofileGUID").text();
    if (!profile) {
        return REFUSE(err, -110, "Error input Json timeprofileGUID object not string");
    }
    timeprofileGUID = *profile;

    const TJsonValue name_member = rule.member("ruleName");
    const std::optional<std::string> name = name_member.text();
    if (!name) {
        return REFUSE(err, -110, "Error input Json ruleName object not string");
    }
    ruleName = name_member.is_absent() ? "clientRule" : *name;
    return 0;
}

int read_event_id(std::string& err, TJsonValue event_id, int& eventID)
{
    if (event_id.is_absent()) {
        return REFUSE(err, -104, "Error input Json no event->eventID object");
    }
    const std::optional<int> number = event_id.integer();
    if (!number) {
        return REFUSE(err, -110, "Error input Json event->eventID object not integer");
    }
    eventID = *number;
    return 0;
}

int read_alarm(std::string& err, TJsonValue alarm, int& alarmIdx)
{
    if (alarm.is_absent()) {
        return REFUSE(err, -108, "Error input Json no event->camera->alarm object");
    }
    if (!alarm.is_array()) {
        return REFUSE(err, -109, "Error input Json no event->camera->alarm object not array");
    }
    const std::optional<int> number = alarm.element(0).integer();
    if (!number) {
        return REFUSE(err, -110, "Error input Json event->camera->alarm object not integer");
    }
    alarmIdx = *number;
    return 0;
}

int read_camera(std::string& err, TJsonValue cameras, int eventID, TCameraContent& camera)
{
    if (cameras.is_absent()) {
        return REFUSE(err, -105, "Error input Json no event->camera object");
    }
    if (!cameras.is_array()) {
        return REFUSE(err, -106, "Error input Json no event->camera object not array");
    }
    const TJsonValue channel = cameras.element(0).member("chIdx");
    if (channel.is_absent()) {
        return REFUSE(err, -107, "Error input Json no event->camera->chIdx object");
    }
    const std::optional<int> number = channel.integer();
    if (!number) {
        return REFUSE(err, -110, "Error input Json event->camera->chIdx object not integer");
    }
    camera.chIdx = *number;

    if (eventID != ALARM_EVENT_ID) {
        return 0;
    }
    return read_alarm(err, cameras.element(0).member("alarm"), camera.alarmIdx);
}

// Without an action, name and channel remain unchanged.
int read_action(std::string& err, TJsonValue actions, std::string& ActionName, int& act_chIdx)
{
    if (actions.is_absent()) {
        return 0;
    }
    if (!actions.is_array()) {
        return REFUSE(err, -120, "Error input Json action object not array");
    }
    const TJsonValue name = actions.element(0).member("ActionName");
    if (name.is_absent()) {
        return REFUSE(err, -121, "Error input Json no action->ActionName object");
    }
    const TJsonValue channels = actions.element(0).member("chIdx");
    if (channels.is_absent()) {
        return REFUSE(err, -122, "Error input Json no action->chIdx object");
    }
    if (!channels.is_array()) {
        return REFUSE(err, -123, "Error input Json no action->chIdx object not array");
    }
    const std::optional<std::string> name_text = name.text();
    if (!name_text) {
        return REFUSE(err, -110, "Error input Json action->ActionName object not string");
    }
    const std::optional<int> channel = channels.element(0).integer();
    if (!channel) {
        return REFUSE(err, -110, "Error input Json action->chIdx object not integer");
    }
    ActionName = *name_text;
    act_chIdx = *channel;
    return 0;
}

}  // namespace

int parsing_input_content(std::string& err, const char* data, std::string& timeprofileGUID,
                          std::string& ruleName, TEventContent& eventInfo, std::string& ActionName,
                          int& act_chIdx)
{
    const std::optional<TJsonDocument> document = TJsonDocument::parse(data);
    if (!document) {
        RULE_LOG("Error input Json format error, data=[%s]", data);
        err = "Error input Json format error";
        return -101;
    }
    const TJsonValue rule = document->root().member("rule");
    if (const int r = read_rule(err, rule, timeprofileGUID, ruleName); r != 0) {
        return r;
    }
    const TJsonValue events = rule.member("event");
    if (events.is_absent()) {
        return REFUSE(err, -102, "Error input Json no event object");
    }
    if (!events.is_array()) {
        return REFUSE(err, -103, "Error input Json event object not array");
    }
    const TJsonValue event = events.element(0);
    if (const int r = read_event_id(err, event.member("eventID"), eventInfo.eventID); r != 0) {
        return r;
    }
    TCameraContent camera;
    if (const int r = read_camera(err, event.member("camera"), eventInfo.eventID, camera); r != 0) {
        return r;
    }
    if (const int r = read_action(err, rule.member("action"), ActionName, act_chIdx); r != 0) {
        return r;
    }
    eventInfo.camera.push_back(camera);
    RULE_LOG("Get eventID=0x%X, chIdx=%d, alarmIdx=%d, ActionName=[%s] act_chIdx=%d",
             eventInfo.eventID, camera.chIdx, camera.alarmIdx, ActionName.c_str(), act_chIdx);
    return 0;
}
