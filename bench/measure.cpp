// Runs programs in turn, A B A B, and prints one line for each: the median wall time in
// microseconds and the largest resident size in KiB. That size is at least this program's own, with
// which a child starts, so this program is linked static.
//
//   measure ROUNDS INPUT_FILE PROGRAM [ARGUMENT...] -- PROGRAM [ARGUMENT...] ...
//
// Each program reads INPUT_FILE on standard input and has this program's environment. Its output is
// dropped.
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

namespace
{

struct Contender {
    std::vector<char*> arguments;  // ends with a null pointer
    std::vector<double> microseconds;
    long largest_size = 0;
};

std::vector<Contender> read_contenders(char** first, char** last)
{
    std::vector<Contender> contenders(1);
    for (; first != last; ++first) {
        if (std::string_view(*first) == "--") {
            contenders.emplace_back();
        } else {
            contenders.back().arguments.push_back(*first);
        }
    }
    for (Contender& contender : contenders) {
        contender.arguments.push_back(nullptr);
    }
    return contenders;
}

void run_once(Contender& contender, const char* input)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, input, O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    const auto start = std::chrono::steady_clock::now();
    pid_t child = 0;
    if (posix_spawn(&child, contender.arguments[0], &actions, nullptr, contender.arguments.data(),
                    environ) != 0) {
        std::perror(contender.arguments[0]);
        std::exit(1);
    }
    int status = 0;
    rusage usage{};
    wait4(child, &status, 0, &usage);
    const std::chrono::duration<double, std::micro> took = std::chrono::steady_clock::now() - start;
    posix_spawn_file_actions_destroy(&actions);
    if (status != 0) {
        std::fprintf(stderr, "%s failed\n", contender.arguments[0]);
        std::exit(1);
    }
    contender.microseconds.push_back(took.count());
    contender.largest_size = std::max(contender.largest_size, usage.ru_maxrss);
}

}  // namespace

int main(int count, char** arguments)
{
    if (count < 4) {
        std::fprintf(stderr, "usage: measure ROUNDS INPUT PROGRAM... [-- PROGRAM...]...\n");
        return 2;
    }
    const long rounds = std::strtol(arguments[1], nullptr, 10);
    std::vector<Contender> contenders = read_contenders(arguments + 3, arguments + count);
    for (long round = 0; round < rounds; ++round) {
        for (Contender& contender : contenders) {
            run_once(contender, arguments[2]);
        }
    }
    for (Contender& contender : contenders) {
        std::vector<double>& times = contender.microseconds;
        std::sort(times.begin(), times.end());
        std::printf("%.1f %ld\n", times[times.size() / 2], contender.largest_size);
    }
}
