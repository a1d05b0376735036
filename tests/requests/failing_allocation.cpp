#include "tests/requests/failing_allocation.h"

#include <cerrno>
#include <cstddef>

#define WRAP_ALLOCATION(function, parameters, arguments) \
    extern "C" void* __real_##function parameters;       \
    extern "C" void* __wrap_##function parameters        \
    {                                                    \
        if (!allocation_fails()) {                       \
            return __real_##function arguments;          \
        }                                                \
        errno = ENOMEM;                                  \
        return nullptr;                                  \
    }

WRAP_ALLOCATION(malloc, (size_t size), (size))
WRAP_ALLOCATION(calloc, (size_t count, size_t size), (count, size))
WRAP_ALLOCATION(realloc, (void* block, size_t size), (block, size))
WRAP_ALLOCATION(aligned_alloc, (size_t alignment, size_t size), (alignment, size))
