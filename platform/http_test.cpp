// The HTTP client against servers on the loopback address.
#include "platform/http.h"

#include <gtest/gtest.h>

#if !defined(_WIN32)

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

namespace {

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
            int c = accept(fd_, nullptr, nullptr);
            if (c < 0) return;
            char buf[4096];
            if (recv(c, buf, sizeof buf, 0) > 0 && !answer_.empty()) send(c, answer_.data(), answer_.size(), 0);
            // Held open until the client goes.
            while (recv(c, buf, sizeof buf, 0) > 0) {
            }
            close(c);
        });
    }
    ~OneShotServer() {
        shutdown(fd_, SHUT_RDWR);
        close(fd_);
        thread_.join();
    }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/scores"; }

private:
    std::string answer_;
    int fd_ = -1;
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
}

}  // namespace

#endif
