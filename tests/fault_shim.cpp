// Linked into a program with the linker's --wrap for each function here and in
// failing_allocation.cpp, this makes allocations fail, or transfers stop short. The environment
// variable RULE_FAULT says which: "memory:17" the seventeenth allocation, "transfer:3+" the third
// transfer and all after it. Once that has happened, the file that RULE_FAULT_MARK names exists.
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <string_view>

#include "tests/failing_allocation.h"

namespace
{

bool strikes(std::string_view kind)
{
    static long count = 0;
    const char* const fault = std::getenv("RULE_FAULT");
    const char* const mark = std::getenv("RULE_FAULT_MARK");
    if (fault == nullptr || mark == nullptr ||
        std::string_view(fault).substr(0, kind.size()) != kind) {
        return false;
    }
    char* end = nullptr;
    const long first = std::strtol(fault + kind.size(), &end, 10);
    ++count;
    if (count < first || (count > first && *end != '+')) {
        return false;
    }
    constexpr mode_t MODE = 0600;
    ::close(::open(mark, O_WRONLY | O_CREAT | O_CLOEXEC, MODE));
    return true;
}

template <typename Transfer>
ssize_t in_part(size_t length, Transfer transfer)
{
    // Event counters and the pipe of signals take their few bytes as a whole.
    constexpr size_t NEVER_SPLIT = 8;
    return transfer(length > NEVER_SPLIT && strikes("transfer:") ? 1 : length);
}

}  // namespace

bool allocation_fails()
{
    return strikes("memory:");
}

#define WRAP_TRANSFER(function, parameters, arguments)                                    \
    extern "C" ssize_t __real_##function parameters;                                      \
    extern "C" ssize_t __wrap_##function parameters                                       \
    {                                                                                     \
        return in_part(length, [=](size_t part) { return __real_##function arguments; }); \
    }

WRAP_TRANSFER(read, (int file, void* buffer, size_t length), (file, buffer, part))
WRAP_TRANSFER(write, (int file, const void* buffer, size_t length), (file, buffer, part))
// As the C library's own streams call them.
WRAP_TRANSFER(__read, (int file, void* buffer, size_t length), (file, buffer, part))
WRAP_TRANSFER(__write, (int file, const void* buffer, size_t length), (file, buffer, part))
WRAP_TRANSFER(pread64, (int file, void* buffer, size_t length, off64_t place),
              (file, buffer, part, place))
WRAP_TRANSFER(pwrite64, (int file, const void* buffer, size_t length, off64_t place),
              (file, buffer, part, place))
WRAP_TRANSFER(recv, (int socket, void* buffer, size_t length, int flags),
              (socket, buffer, part, flags))

extern "C" ssize_t __real_recvmsg(int socket, msghdr* message, int flags);
extern "C" ssize_t __wrap_recvmsg(int socket, msghdr* message, int flags)
{
    if (!strikes("transfer:")) {
        return __real_recvmsg(socket, message, flags);
    }
    iovec first{message->msg_iov->iov_base, 1};
    msghdr cut = *message;
    cut.msg_iov = &first;
    cut.msg_iovlen = 1;
    return __real_recvmsg(socket, &cut, flags);
}

// Whoever waits for a socket after a part was sent needs one that was really full.
extern "C" ssize_t __real_sendmsg(int socket, const msghdr* message, int flags);
extern "C" ssize_t __wrap_sendmsg(int socket, const msghdr* message, int flags)
{
    if (strikes("transfer:")) {
        constexpr int SMALLEST = 1;
        ::setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &SMALLEST, sizeof SMALLEST);
    }
    return __real_sendmsg(socket, message, flags);
}
