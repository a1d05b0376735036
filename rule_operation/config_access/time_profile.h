// The time profile of a rule, one of the recorder's schedules.
#pragma once

#include <string>

// What `time_profile_factory` is to do.
constexpr int FIND_ALL_DAY_PROFILE = 1;
constexpr int CHECK_NAMED_PROFILE = 2;

// FIND_ALL_DAY_PROFILE: stores the GUID of the first schedule named "_ALL_DAY_" in
// `timeprofileGUID`; if there is none, this is not a failure, and the GUID is unchanged.
// CHECK_NAMED_PROFILE: checks that a schedule has exactly the GUID `timeprofileGUID`.
//
// Returns 0, or, with `timeprofileGUID` unchanged:
//
//   -101  the configuration service could not be reached
//   -102  its reply is not JSON or not an object, has no readable error code, or a name or a GUID
//         that had to be read is an array or an object
//   -103  it reported an error
//   -104  no schedule has the GUID
//   -105  `func_type` is neither of the two; detected only after the schedules were read
int time_profile_factory(int func_type, std::string& timeprofileGUID);
