// A CGI program that does nothing: it answers every request as the rule endpoint answers a
// stranger.
#include <unistd.h>

int main()
{
    constexpr char answer[] =
        "Status: 401 Unauthorized\r\nContent-type: application/json\r\n\r\n"
        "{ \"ret_code\": -2, \"ret_mesg\": \"Authorized failed\" }\n\n";
    return write(STDOUT_FILENO, answer, sizeof answer - 1) > 0 ? 0 : 1;
}
