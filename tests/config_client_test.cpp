// The host's client over a real socket: what it sends, and how an exchange ends with a service that
// misbehaves.
#include <gtest/gtest.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>
#include <chrono>
#include <thread>

#include "platform/config_client.h"

namespace
{

namespace asio = boost::asio;
namespace http = boost::beast::http;
using asio::ip::tcp;
using std::string_literals::operator""s;

const tcp::endpoint ANY_PORT(asio::ip::address_v4::loopback(), 0);

struct Step {
    std::string bytes;  // sent `times` times, each after a pause
    int times = 1;
    int pause_ms = 0;
};

// What happens to the connection after the last step; `hold` waits for the client to close it.
enum class End { close, hold };

// A service for one connection, which must come, and one request on it.
class Service
{
 public:
    explicit Service(std::vector<Step> steps, End end = End::close)
        : thread_([this, steps = std::move(steps), end] { serve(steps, end); })
    {
    }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;
    ~Service() { thread_.join(); }

    int port() const { return acceptor_.local_endpoint().port(); }

    // What the client sent; complete once it has its reply.
    const http::request<http::string_body>& request() const { return request_; }

 private:
    void serve(const std::vector<Step>& steps, End end)
    {
        boost::system::error_code error;
        tcp::socket connection = acceptor_.accept();
        boost::beast::flat_buffer buffer;
        http::read(connection, buffer, request_, error);
        for (const Step& step : steps) {
            for (int i = 0; i < step.times && !error; ++i) {
                std::this_thread::sleep_for(std::chrono::milliseconds(step.pause_ms));
                asio::write(connection, asio::buffer(step.bytes), error);
            }
        }
        if (end == End::hold) {
            connection.wait(tcp::socket::wait_read, error);
        }
    }

    asio::io_context context_;
    tcp::acceptor acceptor_{context_, ANY_PORT};
    http::request<http::string_body> request_;
    std::thread thread_;
};

long get(int port, const char* path, std::string& reply, long time_limit,
         const char* host = "127.0.0.1")
{
    query_object query;
    return rova_GET_request(host, port, path, &query, reply, time_limit, false, false, 0, nullptr);
}

TEST(ConfigClientTest, TheQueryIsEncodedAndTheBodySent)
{
    query_object query;
    query.params = {{"GUID", "a b&c=d/%\0ä"s}, {"a", "1"}};
    std::string reply;
    const Service remover({{"HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n{}"}});
    EXPECT_EQ(rova_DELETE_request("127.0.0.1", remover.port(), "/cfg/Rule", &query, reply, 5, false,
                                  false, 0, nullptr),
              0);
    EXPECT_EQ(reply, "{}");
    EXPECT_EQ(remover.request().method_string(), "DELETE");
    EXPECT_EQ(remover.request().target(), "/cfg/Rule?GUID=a%20b%26c%3Dd%2F%25%00%C3%A4&a=1");
    EXPECT_EQ(remover.request()["Host"], "127.0.0.1:" + std::to_string(remover.port()));
    EXPECT_EQ(remover.request()["Connection"], "close");

    const Service poster({{"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"}});
    EXPECT_EQ(rova_POST_request("127.0.0.1", poster.port(), "/p", "the body", reply, 5, false,
                                false, 0, nullptr),
              0);
    EXPECT_EQ(reply, "");
    EXPECT_EQ(poster.request().method_string(), "POST");
    EXPECT_EQ(poster.request()["Content-Type"], "application/json");
    EXPECT_EQ(poster.request().body(), "the body");
}

TEST(ConfigClientTest, EveryExchangeEndsInTimeWithItsOwnResult)
{
    const std::string ok = "HTTP/1.1 200 OK\r\n";
    const std::string envelope = R"({"err_code":0})";
    const std::string length_14 = "Content-Length: 14\r\n\r\n";
    const std::string whole = ok + length_14 + envelope;
    const auto sized = [&](size_t bytes) {
        return ok + "Content-Length: " + std::to_string(bytes) + "\r\n\r\n";
    };
    constexpr size_t KIB = 1024;
    const std::string longest(64 * KIB, ' ');
    const std::string longest_list(32 * KIB * KIB, ' ');
    struct Row {
        const char* name;
        long result;
        std::vector<Step> steps;
        End end = End::close;
        long time_limit = 60;
        std::string reply = "";
        const char* path = "/cfg/Schedule";
    };
    // clang-format off
    const std::vector<Row> rows = {
        {"well behaved", 0, {{whole}}, End::close, 60, envelope},
        {"keeps the connection", 0, {{whole}}, End::hold, 60, envelope},
        {"longest", 0, {{sized(longest.size()) + longest}}, End::close, 60, longest},
        {"longest list", 0, {{sized(longest_list.size()) + longest_list}}, End::close, 60, longest_list, "/cfg/Rule"},
        {"too long", -1004, {{sized(longest.size() + 1)}}, End::hold},
        {"too long, sent", -1004, {{ok + "\r\n" + longest + " "}}},
        {"too long a list", -1004, {{sized(longest_list.size() + 1)}}, End::hold, 60, "", "/cfg/Rule"},
        {"endless head", -1004, {{ok}, {"X: " + std::string(1000, 'x') + "\r\n", 17}}, End::hold},
        {"100 Continue first", -100, {{"HTTP/1.1 100 Continue\r\n\r\n" + whole}}},
        {"500 with an envelope", -500, {{"HTTP/1.1 500 Oops\r\n" + length_14 + envelope}}},
        {"never answers", -1002, {}, End::hold, 1},
        {"a byte now and then", -1002, {{ok}, {"x", 100, 100}}, End::close, 1},
        {"body a byte now and then", -1002, {{ok + "\r\n"}, {" ", 100, 100}}, End::close, 1},
        {"closed at once", -1003, {}},
        {"closed in the body", -1003, {{sized(15) + envelope}}},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Service service(row.steps, row.end);
        std::string reply = "of the call before";
        EXPECT_EQ(get(service.port(), row.path, reply, row.time_limit), row.result);
        EXPECT_TRUE(reply == row.reply) << reply.size();
    }
}

TEST(ConfigClientTest, WhatCannotBeCalledIsSeenAtOnceAndAFullBacklogInTime)
{
    asio::io_context context;
    tcp::acceptor acceptor(context, tcp::v4());
    acceptor.bind(ANY_PORT);
    const int port = acceptor.local_endpoint().port();
    std::string reply;
    EXPECT_EQ(get(port, "/", reply, 60), -1001);
    for (const char* const path : {"", "cfg", "/a b", "/a?b", "/a#b", "/\x7f"}) {
        EXPECT_EQ(get(port, path, reply, 60), -1005) << path;
    }
    for (const int wrong : {0, port + 65536}) {
        EXPECT_EQ(get(wrong, "/", reply, 60), -1005);
    }
    EXPECT_EQ(get(port, "/", reply, 0), -1005);
    EXPECT_EQ(get(port, "/", reply, 60, "localhost"), -1005);

    acceptor.listen(0);
    tcp::socket waiting(context);
    waiting.connect(acceptor.local_endpoint());
    EXPECT_EQ(get(port, "/", reply, 1), -1002);
}

}  // namespace
