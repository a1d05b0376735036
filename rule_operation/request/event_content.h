// The model of one quick-rule request: which event, on which camera. The model's interface demands
// that both classes have a virtual destructor, although nothing is derived from them.
#pragma once

#include <vector>

// One camera of the request.
class TCameraContent
{
 public:
    TCameraContent() = default;
    TCameraContent(const TCameraContent&) = default;
    TCameraContent& operator=(const TCameraContent&) = default;
    virtual ~TCameraContent() = default;

    int chIdx = -1;     // channel of the camera, as the client gave it
    int alarmIdx = -1;  // alarm index on that camera; -1 for every event but the alarm event
};

class TEventContent
{
 public:
    TEventContent() = default;
    TEventContent(const TEventContent&) = default;
    TEventContent& operator=(const TEventContent&) = default;
    virtual ~TEventContent() = default;

    int eventID = -1;
    std::vector<TCameraContent> camera;
};
