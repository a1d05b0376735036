#include "rule_operation/front_end/process.h"

#include <malloc.h>
#include <sys/prctl.h>

#include <exception>

#include "rule_operation/front_end/response.h"

namespace
{

// Reached instead of the handler in `main` when there is no memory to throw an exception.
[[noreturn]] void answer_and_exit()
{
    write_internal_error();
    exit_answered();
}

}  // namespace

void set_up_process()
{
    std::set_terminate(answer_and_exit);

    // By default the kernel lets a pause last 50 microseconds longer than requested, and each digit
    // of an identifier has one.
    prctl(PR_SET_TIMERSLACK, 1UL);

#ifdef M_MXFAST
    // By default the allocator keeps small released pieces apart. The parsed tree of a long rule
    // list would be scattered over those of json-c's tree, which takes longer and needs more
    // memory.
    mallopt(M_MXFAST, 0);
#endif
}
