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

#include "host/platform/result_codes.h"
#include "platform/config_client.h"

namespace
{

namespace asio = boost::asio;
namespace http = boost::beast::http;
using asio::ip::tcp;
using std::chrono::steady_clock;
using std::string_literals::operator""s;

constexpr long TIME_LIMIT_SECONDS = 1;
const tcp::endpoint ANY_PORT(asio::ip::address_v4::loopback(), 0);

struct Step {
    std::string bytes;  // sent `times` times, each after a pause
    int times = 1;
    int pause_ms = 0;
};

// What happens to the connection after the last step; `hold` waits for the client to close it.
enum class End { close, reset, hold };

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
        if (end == End::reset) {
            connection.set_option(tcp::socket::linger(true, 0));
            connection.close();  // the destructor would linger
        }
    }

    asio::io_context context_;
    tcp::acceptor acceptor_{context_, ANY_PORT};
    http::request<http::string_body> request_;
    std::thread thread_;
};

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

TEST(ConfigClientTest, TheQueryIsEncodedAndTheBodySent)
{
    query_object query;
    query.params = {{"GUID", "a b&c=d/%\0ä"s}};
    std::string reply;
    const Service remover({{"HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n{}"}});
    EXPECT_EQ(rova_DELETE_request("127.0.0.1", remover.port(), "/cfg/Rule", &query, reply, 5, false,
                                  false, 0, nullptr),
              0);
    EXPECT_EQ(reply, "{}");
    EXPECT_EQ(remover.request().method_string(), "DELETE");
    EXPECT_EQ(remover.request().target(), "/cfg/Rule?GUID=a%20b%26c%3Dd%2F%25%00%C3%A4");

    const Service poster({{"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"}});
    EXPECT_EQ(rova_POST_request("127.0.0.1", poster.port(), "/p", "the body", reply, 5, false,
                                false, 0, nullptr),
              0);
    EXPECT_EQ(reply, "");
    EXPECT_EQ(poster.request().method_string(), "POST");
    EXPECT_EQ(poster.request().body(), "the body");
}

TEST(ConfigClientTest, EveryExchangeEndsInTimeWithItsOwnResult)
{
    using namespace host;
    const std::string ok = "HTTP/1.1 200 OK\r\n";
    const std::string chunked = ok + "Transfer-Encoding: chunked\r\n\r\n";
    const std::string envelope = R"({"err_code":0})";
    const std::string length_14 = "Content-Length: 14\r\n\r\n";
    const std::string whole = ok + length_14 + envelope;
    struct Row {
        const char* name;
        long result;
        std::vector<Step> steps;
        End end = End::close;
        long time_limit = TIME_LIMIT_SECONDS;
    };
    // clang-format off
    const std::vector<Row> rows = {
        {"well behaved", 0, {{whole}}},
        {"keeps the connection", 0, {{whole}}, End::hold},
        {"no length", 0, {{ok + "\r\n" + envelope}}},
        {"chunked", 0, {{chunked + "6\r\n{\"err_\r\n"}, {"8\r\ncode\":0}\r\n0\r\n\r\n"}}},
        {"100 Continue first", -100, {{"HTTP/1.1 100 Continue\r\n\r\n" + whole}}},
        {"500 with an envelope", -500, {{"HTTP/1.1 500 Oops\r\n" + length_14 + envelope}}},
        {"redirect", -302, {{"HTTP/1.1 302 Found\r\nLocation: /\r\n" + length_14 + envelope}}},
        {"never answers", TIME_LIMIT_REACHED, {}, End::hold},
        {"a byte now and then", TIME_LIMIT_REACHED, {{ok}, {"x", 100, 100}}},
        {"body a byte now and then", TIME_LIMIT_REACHED, {{ok + "\r\n"}, {" ", 100, 100}}},
        {"reset", EXCHANGE_BROKEN, {}, End::reset},
        {"closed at once", EXCHANGE_BROKEN, {}},
        {"closed in the head", EXCHANGE_BROKEN, {{"HTTP/1.1 200 OK\r\nConte"}}},
        {"closed in the body", EXCHANGE_BROKEN, {{ok + "Content-Length: 15\r\n\r\n" + envelope}}},
        {"closed in a chunk", EXCHANGE_BROKEN, {{chunked + "ff\r\n" + envelope}}},
        {"length no number", EXCHANGE_BROKEN, {{ok + "Content-Length: x\r\n\r\n" + envelope}}},
        {"two lengths", EXCHANGE_BROKEN, {{ok + "Content-Length: 1\r\n" + length_14 + envelope}}},
        {"not HTTP", EXCHANGE_BROKEN, {{"SSH-2.0-x\r\n\r\n"}}},
        {"endless head", REPLY_TOO_LARGE, {{ok}, {"X: " + std::string(1000, 'x') + "\r\n", 20}}, End::hold},
        {"100 MB announced", REPLY_TOO_LARGE, {{ok + "Content-Length: 100000000\r\n\r\n"}}, End::hold},
        {"100 MB sent", REPLY_TOO_LARGE, {{ok + "\r\n"}, {std::string(1000000, ' '), 100}}, End::close, 10},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Service service(row.steps, row.end);
        const Exchange exchange = ask(service.port(), row.time_limit);
        EXPECT_EQ(exchange.result, row.result);
        EXPECT_EQ(exchange.reply, row.result == 0 ? envelope : "");
        EXPECT_LT(exchange.seconds, static_cast<double>(row.time_limit) + 0.9);
    }
}

TEST(ConfigClientTest, NoListenerIsSeenAtOnceAndAFullBacklogInTime)
{
    asio::io_context context;
    tcp::acceptor acceptor(context, tcp::v4());
    acceptor.bind(ANY_PORT);
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
