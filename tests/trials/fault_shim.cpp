// Makes allocations of a program fail, or its transfers stop short. The program must be linked with
// the linker's --wrap for each function here and in failing_allocation.cpp.
//
// The environment variable RULE_FAULT chooses the fault: "memory:17" is the seventeenth allocation,
// "transfer:3+" the third transfer and all after it. They are counted in the file that
// RULE_FAULT_COUNT names, which must contain a zero of type `long`.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <string_view>

#include "tests/requests/failing_allocation.h"

namespace
{

long* map_count(const char* path)
{
    const int file = ::open(path, O_RDWR | O_CLOEXEC);
    void* const count = ::mmap(nullptr, sizeof(long), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    ::close(file);
    return static_cast<long*>(count);
}

bool strikes(std::string_view kind)
{
    const char* const fault = std::getenv("RULE_FAULT");
    const char* const path = std::getenv("RULE_FAULT_COUNT");
    if (fault == nullptr || path == nullptr ||
        std::string_view(fault).substr(0, kind.size()) != kind) {
        return false;
    }
    static long* count = nullptr;
    if (count == nullptr) {
        count = map_count(path);
    }
    char* end = nullptr;
    const long first = std::strtol(fault + kind.size(), &end, 10);
    ++*count;
    return *count == first || (*count > first && *end == '+');
}

// Transfers of a few bytes, to event counters and the pipe of signals, are never cut short.
size_t part_of(size_t length)
{
    constexpr size_t NEVER_CUT = 8;
    return length > NEVER_CUT && strikes("transfer:") ? 1 : length;
}

}  // namespace

bool allocation_fails()
{
    return strikes("memory:");
}

extern "C" ssize_t __real_read(int file, void* buffer, size_t length);
extern "C" ssize_t __wrap_read(int file, void* buffer, size_t length)
{
    return __real_read(file, buffer, part_of(length));
}

extern "C" ssize_t __real_recv(int socket, void* buffer, size_t length, int flags);
extern "C" ssize_t __wrap_recv(int socket, void* buffer, size_t length, int flags)
{
    return __real_recv(socket, buffer, part_of(length), flags);
}

extern "C" ssize_t __real_recvmsg(int socket, msghdr* message, int flags);
extern "C" ssize_t __wrap_recvmsg(int socket, msghdr* message, int flags)
{
    if (strikes("transfer:")) {
        message->msg_iovlen = 1;
        message->msg_iov->iov_len = 1;
    }
    return __real_recvmsg(socket, message, flags);
}

// Shrinks the socket's buffer instead of the message: a caller that waits for a socket after it has
// sent a part needs one that is really full.
extern "C" ssize_t __real_sendmsg(int socket, const msghdr* message, int flags);
extern "C" ssize_t __wrap_sendmsg(int socket, const msghdr* message, int flags)
{
    if (strikes("transfer:")) {
        constexpr int SMALLEST = 1;
        ::setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &SMALLEST, sizeof SMALLEST);
    }
    return __real_sendmsg(socket, message, flags);
}
