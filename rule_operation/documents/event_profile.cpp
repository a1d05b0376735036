#include "rule_operation/documents/event_profile.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <utility>

#include "rule_operation/documents/content_document.h"
#include "rule_operation/shared/event_id.h"

namespace
{

constexpr uint32_t SUPPORTED_EVENTS[] = {
    0x20010000, ALARM_EVENT_ID,                                                  //
    0x20060001, 0x20060002,     0x20060003, 0x20060004, 0x20060005, 0x20060006,  //
    0x2006000A, 0x2006000C,     0x2006000E, 0x20060010, 0x20060012, 0x20060014,  //
    0x20060016, 0x20060018,     0x2006001A,                                      //
    0x200A0001, 0x200A0002,     0x200A0003, 0x200A0004, 0x200A0009,              //
    0x200C0001, 0x200C0002,     0x200C0003,
};

std::string alarm_source_id(const std::string& camera_guid, int alarm)
{
    char text[128];
    std::snprintf(text, sizeof text, "%s%X", camera_guid.c_str(), static_cast<unsigned int>(alarm));
    return text;
}

}  // namespace

bool is_event_with_ch_info(uint32_t eventID)
{
    const auto* const end = std::end(SUPPORTED_EVENTS);
    return std::find(std::begin(SUPPORTED_EVENTS), end, eventID) != end;
}

std::string get_evt_content_with_chinfo(int eventID, std::string chGUID, const int& alarmIdx)
{
    const std::string source =
        eventID == ALARM_EVENT_ID ? alarm_source_id(chGUID, alarmIdx) : std::move(chGUID);
    return encode_document("event_profile",
                           xml_element("EventID", std::to_string(eventID)) +
                               xml_element("SourceNum", "1") +
                               xml_element("SourceIds", xml_element("id0", source)));
}
