#include "foundation/BinaryStreams.h"

#include "foundation/LittleEndian.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

namespace {

constexpr std::size_t kIdentifierSize = 4;

// Strings are read in pieces so that a corrupt count fails at the end of the data instead of
// allocating gigabytes up front.
constexpr std::size_t kStringPieceSize = 64 * 1024;

} // namespace

bool BinaryDataReader::readBytes(void* destination, std::size_t size) {
    if (stream.fail())
        return false;
    stream.read(static_cast<char*>(destination), static_cast<std::streamsize>(size));
    return !stream.fail();
}

std::string BinaryDataReader::readChunkHeader() {
    std::array<char, kIdentifierSize> identifier{};
    uint8_t value[4];
    if (!readBytes(identifier.data(), identifier.size()) || !readBytes(value, sizeof value)) {
        stream.setstate(std::ios::failbit);
        lastChunkSize = 0;
        return {};
    }
    lastChunkSize = loadLittleEndian32(value);
    const auto end = std::find(identifier.begin(), identifier.end(), '\0');
    return std::string(identifier.begin(), end);
}

bool BinaryDataReader::readChunkHeader(std::string_view expectedIdentifier) {
    const std::string identifier = readChunkHeader();
    return good() && identifier == expectedIdentifier.substr(0, kIdentifierSize);
}

uint32_t BinaryDataReader::readUInt32() {
    uint8_t bytes[4];
    if (!readBytes(bytes, sizeof bytes)) {
        stream.setstate(std::ios::failbit);
        return 0;
    }
    return loadLittleEndian32(bytes);
}

float BinaryDataReader::readFloat() {
    return std::bit_cast<float>(readUInt32());
}

std::string BinaryDataReader::readString() {
    const uint32_t count = readUInt32();
    std::string text;
    while (good() && text.size() < count) {
        const std::size_t piece = std::min<std::size_t>(count - text.size(), kStringPieceSize);
        const std::size_t oldSize = text.size();
        text.resize(oldSize + piece);
        if (!readBytes(text.data() + oldSize, piece)) {
            stream.setstate(std::ios::failbit);
            return {};
        }
    }
    return good() ? text : std::string();
}

bool BinaryDataReader::readRaw(void* destination, std::size_t size) {
    std::vector<char> bytes(size);
    if (!readBytes(bytes.data(), size)) {
        stream.setstate(std::ios::failbit);
        return false;
    }
    std::memcpy(destination, bytes.data(), size);
    return true;
}

void BinaryDataWriter::writeChunkHeader(std::string_view identifier, uint32_t value) {
    std::array<char, kIdentifierSize> bytes{};
    std::copy_n(identifier.begin(), std::min(identifier.size(), kIdentifierSize), bytes.begin());
    writeRaw(bytes.data(), bytes.size());
    writeUInt32(value);
}

void BinaryDataWriter::writeUInt32(uint32_t value) {
    uint8_t bytes[4];
    storeLittleEndian32(value, bytes);
    writeRaw(bytes, sizeof bytes);
}

void BinaryDataWriter::writeFloat(float value) {
    writeUInt32(std::bit_cast<uint32_t>(value));
}

void BinaryDataWriter::writeString(std::string_view text) {
    writeUInt32(static_cast<uint32_t>(text.size()));
    writeRaw(text.data(), text.size());
}

void BinaryDataWriter::writeRaw(const void* source, std::size_t size) {
    stream.write(static_cast<const char*>(source), static_cast<std::streamsize>(size));
}

BinaryFileReader::BinaryFileReader(const std::string& path)
    : StreamHolder<std::ifstream>(path, std::ios::binary), BinaryDataReader(heldStream) {}

BinaryFileWriter::BinaryFileWriter(const std::string& path)
    : StreamHolder<std::ofstream>(path, std::ios::binary | std::ios::trunc), BinaryDataWriter(heldStream) {}

ByteSpanInputStream::Buffer::Buffer(std::span<const uint8_t> bytes) {
    // The get area is never written through; streambuf just has no const form.
    char* begin = const_cast<char*>(reinterpret_cast<const char*>(bytes.data()));
    setg(begin, begin, begin + bytes.size());
}

ByteSpanInputStream::ByteSpanInputStream(std::span<const uint8_t> bytes)
    : std::istream(nullptr), buffer(bytes) {
    rdbuf(&buffer);
}

ByteVectorOutputStream::ByteVectorOutputStream() : std::ostream(nullptr) {
    rdbuf(&buffer);
}

ByteVectorOutputStream::Buffer::int_type ByteVectorOutputStream::Buffer::overflow(int_type character) {
    if (!traits_type::eq_int_type(character, traits_type::eof()))
        bytes.push_back(static_cast<uint8_t>(traits_type::to_char_type(character)));
    return traits_type::not_eof(character);
}

std::streamsize ByteVectorOutputStream::Buffer::xsputn(const char* source, std::streamsize count) {
    bytes.insert(bytes.end(), reinterpret_cast<const uint8_t*>(source),
                 reinterpret_cast<const uint8_t*>(source) + count);
    return count;
}

BinaryMemoryReader::BinaryMemoryReader(std::span<const uint8_t> bytes)
    : StreamHolder<ByteSpanInputStream>(bytes), BinaryDataReader(heldStream) {}

BinaryMemoryWriter::BinaryMemoryWriter()
    : StreamHolder<ByteVectorOutputStream>(), BinaryDataWriter(heldStream) {}
