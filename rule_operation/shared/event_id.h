#pragma once

// The alarm event: the only event whose source is an alarm input of a camera.
constexpr int ALARM_EVENT_ID = 0x20020000;
