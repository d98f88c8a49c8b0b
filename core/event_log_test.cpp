#include "core/event_log.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

std::vector<std::string> Lines(const char* path) {
    std::ifstream f(path, std::ios::binary);
    std::vector<std::string> out;
    for (std::string line; std::getline(f, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        out.push_back(line);
    }
    return out;
}

TEST(EventLog, PrefixFormat) {
    std::tm t{};
    t.tm_year = 2015 - 1900;
    t.tm_mon = 6;
    t.tm_mday = 9;
    t.tm_hour = 10;
    t.tm_min = 4;
    t.tm_sec = 5;
    char buf[EventLog::kPrefixSize];
    EventLog::FormatPrefix(t, 1, buf, sizeof buf);
    EXPECT_STREQ(buf, "2015/7/9 @ 10:04:05, ID=1 >> ");
    t.tm_mon = 11;
    t.tm_mday = 31;
    t.tm_hour = 0;
    EventLog::FormatPrefix(t, 12345, buf, sizeof buf);
    EXPECT_STREQ(buf, "2015/12/31 @ 00:04:05, ID=12345 >> ");
}

TEST(EventLog, LinesCountedFlushedAndReplacedOnReopen) {
    const char* path = "event_log_test_a.txt";
    {
        EventLog log(path);
        ASSERT_TRUE(log.IsOpen());
        log.Write("Build: %d.%d.%d [%s @ %s]", 2, 6, 0, "Jul  9 2015", "10:04:51");
        log.Write("plain %s", "text");
        // On disk before the log is closed.
        std::vector<std::string> lines = Lines(path);
        ASSERT_EQ(lines.size(), 2u);
        std::regex form(R"(^\d{4}/\d{1,2}/\d{1,2} @ \d\d:\d\d:\d\d, ID=1 >> Build: 2\.6\.0 \[Jul  9 2015 @ 10:04:51\]$)");
        EXPECT_TRUE(std::regex_match(lines[0], form)) << lines[0];
        EXPECT_NE(lines[1].find(", ID=2 >> plain text"), std::string::npos);
        EXPECT_EQ(log.LineCount(), 2u);
    }
    {
        EventLog again(path);
        again.Write("second run");
        std::vector<std::string> lines = Lines(path);
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_NE(lines[0].find("ID=1 >> second run"), std::string::npos);
    }
    std::remove(path);
}

TEST(EventLog, LongMessagesAreCut) {
    const char* path = "event_log_test_b.txt";
    {
        EventLog log(path);
        std::string big(10000, 'x');
        log.Write("%s", big.c_str());
    }
    std::vector<std::string> lines = Lines(path);
    ASSERT_EQ(lines.size(), 1u);
    size_t at = lines[0].find(">> ");
    ASSERT_NE(at, std::string::npos);
    EXPECT_EQ(lines[0].size() - at - 3, 4095u);
    std::remove(path);
}

TEST(EventLog, LineBreaksInAMessageKeepItOnOneLine) {
    const char* path = "event_log_test_breaks.txt";
    {
        EventLog log(path);
        log.Write("Could not switch to fullscreen mode.\n\rPlease try another resolution.");
        log.Write("\r\ndriver text\n");
        log.Write("a\n\n\nb");
        EXPECT_EQ(log.LinesAfter(0).back(), "a b");
    }
    std::vector<std::string> lines = Lines(path);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_NE(lines[0].find(">> Could not switch to fullscreen mode. Please try another resolution."), std::string::npos);
    EXPECT_EQ(lines[1].substr(lines[1].find(">> ")), ">> driver text");
    EXPECT_EQ(lines[2].substr(lines[2].find(">> ")), ">> a b");
    std::remove(path);
}

TEST(EventLog, UnopenableLogLosesWritesQuietly) {
    EventLog log("no_such_dir/sub/ardentium_log.txt");
    EXPECT_FALSE(log.IsOpen());
    log.Write("lost %d", 1);
    EXPECT_EQ(log.LineCount(), 1u);
}

TEST(EventLog, ThreadsNeverMixLines) {
    const char* path = "event_log_test_c.txt";
    const int kThreads = 4, kLines = 500;
    {
        EventLog log(path);
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t)
            threads.emplace_back([&log, t] {
                for (int i = 0; i < kLines; ++i) log.Write("thread %d line %d end", t, i);
            });
        for (std::thread& th : threads) th.join();
    }
    std::vector<std::string> lines = Lines(path);
    ASSERT_EQ(lines.size(), static_cast<size_t>(kThreads * kLines));
    std::regex form(R"(^.* @ \d\d:\d\d:\d\d, ID=(\d+) >> thread \d line \d+ end$)");
    std::set<int> ids;
    for (const std::string& l : lines) {
        std::smatch m;
        ASSERT_TRUE(std::regex_match(l, m, form)) << l;
        ids.insert(std::stoi(m[1]));
    }
    // The counter is atomic: every line has its own number.
    EXPECT_EQ(ids.size(), lines.size());
    EXPECT_EQ(*ids.begin(), 1);
    EXPECT_EQ(*ids.rbegin(), kThreads * kLines);
    std::remove(path);
}

TEST(EventLog, RecentLinesAfterAGivenLine) {
    const char* path = "event_log_test_d.txt";
    {
        EventLog log(path);
        log.Write("before");
        const unsigned mark = log.LineCount();
        EXPECT_TRUE(log.LinesAfter(mark).empty());
        log.Write("first %d", 1);
        log.Write("second");
        EXPECT_EQ(log.LinesAfter(mark), (std::vector<std::string>{"first 1", "second"}));
        EXPECT_EQ(log.LinesAfter(0).front(), "before");
        // Only the last lines are kept: far more than that gives the newest,
        // in order.
        for (unsigned i = 0; i < 3 * EventLog::kRecentLines; ++i) log.Write("line %u", i);
        const std::vector<std::string> kept = log.LinesAfter(mark);
        ASSERT_EQ(kept.size(), EventLog::kRecentLines);
        EXPECT_EQ(kept.front(), "line " + std::to_string(2 * EventLog::kRecentLines));
        EXPECT_EQ(kept.back(), "line " + std::to_string(3 * EventLog::kRecentLines - 1));
        // Even a log that could not open its file remembers them.
        EventLog lost("no_such_dir/sub/ardentium_log.txt");
        lost.Write("kept in memory");
        EXPECT_EQ(lost.LinesAfter(0), std::vector<std::string>{"kept in memory"});
    }
    std::remove(path);
}

}  // namespace
