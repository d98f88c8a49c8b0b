// Sequential binary streams for the cooked cloth data: a file-backed
// `UserStream` and the in-memory `MemoryWriteBuffer` and `MemoryReadBuffer`.
// Values are stored little-endian whatever the host, so a cache written on
// one system reads on the other. A read past the end, or from a stream that
// failed, yields zeros and leaves the stream failed: callers check Ok() once
// after a run of reads instead of after each one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace sim {

class Stream {
public:
    virtual ~Stream() = default;

    uint8_t ReadByte();
    uint16_t ReadWord();
    uint32_t ReadDword();
    float ReadFloat();
    double ReadDouble();
    // Fills `size` bytes; on a short read all of them are zeroed and the stream fails.
    void ReadBuffer(void* out, size_t size);

    Stream& StoreByte(uint8_t v);
    Stream& StoreWord(uint16_t v);
    Stream& StoreDword(uint32_t v);
    Stream& StoreFloat(float v);
    Stream& StoreDouble(double v);
    Stream& StoreBuffer(const void* data, size_t size);

    bool Ok() const { return ok_; }

protected:
    // Moves up to `size` bytes; returns how many moved.
    virtual size_t RawRead(void* out, size_t size) = 0;
    virtual size_t RawWrite(const void* data, size_t size) = 0;
    bool ok_ = true;

private:
    uint64_t ReadLittle(int bytes);
    void StoreLittle(uint64_t v, int bytes);
};

// A file opened for reading ("rb") or writing ("wb"). Ok() is false when the
// file could not be opened.
class UserStream : public Stream {
public:
    UserStream(const char* path, bool load);
    ~UserStream() override;
    UserStream(const UserStream&) = delete;
    UserStream& operator=(const UserStream&) = delete;
    // Flushes and closes; false when the data did not all reach the file.
    bool Close();

protected:
    size_t RawRead(void* out, size_t size) override;
    size_t RawWrite(const void* data, size_t size) override;

private:
    std::FILE* file_ = nullptr;
};

class MemoryWriteBuffer : public Stream {
public:
    const std::vector<uint8_t>& Data() const { return data_; }
    size_t Size() const { return data_.size(); }
    void Clear() { data_.clear(); }

protected:
    size_t RawRead(void*, size_t) override;
    size_t RawWrite(const void* data, size_t size) override;

private:
    std::vector<uint8_t> data_;
};

// Reads a block of memory that outlives it.
class MemoryReadBuffer : public Stream {
public:
    MemoryReadBuffer(const void* data, size_t size) : data_(static_cast<const uint8_t*>(data)), size_(size) {}
    size_t Remaining() const { return size_ - pos_; }

protected:
    size_t RawRead(void* out, size_t size) override;
    size_t RawWrite(const void*, size_t) override;

private:
    const uint8_t* data_;
    size_t size_;
    size_t pos_ = 0;
};

// FNV-1a over a block: the cooked data's checksum.
uint32_t Checksum32(const void* data, size_t size, uint32_t seed = 2166136261u);

}  // namespace sim
