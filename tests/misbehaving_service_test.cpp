// The host's client against a service that misbehaves over a real socket.
#include <gtest/gtest.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <chrono>

#include "host/platform/result_codes.h"
#include "platform/config_client.h"
#include "tests/scripted_server.h"

namespace
{

using boost::asio::ip::tcp;
using std::chrono::steady_clock;

constexpr long TIME_LIMIT_SECONDS = 1;

struct Exchange {
    long result;
    std::string reply;
    double seconds;
};

Exchange ask(int port, long time_limit = TIME_LIMIT_SECONDS)
{
    query_object query;
    Exchange exchange{};
    const auto start = steady_clock::now();
    exchange.result = rova_GET_request("127.0.0.1", port, "/cfg/Schedule", &query, exchange.reply,
                                       time_limit, false, false, 0, nullptr);
    exchange.seconds = std::chrono::duration<double>(steady_clock::now() - start).count();
    return exchange;
}

TEST(MisbehavingServiceTest, EveryExchangeEndsInTimeWithItsOwnResult)
{
    const std::string ok = "HTTP/1.1 200 OK\r\n";
    const std::string envelope = R"({"err_code":0})";
    const std::string length_14 = "Content-Length: 14\r\n\r\n";
    struct Row {
        const char* name;
        std::vector<ServerStep> steps;
        ServerEnd end;
        long result;
        long time_limit = TIME_LIMIT_SECONDS;
    };
    // clang-format off
    const std::vector<Row> rows = {
        {"well behaved", {{ok + length_14 + envelope}}, ServerEnd::close, 0},
        {"keeps the connection", {{ok + length_14 + envelope}}, ServerEnd::hold, 0},
        {"no length", {{ok + "\r\n" + envelope}}, ServerEnd::close, 0},
        {"chunked", {{ok + "Transfer-Encoding: chunked\r\n\r\n6\r\n{\"err_\r\n"},
         {"8\r\ncode\":0}\r\n0\r\n\r\n"}}, ServerEnd::close, 0},
        {"100 Continue first", {{"HTTP/1.1 100 Continue\r\n\r\n" + ok + length_14 + envelope}},
         ServerEnd::close, -100},
        {"never answers", {}, ServerEnd::hold, host::TIME_LIMIT_REACHED},
        {"a byte now and then", {{ok}, {"x", 100, 100}}, ServerEnd::close,
         host::TIME_LIMIT_REACHED},
        {"body a byte now and then", {{ok + "\r\n"}, {" ", 100, 100}}, ServerEnd::close,
         host::TIME_LIMIT_REACHED},
        {"reset", {}, ServerEnd::reset, host::EXCHANGE_BROKEN},
        {"closed at once", {}, ServerEnd::close, host::EXCHANGE_BROKEN},
        {"closed in the head", {{"HTTP/1.1 200 OK\r\nConte"}}, ServerEnd::close,
         host::EXCHANGE_BROKEN},
        {"closed in the body", {{ok + "Content-Length: 15\r\n\r\n" + envelope}}, ServerEnd::close,
         host::EXCHANGE_BROKEN},
        {"closed in a chunk", {{ok + "Transfer-Encoding: chunked\r\n\r\nff\r\n" + envelope}},
         ServerEnd::close, host::EXCHANGE_BROKEN},
        {"length no number", {{ok + "Content-Length: x\r\n\r\n" + envelope}}, ServerEnd::close,
         host::EXCHANGE_BROKEN},
        {"two lengths", {{ok + "Content-Length: 1\r\n" + length_14 + envelope}}, ServerEnd::close,
         host::EXCHANGE_BROKEN},
        {"not HTTP", {{"SSH-2.0-x\r\n\r\n"}}, ServerEnd::close, host::EXCHANGE_BROKEN},
        {"500 with an envelope", {{"HTTP/1.1 500 Oops\r\n" + length_14 + envelope}},
         ServerEnd::close, -500},
        {"redirect", {{"HTTP/1.1 302 Found\r\nLocation: /\r\n" + length_14 + envelope}},
         ServerEnd::close, -302},
        {"endless head", {{ok}, {"X: " + std::string(1000, 'x') + "\r\n", 20}}, ServerEnd::hold,
         host::REPLY_TOO_LARGE},
        {"100 MB announced", {{ok + "Content-Length: 100000000\r\n\r\n"}}, ServerEnd::hold,
         host::REPLY_TOO_LARGE},
        {"100 MB sent", {{ok + "\r\n"}, {std::string(1000000, ' '), 100}}, ServerEnd::close,
         host::REPLY_TOO_LARGE, 10},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        ScriptedServer server(row.steps, row.end);
        const Exchange exchange = ask(server.port(), row.time_limit);
        EXPECT_EQ(exchange.result, row.result);
        EXPECT_EQ(exchange.reply, row.result == 0 ? envelope : "");
        EXPECT_LT(exchange.seconds, static_cast<double>(row.time_limit) + 0.9);
    }
}

TEST(MisbehavingServiceTest, NoListenerIsSeenAtOnceAndAFullBacklogInTime)
{
    boost::asio::io_context context;
    tcp::acceptor acceptor(context, tcp::v4());
    acceptor.bind({boost::asio::ip::address_v4::loopback(), 0});
    const int port = acceptor.local_endpoint().port();
    EXPECT_EQ(ask(port).result, host::CANNOT_CONNECT);

    acceptor.listen(0);
    tcp::socket waiting(context);
    waiting.connect(acceptor.local_endpoint());
    const Exchange exchange = ask(port);
    EXPECT_EQ(exchange.result, host::TIME_LIMIT_REACHED);
    EXPECT_LT(exchange.seconds, TIME_LIMIT_SECONDS + 0.9);
}

}  // namespace
