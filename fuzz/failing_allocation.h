// Lets an allocation of the JSON libraries fail while the program runs.
#pragma once

// Lets the allocation `number`, counted from 1, of the requests to come fail, or none with 0.
// Returns how many there were since the last call.
long fail_allocation(long number);
