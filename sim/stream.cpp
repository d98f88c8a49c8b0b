#include "sim/stream.h"

#include <cstring>

namespace sim {

uint64_t Stream::ReadLittle(int bytes) {
    uint8_t b[8] = {};
    ReadBuffer(b, static_cast<size_t>(bytes));
    uint64_t v = 0;
    for (int i = bytes - 1; i >= 0; --i) v = (v << 8) | b[i];
    return v;
}

void Stream::StoreLittle(uint64_t v, int bytes) {
    uint8_t b[8];
    for (int i = 0; i < bytes; ++i) b[i] = static_cast<uint8_t>(v >> (8 * i));
    StoreBuffer(b, static_cast<size_t>(bytes));
}

uint8_t Stream::ReadByte() { return static_cast<uint8_t>(ReadLittle(1)); }
uint16_t Stream::ReadWord() { return static_cast<uint16_t>(ReadLittle(2)); }
uint32_t Stream::ReadDword() { return static_cast<uint32_t>(ReadLittle(4)); }

float Stream::ReadFloat() {
    uint32_t bits = ReadDword();
    float f;
    std::memcpy(&f, &bits, sizeof f);
    return f;
}

double Stream::ReadDouble() {
    uint64_t bits = ReadLittle(8);
    double d;
    std::memcpy(&d, &bits, sizeof d);
    return d;
}

void Stream::ReadBuffer(void* out, size_t size) {
    size_t got = ok_ ? RawRead(out, size) : 0;
    if (got < size) {
        std::memset(out, 0, size);  // no half values
        ok_ = false;
    }
}

Stream& Stream::StoreByte(uint8_t v) {
    StoreLittle(v, 1);
    return *this;
}
Stream& Stream::StoreWord(uint16_t v) {
    StoreLittle(v, 2);
    return *this;
}
Stream& Stream::StoreDword(uint32_t v) {
    StoreLittle(v, 4);
    return *this;
}
Stream& Stream::StoreFloat(float v) {
    uint32_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    StoreLittle(bits, 4);
    return *this;
}
Stream& Stream::StoreDouble(double v) {
    uint64_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    StoreLittle(bits, 8);
    return *this;
}
Stream& Stream::StoreBuffer(const void* data, size_t size) {
    if (ok_ && size > 0 && RawWrite(data, size) != size) ok_ = false;
    return *this;
}

UserStream::UserStream(const char* path, bool load) {
    file_ = std::fopen(path, load ? "rb" : "wb");
    ok_ = file_ != nullptr;
}

UserStream::~UserStream() { Close(); }

bool UserStream::Close() {
    if (!file_) return ok_;
    if (std::fclose(file_) != 0) ok_ = false;
    file_ = nullptr;
    return ok_;
}

size_t UserStream::RawRead(void* out, size_t size) { return file_ ? std::fread(out, 1, size, file_) : 0; }
size_t UserStream::RawWrite(const void* data, size_t size) { return file_ ? std::fwrite(data, 1, size, file_) : 0; }

size_t MemoryWriteBuffer::RawRead(void*, size_t) { return 0; }
size_t MemoryWriteBuffer::RawWrite(const void* data, size_t size) {
    const uint8_t* p = static_cast<const uint8_t*>(data);
    data_.insert(data_.end(), p, p + size);
    return size;
}

size_t MemoryReadBuffer::RawRead(void* out, size_t size) {
    size_t n = size < Remaining() ? size : Remaining();
    if (n) std::memcpy(out, data_ + pos_, n);
    pos_ += n;
    return n;
}
size_t MemoryReadBuffer::RawWrite(const void*, size_t) { return 0; }

uint32_t Checksum32(const void* data, size_t size, uint32_t seed) {
    const uint8_t* p = static_cast<const uint8_t*>(data);
    uint32_t h = seed;
    for (size_t i = 0; i < size; ++i) {
        h ^= p[i];
        h *= 16777619u;
    }
    return h;
}

}  // namespace sim
