#pragma once

// The alarm event: the one event whose source is not a camera alone but one alarm input of it.
constexpr int ALARM_EVENT_ID = 0x20020000;
