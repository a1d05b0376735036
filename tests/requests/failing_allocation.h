// Lets allocations fail. The program must be linked with the linker's --wrap for malloc, calloc,
// realloc and aligned_alloc; the code in its archives then asks `allocation_fails` first.
#pragma once

// Whether the current allocation is to fail. The program defines this function.
bool allocation_fails();
