#include "scenes/fur/d3d11_compute_program.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>

#include "runner/frame_verify.h"

namespace {

using d3d11_compute::CheckProgram;
using d3d11_compute::ContainerChecksum;

uint32_t Word(const std::vector<uint8_t>& b, size_t at) {
    uint32_t w;
    std::memcpy(&w, b.data() + at, 4);
    return w;
}

TEST(D3D11ComputeProgram, Md5CompressionGivesTheKnownDigest) {
    // MD5("abc"), padded the standard way into one block.
    uint8_t block[64] = {'a', 'b', 'c', 0x80};
    block[56] = 24;
    std::array<uint32_t, 4> state = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
    d3d11_compute::Md5Compress(&state, block);
    std::string hex;
    char part[3];
    for (uint32_t w : state)
        for (int i = 0; i < 4; ++i) {
            std::snprintf(part, sizeof part, "%02x", (w >> (8 * i)) & 0xff);
            hex += part;
        }
    EXPECT_EQ(hex, "900150983cd24fb0d6963f7d28e17f72");
}

// The container: its header, chunk table and checksum agree with its bytes.
TEST(D3D11ComputeProgram, ContainerIsConsistentAndItsChecksumCoversEveryByte) {
    const std::vector<uint8_t> b = CheckProgram();
    ASSERT_GE(b.size(), 32u);
    EXPECT_EQ(std::string(b.begin(), b.begin() + 4), "DXBC");
    EXPECT_EQ(Word(b, 20), 1u);
    EXPECT_EQ(Word(b, 24), b.size());
    const uint32_t chunks = Word(b, 28);
    std::map<std::string, std::pair<size_t, size_t>> found;  // name: data offset, size
    for (uint32_t i = 0; i < chunks; ++i) {
        const size_t at = Word(b, 32 + 4 * i);
        ASSERT_LE(at + 8, b.size());
        const size_t size = Word(b, at + 4);
        ASSERT_LE(at + 8 + size, b.size());
        found[std::string(b.begin() + at, b.begin() + at + 4)] = {at + 8, size};
    }
    ASSERT_EQ(found.count("SHEX"), 1u);
    EXPECT_EQ(found.count("ISGN"), 1u);
    EXPECT_EQ(found.count("OSGN"), 1u);
    const auto shex = found["SHEX"];
    EXPECT_EQ(Word(b, shex.first), 0x00050050u);  // compute, model 5.0
    EXPECT_EQ(Word(b, shex.first + 4) * 4, shex.second);

    const std::array<uint32_t, 4> sum = ContainerChecksum(b.data(), b.size());
    for (size_t i = 0; i < 4; ++i) EXPECT_EQ(Word(b, 4 + 4 * i), sum[i]);
    // Any byte after the checksum field changes it; the field itself does not.
    for (size_t at : {size_t{20}, shex.first + 12, b.size() - 1}) {
        std::vector<uint8_t> changed = b;
        changed[at] ^= 1;
        EXPECT_NE(ContainerChecksum(changed.data(), changed.size()), sum) << at;
    }
    std::vector<uint8_t> field = b;
    field[4] ^= 0xff;
    EXPECT_EQ(ContainerChecksum(field.data(), field.size()), sum);
}

// Runs the program's instructions for one thread the way the model defines
// them; the operations it does not know fail the test.
class Interpreter {
public:
    explicit Interpreter(std::vector<uint32_t> code) : code_(std::move(code)) {}

