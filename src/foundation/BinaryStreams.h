#pragma once

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <istream>
#include <ostream>
#include <span>
#include <streambuf>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// Chunked binary streams. Every multi-byte value is little-endian:
//   uint32        4 bytes
//   float         its IEEE bit pattern as a uint32
//   string        uint32 byte count, then the bytes (no terminator, no padding)
//   chunk header  4 identifier bytes (zero-filled), then a uint32 (chunk size or format number)
// A read past the end leaves its result at 0 or empty and puts the stream in the failed state;
// callers check good() after a group of reads.
class BinaryDataReader {
public:
    // The chunk size before any header was read.
    static constexpr uint32_t kNoChunk = 0xFFFFFFFFu;

    explicit BinaryDataReader(std::istream& stream) : stream(stream) {}
    virtual ~BinaryDataReader() = default;
    BinaryDataReader(const BinaryDataReader&) = delete;
    BinaryDataReader& operator=(const BinaryDataReader&) = delete;

    // Returns the identifier without its zero fill and stores the value as the chunk size.
    // A header read from a failed stream gives an empty identifier and a chunk size of 0.
    std::string readChunkHeader();
    // Reads a header and tells whether its identifier is the expected one (never on a failed stream).
    bool readChunkHeader(std::string_view expectedIdentifier);
    uint32_t chunkSize() const { return lastChunkSize; }

    uint32_t readUInt32();
    float readFloat();
    std::string readString();
    // Fills the destination only when all bytes could be read.
    bool readRaw(void* destination, std::size_t size);

    bool good() const { return stream.good(); }

private:
    bool readBytes(void* destination, std::size_t size);

    std::istream& stream;
    uint32_t lastChunkSize = kNoChunk;
};

class BinaryDataWriter {
public:
    explicit BinaryDataWriter(std::ostream& stream) : stream(stream) {}
    virtual ~BinaryDataWriter() = default;
    BinaryDataWriter(const BinaryDataWriter&) = delete;
    BinaryDataWriter& operator=(const BinaryDataWriter&) = delete;

    // Writes the identifier's first four characters, zero-filled when shorter.
    void writeChunkHeader(std::string_view identifier, uint32_t value);
    void writeUInt32(uint32_t value);
    void writeFloat(float value);
    void writeString(std::string_view text);
    void writeRaw(const void* source, std::size_t size);

    bool good() const { return stream.good(); }
    void flush() { stream.flush(); }

private:
    std::ostream& stream;
};

// Holds a stream that must exist before the reader or writer base that refers to it.
template <class Stream>
struct StreamHolder {
    template <class... Args>
    explicit StreamHolder(Args&&... args) : heldStream(std::forward<Args>(args)...) {}
    Stream heldStream;
};

class BinaryFileReader : private StreamHolder<std::ifstream>, public BinaryDataReader {
public:
    explicit BinaryFileReader(const std::string& path);
    bool isOpen() const { return heldStream.is_open(); }
};

class BinaryFileWriter : private StreamHolder<std::ofstream>, public BinaryDataWriter {
public:
    explicit BinaryFileWriter(const std::string& path);
    bool isOpen() const { return heldStream.is_open(); }
};

// An input stream over bytes in memory, which must outlive it.
class ByteSpanInputStream : public std::istream {
public:
    explicit ByteSpanInputStream(std::span<const uint8_t> bytes);

private:
    class Buffer : public std::streambuf {
    public:
        explicit Buffer(std::span<const uint8_t> bytes);
    };
    Buffer buffer;
};

// An output stream that appends everything written to a byte vector.
class ByteVectorOutputStream : public std::ostream {
public:
    ByteVectorOutputStream();

    const std::vector<uint8_t>& bytes() const { return buffer.bytes; }
    std::vector<uint8_t> release() { return std::exchange(buffer.bytes, {}); }

private:
    class Buffer : public std::streambuf {
    public:
        std::vector<uint8_t> bytes;

    protected:
        int_type overflow(int_type character) override;
        std::streamsize xsputn(const char* source, std::streamsize count) override;
    };
    Buffer buffer;
};

class BinaryMemoryReader : private StreamHolder<ByteSpanInputStream>, public BinaryDataReader {
public:
    // The reader only views the bytes: they must outlive it, so temporaries are refused.
    explicit BinaryMemoryReader(std::span<const uint8_t> bytes);
    explicit BinaryMemoryReader(std::vector<uint8_t>&&) = delete;
};

class BinaryMemoryWriter : private StreamHolder<ByteVectorOutputStream>, public BinaryDataWriter {
public:
    BinaryMemoryWriter();

    const std::vector<uint8_t>& bytes() const { return heldStream.bytes(); }
    // Hands the bytes over; the writer is empty afterwards.
    std::vector<uint8_t> release() { return heldStream.release(); }
};
