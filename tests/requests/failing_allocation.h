// Linked with the linker's --wrap for malloc, calloc, realloc and aligned_alloc, a program's
// archives call these functions first.
#pragma once

// Defined by the program: whether the allocation that has begun fails.
bool allocation_fails();
