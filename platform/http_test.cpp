// The HTTP client against servers on the loopback address.
#include "platform/http.h"

#include <gtest/gtest.h>

#if defined(_WIN32)
#include <winsock2.h>
#include <ws2tcpip.h>
#else
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#endif

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

namespace {

#if defined(_WIN32)
using Socket = SOCKET;
void CloseSocket(Socket s) { closesocket(s); }
constexpr int kShutBoth = SD_BOTH;
struct Winsock {
    Winsock() {
        WSADATA data;
        WSAStartup(MAKEWORD(2, 2), &data);
    }
    ~Winsock() { WSACleanup(); }
};
#else
using Socket = int;
void CloseSocket(Socket s) { close(s); }
constexpr int kShutBoth = SHUT_RDWR;
struct Winsock {};
#endif

// Listens on a free loopback port, takes one connection, reads what comes
// and, when `answer` is not empty, sends it; otherwise keeps the client
// waiting until it hangs up.
class OneShotServer {
public:
    explicit OneShotServer(std::string answer) : answer_(std::move(answer)) {
        fd_ = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(fd_, reinterpret_cast<sockaddr*>(&a), sizeof a);
        listen(fd_, 1);
        socklen_t len = sizeof a;
        getsockname(fd_, reinterpret_cast<sockaddr*>(&a), &len);
        port_ = ntohs(a.sin_port);
        thread_ = std::thread([this] {
            Socket c = accept(fd_, nullptr, nullptr);
            if (c == static_cast<Socket>(-1)) return;
            client_ = c;
            char buf[4096];
            if (recv(c, buf, sizeof buf, 0) > 0 && !answer_.empty()) send(c, answer_.data(), static_cast<int>(answer_.size()), 0);
            // Held open until the client goes.
            while (recv(c, buf, sizeof buf, 0) > 0) {
            }
        });
    }
    ~OneShotServer() {
        // Hangs up on the client too: an abandoned request may keep its
        // connection open (Wine's client does) and would hold the thread.
        const Socket c = client_.load();
        if (c != static_cast<Socket>(-1)) shutdown(c, kShutBoth);
        shutdown(fd_, kShutBoth);
        CloseSocket(fd_);
        thread_.join();
        if (client_.load() != static_cast<Socket>(-1)) CloseSocket(client_.load());
    }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/scores"; }

private:
    Winsock winsock_;
    std::string answer_;
    Socket fd_ = static_cast<Socket>(-1);
    std::atomic<Socket> client_{static_cast<Socket>(-1)};
    int port_ = 0;
    std::thread thread_;
};

TEST(HttpPost, AnswersAndCancellation) {
    {
        OneShotServer server("HTTP/1.1 201 Created\r\nContent-Length: 2\r\nConnection: close\r\n\r\nok");
        const platform::HttpReply r = platform::HttpPost(server.url(), "{}", "application/json", 30000);
        EXPECT_TRUE(r.answered) << r.error;
        EXPECT_EQ(r.status, 201);
        EXPECT_EQ(r.body, "ok");
    }
    {
        // A server that never answers: a cancel from another thread ends
        // the wait long before the 60 s time-out would.
        OneShotServer server("");
        std::atomic<bool> cancel{false};
        std::thread canceller([&cancel] {
            std::this_thread::sleep_for(std::chrono::milliseconds(300));
            cancel = true;
        });
        const auto start = std::chrono::steady_clock::now();
        const platform::HttpReply r = platform::HttpPost(server.url(), "{}", "application/json", 60000, &cancel);
        const auto waited = std::chrono::steady_clock::now() - start;
        canceller.join();
        EXPECT_FALSE(r.answered);
        EXPECT_EQ(r.error, "cancelled");
        EXPECT_LT(waited, std::chrono::seconds(30));
    }
    {
        // The same silent server, with nobody cancelling: the time-out ends
        // the exchange with a reason of its own.
        OneShotServer server("");
        const auto start = std::chrono::steady_clock::now();
        const platform::HttpReply r = platform::HttpPost(server.url(), "{}", "application/json", 700);
        const auto waited = std::chrono::steady_clock::now() - start;
        EXPECT_FALSE(r.answered);
        EXPECT_FALSE(r.error.empty());
        EXPECT_NE(r.error, "cancelled");
        EXPECT_LT(waited, std::chrono::seconds(30));
    }
}

}  // namespace
