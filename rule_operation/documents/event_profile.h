// The event profile document: what triggers a rule, and on which camera.
#pragma once

#include <cstdint>
#include <string>

// Whether an event profile can be built for this event ID: true for the supported events only.
bool is_event_with_ch_info(uint32_t eventID);

// The event profile of a supported event, base64-encoded. `chGUID` is the GUID of the camera that
// is watched; `alarmIdx` is used for the alarm event only, where it follows the GUID in the source
// ID in upper-case hexadecimal (that source ID is cut at 127 bytes).
std::string get_evt_content_with_chinfo(int eventID, std::string chGUID, const int& alarmIdx);
