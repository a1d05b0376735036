// Linked into a program with the linker's --wrap for each function here and in
// failing_allocation.cpp, this makes allocations fail, or transfers stop short. The environment
// variable RULE_FAULT says which: "memory:17" the seventeenth allocation, "transfer:3+" the third
// transfer and all after it. They are counted in the file that RULE_FAULT_COUNT names, which must
// hold a zero.
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

// Event counters and the pipe of signals take their few bytes as a whole.
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
