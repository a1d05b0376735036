#include "fuzz/failing_allocation.h"

#include <json-c/json_object.h>

#include <cerrno>
#include <cstddef>
#include <utility>

// The linker's --wrap puts these functions before those of the archives.
extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* block, size_t size);
int __real__Z19rule_operation_mainv();
int __real__Z13get_all_rulesPP11json_object(json_object** out);
}

namespace
{

bool is_counting = false;
long count = 0;
long failing = 0;

bool fails()
{
    if (!is_counting || ++count != failing) {
        return false;
    }
    errno = ENOMEM;
    return true;
}

template <typename Call>
int counting(bool on, Call call)
{
    const bool before = std::exchange(is_counting, on);
    const int result = call();
    is_counting = before;
    return result;
}

}  // namespace

long fail_allocation(long number)
{
    failing = number;
    return std::exchange(count, 0);
}

extern "C" {

void* __wrap_malloc(size_t size)
{
    return fails() ? nullptr : __real_malloc(size);
}

void* __wrap_calloc(size_t members, size_t size)
{
    return fails() ? nullptr : __real_calloc(members, size);
}

void* __wrap_realloc(void* block, size_t size)
{
    return fails() ? nullptr : __real_realloc(block, size);
}

int __wrap__Z19rule_operation_mainv()
{
    return counting(true, __real__Z19rule_operation_mainv);
}

// The fake platform parses here, and json-c's parser does not survive a lack of memory.
int __wrap__Z13get_all_rulesPP11json_object(json_object** out)
{
    return counting(false, [=] { return __real__Z13get_all_rulesPP11json_object(out); });
}
}
