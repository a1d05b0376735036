// The action profile document: what a rule does when its event occurs.
#pragma once

#include <string>

// The action profile that records on one camera, base64-encoded. `targetGUID` is the GUID of the
// camera that records.
std::string get_act_rec_content(std::string targetGUID);