    // The value thread `index` stores, or a failure.
    ::testing::AssertionResult Run(uint32_t index, uint32_t* stored) {
        thread_ = index;
        std::vector<size_t> loops;
        size_t pc = 2;
        int steps = 0;
        while (pc < code_.size()) {
            if (++steps > 100000) return ::testing::AssertionFailure() << "runs away";
            const uint32_t op = code_[pc] & 0x7ff;
            const size_t length = (code_[pc] >> 24) & 0x7f;
            if (length == 0 || pc + length > code_.size()) return ::testing::AssertionFailure() << "bad length";
            std::vector<Operand> o;
            for (size_t at = pc + 1; at < pc + length;) o.push_back(Read(&at));
            const size_t next = pc + length;
            switch (op) {
                case 0x6a: case 0x9e: case 0x5f: case 0x68: case 0x9b: break;  // declarations
                case 0x23: Write(o[0], Get(o[1]) * Get(o[2]) + Get(o[3])); break;  // imad
                case 0x36: Write(o[0], Get(o[1])); break;                             // mov
                case 0x21: Write(o[0], int32_t(Get(o[1])) >= int32_t(Get(o[2])) ? ~0u : 0u); break;
                case 0x29: Write(o[0], Get(o[1]) << (Get(o[2]) & 31)); break;
                case 0x55: Write(o[0], Get(o[1]) >> (Get(o[2]) & 31)); break;
                case 0x57: Write(o[0], Get(o[1]) ^ Get(o[2])); break;
                case 0x1e: Write(o[0], Get(o[1]) + Get(o[2])); break;
                case 0x30: loops.push_back(next); break;
                case 0x16:
                    if (loops.empty()) return ::testing::AssertionFailure() << "endloop without loop";
                    pc = loops.back();
                    continue;
                case 0x03: {  // breakc_nz
                    if (loops.empty() || !(code_[pc] & (1u << 18))) return ::testing::AssertionFailure() << "breakc";
                    if (Get(o[0]) == 0) break;
                    size_t at = next;
                    for (int depth = 0; at < code_.size(); at += (code_[at] >> 24) & 0x7f) {
                        const uint32_t k = code_[at] & 0x7ff;
                        if (k == 0x30) ++depth;
                        if (k == 0x16 && depth-- == 0) break;
                    }
                    loops.pop_back();
                    pc = at + 1;
                    continue;
                }
                case 0xa8:  // store_structured u0.x, element, byte offset, value
                    if (o[0].file != 0x1e || Get(o[1]) != index || Get(o[2]) != 0)
                        return ::testing::AssertionFailure() << "stores elsewhere";
                    *stored = Get(o[3]);
                    break;
                case 0x3e: return ::testing::AssertionSuccess();
                default: return ::testing::AssertionFailure() << "unknown operation 0x" << std::hex << op;
            }
            pc = next;
        }
        return ::testing::AssertionFailure() << "no ret";
    }

private:
    struct Operand {
        uint32_t file = 0, selection = 0, mode = 0, count = 0, value = 0;
        int index = -1;
    };
    Operand Read(size_t* at) {
        const uint32_t t = code_[(*at)++];
        Operand o;
        o.count = t & 3;
        o.mode = (t >> 2) & 3;
        o.selection = (t >> 4) & 0xff;
        o.file = (t >> 12) & 0xff;
        if ((t >> 20) & 3) o.index = static_cast<int>(code_[(*at)++]);
        if (o.file == 0x04) o.value = code_[(*at)++];
        return o;
    }
    uint32_t Get(const Operand& o) {
        if (o.file == 0x04) return o.value;
        const uint32_t component = o.selection & 3;  // the one selected, or the first of a swizzle
        if (o.file == 0x20) return component == 0 ? thread_ : 0;
        return regs_[o.index][component];
    }
    void Write(const Operand& o, uint32_t v) {
        for (int c = 0; c < 4; ++c)
            if (o.selection & (1u << c)) regs_[o.index][c] = v;
    }
    std::vector<uint32_t> code_;
    uint32_t regs_[2][4] = {};
    uint32_t thread_ = 0;
};

TEST(D3D11ComputeProgram, EachThreadStoresTheProcessorsValueForItsIndex) {
    const std::vector<uint8_t> b = CheckProgram();
    size_t shex = 0;
    for (uint32_t i = 0; i < Word(b, 28); ++i)
        if (std::memcmp(&b[Word(b, 32 + 4 * i)], "SHEX", 4) == 0) shex = Word(b, 32 + 4 * i) + 8;
    ASSERT_NE(shex, 0u);
    std::vector<uint32_t> code(Word(b, shex + 4));
    std::memcpy(code.data(), &b[shex], code.size() * 4);
    // The group size the declaration gives is the one the check dispatches by.
    bool groupDeclared = false;
    for (size_t pc = 2; pc < code.size(); pc += (code[pc] >> 24) & 0x7f)
        if ((code[pc] & 0x7ff) == 0x9b) groupDeclared = code[pc + 1] == d3d11_compute::kGroupSize && code[pc + 2] == 1;
    EXPECT_TRUE(groupDeclared);
    for (uint32_t index : {0u, 1u, 63u, 64u, 2047u, 4095u}) {
        Interpreter run(code);
        uint32_t stored = 0;
        ASSERT_TRUE(run.Run(index, &stored)) << index;
        EXPECT_EQ(stored, ComputeCheckValue(index)) << index;
    }
}

}  // namespace
