#include "tests/request_runner.h"

#include <fcntl.h>
#include <json/value.h>
#include <json/writer.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>

#include "tests/fake_platform.h"

// The program's own `main`, under this name in the test program.
int rule_operation_main();

namespace
{

constexpr char END_OF_ENTRY = '\x1e';
constexpr unsigned int TIME_LIMIT_SECONDS = 10;

struct Pipe {
    int read_end = -1;
    int write_end = -1;

    Pipe()
    {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) {
            std::abort();
        }
        read_end = ends[0];
        write_end = ends[1];
    }
    ~Pipe()
    {
        close_end(read_end);
        close_end(write_end);
    }
    static void close_end(int& end)
    {
        if (end >= 0) {
            close(end);
        }
        end = -1;
    }
};

void set_environment(const Request& request)
{
    const auto set = [](const char* name, const std::optional<std::string>& value) {
        value ? setenv(name, value->c_str(), 1) : unsetenv(name);
    };
    set("REQUEST_METHOD", request.method);
    set("PATH_INFO", request.path_info);
    const bool has_length = request.content_length || !request.body.empty();
    set("CONTENT_LENGTH", has_length
                              ? request.content_length.value_or(std::to_string(request.body.size()))
                              : std::optional<std::string>());
}

void write_entries(FILE* file, char kind, const std::vector<std::string>& entries)
{
    for (const std::string& entry : entries) {
        const std::string framed = kind + entry + END_OF_ENTRY;
        std::fwrite(framed.data(), 1, framed.size(), file);
    }
}

// The child's part: the program, and then what the platform remembers.
[[noreturn]] void serve(const Request& request, Pipe& input, Pipe& output, Pipe& record)
{
    alarm(TIME_LIMIT_SECONDS);
    set_environment(request);
    dup2(input.read_end, STDIN_FILENO);
    dup2(output.write_end, STDOUT_FILENO);
    Pipe::close_end(input.write_end);
    Pipe::close_end(output.write_end);
    const int status = rule_operation_main();
    std::fclose(stdout);

    FILE* const file = fdopen(record.write_end, "w");
    write_entries(file, 'C', fake_platform().calls);
    write_entries(file, 'L', fake_platform().log);
    std::fclose(file);
    std::exit(status);
}

std::string read_all(int descriptor)
{
    std::string text;
    char buffer[65536];
    ssize_t count = 0;
    while ((count = read(descriptor, buffer, sizeof buffer)) > 0) {
        text.append(buffer, static_cast<size_t>(count));
    }
    return text;
}

void sort_record(const std::string& record, Outcome& outcome)
{
    for (size_t start = 0, end = 0; start < record.size(); start = end + 1) {
        end = record.find(END_OF_ENTRY, start);
        auto& list = record[start] == 'C' ? outcome.calls : outcome.log;
        list.push_back(record.substr(start + 1, end - start - 1));
    }
}

// Adds the exchange to the file that RULE_EXCHANGES names, if any, as one line of JSON.
void record_exchange(const Request& request, const std::string& response)
{
    const char* const path = std::getenv("RULE_EXCHANGES");
    if (path == nullptr) {
        return;
    }
    Json::Value exchange;
    exchange["method"] = request.method ? Json::Value(*request.method) : Json::Value();
    exchange["body"] = request.body;
    exchange["answer"] = response;
    Json::StreamWriterBuilder one_line;
    one_line["indentation"] = "";
    std::ofstream(path, std::ios::app) << Json::writeString(one_line, exchange) << '\n';
}

}  // namespace

Outcome run_request(const Request& request)
{
    Pipe input;
    Pipe output;
    Pipe record;
    std::cout.flush();
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        serve(request, input, output, record);
    }
    Pipe::close_end(output.write_end);
    Pipe::close_end(record.write_end);
    Outcome outcome;
    if (write(input.write_end, request.body.data(), request.body.size()) < 0) {
        return outcome;
    }
    if (request.close_input) {
        Pipe::close_end(input.write_end);
    }
    outcome.response = read_all(output.read_end);
    record_exchange(request, outcome.response);
    sort_record(read_all(record.read_end), outcome);
    int state = 0;
    waitpid(child, &state, 0);
    outcome.exit_status = WIFEXITED(state) ? WEXITSTATUS(state) : -1;
    return outcome;
}

std::string response_text(const std::string& status, const std::string& body)
{
    return "Status: " + status + "\r\nContent-type: application/json\r\n\r\n" + body + "\n\n";
}

std::string envelope_text(const std::string& status, int code, const std::string& message)
{
    return response_text(status, R"({ "ret_code": )" + std::to_string(code) + R"(, "ret_mesg": ")" +
                                     message + R"(" })");
}
