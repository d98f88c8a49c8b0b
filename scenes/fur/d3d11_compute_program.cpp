#include "scenes/fur/d3d11_compute_program.h"

#include <cstring>

#include "runner/frame_verify.h"

namespace d3d11_compute {

namespace {

// ---------------------------------------------------------------- tokens
//
// An instruction starts with a token holding its operation (bits 0-10), its
// length in tokens (bits 24-30) and operation-specific bits (11-23). Each
// operand starts with a token holding its component count (bits 0-1: none,
// one or four), how the four are picked (bits 2-3: write mask, swizzle or
// one component, with the choice in bits 4-11), its register file (bits
// 12-19) and its number of indices (bits 20-21), each index an immediate
// token after it.

enum Op : uint32_t {
    kBreakC = 0x03,
    kEndLoop = 0x16,
    kIAdd = 0x1e,
    kIGe = 0x21,
    kIMad = 0x23,
    kIShl = 0x29,
    kLoop = 0x30,
    kMov = 0x36,
    kRet = 0x3e,
    kUShr = 0x55,
    kXor = 0x57,
    kDclInput = 0x5f,
    kDclTemps = 0x68,
    kDclGlobalFlags = 0x6a,
    kDclThreadGroup = 0x9b,
    kDclUavStructured = 0x9e,
    kStoreStructured = 0xa8,
};

enum File : uint32_t { kTemp = 0x00, kImmediate = 0x04, kUav = 0x1e, kThreadId = 0x20 };

constexpr uint32_t kRefactoringAllowed = 1u << 11;  // global flag
constexpr uint32_t kIfNonZero = 1u << 18;           // breakc: break when the value is not zero

using Tokens = std::vector<uint32_t>;

// A register with one index (r0, u0) or none (vThreadID).
struct Reg {
    File file;
    int index;  // -1: no index
};

Tokens Operand(Reg r, uint32_t selection) {
    Tokens t{selection | (static_cast<uint32_t>(r.file) << 12) | (r.index >= 0 ? 1u << 20 : 0u)};
    if (r.index >= 0) t.push_back(static_cast<uint32_t>(r.index));
    return t;
}
// Four components, written where `mask` says (x = 1, y = 2, z = 4, w = 8).
Tokens Dst(Reg r, uint32_t mask) { return Operand(r, 2u | (mask << 4)); }
// Four components, one of them read (0 = x ... 3 = w).
Tokens Src(Reg r, uint32_t component) { return Operand(r, 2u | (2u << 2) | (component << 4)); }
// One 32-bit immediate.
Tokens Imm(uint32_t value) { return {1u | (static_cast<uint32_t>(kImmediate) << 12), value}; }

Reg R(int i) { return {kTemp, i}; }
constexpr Reg kThreadIndex{kThreadId, -1};
constexpr uint32_t X = 0, Y = 1, Z = 2;

class Program {
public:
    void Emit(uint32_t op, std::initializer_list<Tokens> operands, uint32_t bits = 0) {
        size_t length = 1;
        for (const Tokens& o : operands) length += o.size();
        code_.push_back(op | bits | static_cast<uint32_t>(length << 24));
        for (const Tokens& o : operands) code_.insert(code_.end(), o.begin(), o.end());
    }
    void Raw(uint32_t op, std::initializer_list<uint32_t> words) {
        code_.push_back(op | static_cast<uint32_t>((1 + words.size()) << 24));
        code_.insert(code_.end(), words.begin(), words.end());
    }
    const Tokens& code() const { return code_; }

private:
    Tokens code_;
};

// ComputeCheckValue, instruction for instruction:
//   r0.x = index * 2654435761 + 1
//   for (r1.x = 0; r1.x < rounds; ++r1.x)
//       r0.x ^= r0.x << 13; r0.x ^= r0.x >> 17; r0.x ^= r0.x << 5;
//       r0.x = r0.x * 1664525 + 1013904223
//   values[index] = r0.x
Tokens ShaderTokens() {
    Program p;
    p.Raw(kDclGlobalFlags | kRefactoringAllowed, {});
    {
        Tokens uav = Operand({kUav, 0}, 0u);
        uav.push_back(4);  // the element's size in bytes
        p.Emit(kDclUavStructured, {uav});
    }
    p.Emit(kDclInput, {Dst(kThreadIndex, 1)});
    p.Raw(kDclTemps, {2});
    p.Raw(kDclThreadGroup, {kGroupSize, 1, 1});
    p.Emit(kIMad, {Dst(R(0), 1), Src(kThreadIndex, X), Imm(2654435761u), Imm(1)});
    p.Emit(kMov, {Dst(R(1), 1), Imm(0)});
    p.Emit(kLoop, {});
    p.Emit(kIGe, {Dst(R(1), 2), Src(R(1), X), Imm(static_cast<uint32_t>(kComputeRounds))});
    p.Emit(kBreakC, {Src(R(1), Y)}, kIfNonZero);
    const struct {
        Op op;
        uint32_t by;
    } steps[] = {{kIShl, 13}, {kUShr, 17}, {kIShl, 5}};
    for (const auto& s : steps) {
        p.Emit(s.op, {Dst(R(1), 4), Src(R(0), X), Imm(s.by)});
        p.Emit(kXor, {Dst(R(0), 1), Src(R(0), X), Src(R(1), Z)});
    }
    p.Emit(kIMad, {Dst(R(0), 1), Src(R(0), X), Imm(1664525u), Imm(1013904223u)});
    p.Emit(kIAdd, {Dst(R(1), 1), Src(R(1), X), Imm(1)});
    p.Emit(kEndLoop, {});
    p.Emit(kStoreStructured, {Dst({kUav, 0}, 1), Src(kThreadIndex, X), Imm(0), Src(R(0), X)});
    p.Emit(kRet, {});

    // Version (compute program, model 5.0) and length in tokens come first.
    Tokens out{(5u << 16) | (5u << 4), 0};
    out.insert(out.end(), p.code().begin(), p.code().end());
    out[1] = static_cast<uint32_t>(out.size());
    return out;
}

void Put32(std::vector<uint8_t>* b, uint32_t v) {
    for (int i = 0; i < 4; ++i) b->push_back(static_cast<uint8_t>(v >> (8 * i)));
}
void Set32(std::vector<uint8_t>* b, size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i) (*b)[at + i] = static_cast<uint8_t>(v >> (8 * i));
}
uint32_t Get32(const uint8_t* p) {
    return uint32_t(p[0]) | (uint32_t(p[1]) << 8) | (uint32_t(p[2]) << 16) | (uint32_t(p[3]) << 24);
}

constexpr uint32_t kMd5Sine[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};
constexpr int kMd5Shift[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

}  // namespace

void Md5Compress(std::array<uint32_t, 4>* state, const uint8_t block[64]) {
    uint32_t m[16];
    for (int i = 0; i < 16; ++i) m[i] = Get32(block + 4 * i);
    uint32_t a = (*state)[0], b = (*state)[1], c = (*state)[2], d = (*state)[3];
    for (int i = 0; i < 64; ++i) {
        const int round = i / 16;
        uint32_t f;
        int g;
        switch (round) {
            case 0: f = (b & c) | (~b & d), g = i; break;
            case 1: f = (b & d) | (c & ~d), g = (5 * i + 1) % 16; break;
            case 2: f = b ^ c ^ d, g = (3 * i + 5) % 16; break;
            default: f = c ^ (b | ~d), g = (7 * i) % 16; break;
        }
        const uint32_t sum = a + f + kMd5Sine[i] + m[g];
        const int s = kMd5Shift[round][i % 4];
        a = d;
        d = c;
        c = b;
        b = b + ((sum << s) | (sum >> (32 - s)));
    }
    (*state)[0] += a;
    (*state)[1] += b;
    (*state)[2] += c;
    (*state)[3] += d;
}

std::array<uint32_t, 4> ContainerChecksum(const uint8_t* blob, size_t size) {
    constexpr size_t kSkip = 20;  // the magic and the checksum itself
    std::array<uint32_t, 4> state = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
    if (size < kSkip) return state;
    const uint8_t* data = blob + kSkip;
    const size_t n = size - kSkip;
    const uint32_t bits = static_cast<uint32_t>(n * 8);
    const size_t whole = n & ~size_t{63};
    for (size_t at = 0; at < whole; at += 64) Md5Compress(&state, data + at);
    const size_t rest = n - whole;
    uint8_t block[64] = {};
    if (rest >= 56) {
        // The rest and the padding marker fill this block; the bit count
        // goes in a block of its own.
        std::memcpy(block, data + whole, rest);
        block[rest] = 0x80;
        Md5Compress(&state, block);
        std::memset(block, 0, sizeof block);
        for (int i = 0; i < 4; ++i) block[i] = static_cast<uint8_t>(bits >> (8 * i));
    } else {
        for (int i = 0; i < 4; ++i) block[i] = static_cast<uint8_t>(bits >> (8 * i));
        std::memcpy(block + 4, data + whole, rest);
        block[4 + rest] = 0x80;
    }
    const uint32_t last = (bits >> 2) | 1;
    for (int i = 0; i < 4; ++i) block[60 + i] = static_cast<uint8_t>(last >> (8 * i));
    Md5Compress(&state, block);
    return state;
}

std::vector<uint8_t> CheckProgram() {
    const Tokens code = ShaderTokens();
    // An empty signature: no elements, their table right after the header.
    const std::vector<uint32_t> emptySignature = {0, 8};
    struct Chunk {
        const char* name;
        const std::vector<uint32_t>* words;
    };
    const Chunk chunks[] = {{"ISGN", &emptySignature}, {"OSGN", &emptySignature}, {"SHEX", &code}};
    constexpr uint32_t kChunks = 3;

    std::vector<uint8_t> b = {'D', 'X', 'B', 'C'};
    b.resize(b.size() + 16);  // the checksum, set last
    Put32(&b, 1);             // container version
    Put32(&b, 0);             // total size, set below
    Put32(&b, kChunks);
    const size_t offsets = b.size();
    b.resize(b.size() + 4 * kChunks);
    for (uint32_t i = 0; i < kChunks; ++i) {
        Set32(&b, offsets + 4 * i, static_cast<uint32_t>(b.size()));
        b.insert(b.end(), chunks[i].name, chunks[i].name + 4);
        Put32(&b, static_cast<uint32_t>(chunks[i].words->size() * 4));
        for (uint32_t w : *chunks[i].words) Put32(&b, w);
    }
    Set32(&b, 24, static_cast<uint32_t>(b.size()));
    const std::array<uint32_t, 4> sum = ContainerChecksum(b.data(), b.size());
    for (int i = 0; i < 4; ++i) Set32(&b, 4 + 4 * i, sum[static_cast<size_t>(i)]);
    return b;
}

}  // namespace d3d11_compute
