// The multicall: the one request that creates all objects of a rule on the recorder.
#pragma once

#include <optional>
#include <string>
#include <vector>

// The JSON text of the call that creates one object. `name` may hold any bytes and is escaped; GUID
// and content (base64) are written unchanged. `eventID` is given for an event profile only.
std::string compose_call(const std::string& name, const std::string& GUID, int type,
                         const std::string& content, std::optional<int> eventID = std::nullopt);

// Posts the calls, in their order, as one document. `chIdx` is for the log only. Returns 0, or with
// a refusal text in `err`:
//
//   the client library's result, unchanged and of either sign, when the post failed
//   -220  the reply is not JSON or not an object, or has no readable error code
//   -221  the service reported an error
int submit_multicall(std::string& err, int chIdx, const std::vector<std::string>& calls);
