// Does the least that any CGI program does. Without an argument it prints the rule endpoint's
// answer to a PUT; with "quiet" it does nothing; with "pauses" it makes the pauses of one request
// to add a rule with an action.
#include <sys/prctl.h>
#include <unistd.h>

#include <cstring>

namespace
{

constexpr int PAUSES = 54;
constexpr unsigned int PAUSE_MICROSECONDS = 100;
constexpr char ANSWER[] = "Status: 200 OK\r\nContent-type: application/json\r\n\r\nnull\n\n";

}  // namespace

int main(int count, char** arguments)
{
    if (count == 1) {
        return write(STDOUT_FILENO, ANSWER, sizeof ANSWER - 1) > 0 ? 0 : 1;
    }
    if (std::strcmp(arguments[1], "pauses") == 0) {
        prctl(PR_SET_TIMERSLACK, 1UL);
        for (int i = 0; i < PAUSES; ++i) {
            usleep(PAUSE_MICROSECONDS);
        }
    }
    return 0;
}
