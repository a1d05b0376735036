// Prints the private memory of a program at its exit, in KiB: private_memory PROGRAM [ARGUMENT...]
// Standard input is this program's; the program's output is dropped.
#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

namespace
{

[[noreturn]] void become(char** arguments)
{
    dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    execv(arguments[0], arguments);
    std::perror(arguments[0]);
    _exit(127);
}

long private_kib(pid_t process)
{
    std::ifstream file("/proc/" + std::to_string(process) + "/smaps_rollup");
    long sum = 0;
    for (std::string line; std::getline(file, line);) {
        long kib = 0;
        if (std::sscanf(line.c_str(), "Private_%*[^:]: %ld kB", &kib) == 1) {
            sum += kib;
        }
    }
    return sum;
}

}  // namespace

int main(int count, char** arguments)
{
    if (count < 2) {
        std::fprintf(stderr, "usage: private_memory PROGRAM [ARGUMENT...]\n");
        return 2;
    }
    const pid_t child = fork();
    if (child == 0) {
        become(arguments + 1);
    }
    int status = 0;
    waitpid(child, &status, 0);  // stopped at its first instruction
    ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACEEXIT);
    int signal = 0;
    for (;;) {
        ptrace(PTRACE_CONT, child, nullptr, signal);
        waitpid(child, &status, 0);
        if (!WIFSTOPPED(status)) {
            return 1;
        }
        if (status >> 8 == (SIGTRAP | (PTRACE_EVENT_EXIT << 8))) {
            std::printf("%ld\n", private_kib(child));
            ptrace(PTRACE_CONT, child, nullptr, 0);
            return 0;
        }
        signal = WSTOPSIG(status);
    }
}
