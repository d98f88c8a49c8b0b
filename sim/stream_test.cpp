#include "sim/stream.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <limits>
#include <string>

#include "sim/cloth.h"

namespace sim {
namespace {

void StoreAll(Stream& s) {
    const char text[] = "flag";
    s.StoreByte(0xAB).StoreWord(0xBEEF).StoreDword(0xDEADBEEF).StoreFloat(-1.5f).StoreDouble(3.25e-300);
    s.StoreFloat(std::numeric_limits<float>::infinity()).StoreBuffer(text, sizeof text);
}

void ExpectAll(Stream& s) {
    EXPECT_EQ(s.ReadByte(), 0xAB);
    EXPECT_EQ(s.ReadWord(), 0xBEEF);
    EXPECT_EQ(s.ReadDword(), 0xDEADBEEFu);
    EXPECT_EQ(s.ReadFloat(), -1.5f);
    EXPECT_EQ(s.ReadDouble(), 3.25e-300);
    EXPECT_EQ(s.ReadFloat(), std::numeric_limits<float>::infinity());
    char text[5];
    s.ReadBuffer(text, sizeof text);
    EXPECT_STREQ(text, "flag");
    EXPECT_TRUE(s.Ok());
}

TEST(Streams, MemoryRoundTripIsLittleEndian) {
    MemoryWriteBuffer w;
    StoreAll(w);
    ASSERT_EQ(w.Size(), 1u + 2 + 4 + 4 + 8 + 4 + 5);
    EXPECT_EQ(w.Data()[1], 0xEF);  // low byte of the word first
    MemoryReadBuffer r(w.Data().data(), w.Size());
    ExpectAll(r);
    EXPECT_EQ(r.Remaining(), 0u);
}

TEST(Streams, ReadPastTheEndFailsWithZeros) {
    const uint8_t two[] = {1, 2};
    MemoryReadBuffer r(two, sizeof two);
    EXPECT_EQ(r.ReadDword(), 0u);
    EXPECT_FALSE(r.Ok());
    EXPECT_EQ(r.ReadByte(), 0);  // a failed stream stays failed
}

TEST(Streams, FileRoundTripAndMissingFile) {
    std::string path = ::testing::TempDir() + "sim_stream_test.bin";
    {
        UserStream out(path.c_str(), false);
        ASSERT_TRUE(out.Ok());
        StoreAll(out);
        EXPECT_TRUE(out.Close());
    }
    UserStream in(path.c_str(), true);
    ExpectAll(in);
    EXPECT_EQ(in.ReadByte(), 0);
    EXPECT_FALSE(in.Ok());
    std::remove(path.c_str());
    UserStream missing((path + ".none").c_str(), true);
    EXPECT_FALSE(missing.Ok());
}

CookedCloth SmallCooked() {
    SceneDesc d;
    d.flagColumns = 5;
    d.flagRows = 4;
    CookedCloth c;
    std::string why;
    EXPECT_TRUE(CookCloth(BuildFlagMesh(d), &c, &why)) << why;
    return c;
}

TEST(CookedStreams, RoundTrip) {
    CookedCloth c = SmallCooked();
    MemoryWriteBuffer w;
    WriteCooked(c, w);
    MemoryReadBuffer r(w.Data().data(), w.Size());
    CookedCloth back;
    std::string why;
    ASSERT_TRUE(ReadCooked(r, &back, &why)) << why;
    EXPECT_TRUE(back == c);
}

TEST(CookedStreams, EveryFlippedByteAndEveryCutIsRejected) {
    CookedCloth c = SmallCooked();
    MemoryWriteBuffer w;
    WriteCooked(c, w);
    std::string why;
    for (size_t i = 0; i < w.Size(); ++i) {
        std::vector<uint8_t> bad = w.Data();
        bad[i] ^= 0x10;
        MemoryReadBuffer r(bad.data(), bad.size());
        CookedCloth out;
        EXPECT_FALSE(ReadCooked(r, &out, &why)) << "flipped byte " << i;
    }
    for (size_t cut = 0; cut < w.Size(); cut += 7) {
        MemoryReadBuffer r(w.Data().data(), cut);
        CookedCloth out;
        EXPECT_FALSE(ReadCooked(r, &out, &why)) << "cut at " << cut;
    }
}

}  // namespace
}  // namespace sim
