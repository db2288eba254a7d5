#include "foundation/BinaryStreams.h"
#include "foundation/BinaryResourceReader.h"
#include "foundation/BundleLocation.h"

#include "support/TempHome.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace {

using Bytes = std::vector<uint8_t>;

TEST(BinaryEncoding, WritesLittleEndianPrimitivesByteByByte) {
    BinaryMemoryWriter writer;
    writer.writeUInt32(0x12345678u);
    writer.writeString("abc");
    writer.writeFloat(1.0f);  // 0x3F800000
    writer.writeFloat(-2.5f); // sign 1, exponent 128, mantissa 0x200000: 0xC0200000
    writer.writeChunkHeader("ab", 7);
    writer.writeChunkHeader("PRESETS", 0x01020304u); // only the first four characters
    writer.writeString("");
    const uint64_t fileTime = 0x0102030405060708ull;
    writer.writeRaw(&fileTime, sizeof fileTime);

    Bytes expected = {0x78, 0x56, 0x34, 0x12,                         //
                      0x03, 0x00, 0x00, 0x00, 'a',  'b',  'c',        //
                      0x00, 0x00, 0x80, 0x3F, 0x00, 0x00, 0x20, 0xC0, //
                      'a',  'b',  0x00, 0x00, 0x07, 0x00, 0x00, 0x00, //
                      'P',  'R',  'E',  'S',  0x04, 0x03, 0x02, 0x01, //
                      0x00, 0x00, 0x00, 0x00};
    uint8_t rawTime[8]; // raw bytes keep the processor's own order
    std::memcpy(rawTime, &fileTime, sizeof rawTime);
    expected.insert(expected.end(), rawTime, rawTime + 8);
    EXPECT_EQ(writer.bytes(), expected);
}

TEST(BinaryEncoding, DecodesHandMadeBytesAndConsumesExactly) {
    const Bytes bytes = {'Z', 'v', 0, 0,    42,   0,    0, 0, 0,    0,   0,   0,   0x02, 0, 0, 0, 'h',
                         'i', 0,   0, 0xC0, 0x7F, 0x01, 0, 0, 0x80, 'E', 'Q', '0', '1',  3, 0, 0, 0};
    BinaryMemoryReader reader(bytes);
    EXPECT_EQ(reader.chunkSize(), BinaryDataReader::kNoChunk);
    EXPECT_EQ(reader.readChunkHeader(), "Zv");
    EXPECT_EQ(reader.chunkSize(), 42u);
    EXPECT_EQ(reader.readString(), ""); // four bytes only: the next value is intact
    EXPECT_EQ(reader.readString(), "hi");
    EXPECT_TRUE(std::isnan(reader.readFloat())); // 0x7FC00000 is a quiet NaN
    EXPECT_EQ(reader.readUInt32(), 0x80000001u);
    EXPECT_FALSE(reader.readChunkHeader("EQ02")); // a mismatch is reported, the stream stays good
    EXPECT_EQ(reader.chunkSize(), 3u);
    EXPECT_TRUE(reader.good());
}

TEST(BinaryFailure, ReadsPastTheEndGiveDefaultsAndKeepFailing) {
    const Bytes bytes{0x01, 0x02, 0x03, 0x04, 0x05};
    BinaryMemoryReader reader(bytes);
    EXPECT_EQ(reader.readChunkHeader(), "");
    EXPECT_EQ(reader.chunkSize(), 0u);
    EXPECT_FALSE(reader.good());
    EXPECT_EQ(reader.readUInt32(), 0u);
    EXPECT_EQ(reader.readFloat(), 0.0f);
    EXPECT_EQ(reader.readString(), "");
    EXPECT_FALSE(reader.readChunkHeader(""));
    uint64_t raw = 0x5555;
    EXPECT_FALSE(reader.readRaw(&raw, sizeof raw));
    EXPECT_EQ(raw, 0x5555u);
}

TEST(BinaryFailure, ShortStringsAndPartialRawReadsLeaveTheirDestinations) {
    for (const Bytes& bytes : {Bytes{0x05, 0x00, 0x00, 0x00, 'a', 'b'}, Bytes{0xFF, 0xFF, 0xFF, 0x7F, 'x'}}) {
        BinaryMemoryReader reader(bytes);
        EXPECT_EQ(reader.readString(), "");
        EXPECT_FALSE(reader.good());
    }
    const Bytes three{1, 2, 3};
    BinaryMemoryReader reader(three);
    uint8_t destination[4] = {9, 9, 9, 9};
    EXPECT_FALSE(reader.readRaw(destination, sizeof destination));
    EXPECT_EQ(destination[0], 9);
}

TEST(BinaryFiles, RoundTripThroughAFileAndAMissingFileFails) {
    const auto folder = testing_support::makeTempFolder("binary");
    const std::string path = (folder / "data.bin").string();
    {
        BinaryFileWriter writer(path);
        writer.writeChunkHeader("ZvSp", 1);
        writer.writeFloat(3.25f);
        writer.writeString("Ondrel \xC3\xA9");
    }
    EXPECT_EQ(std::filesystem::file_size(path), 8u + 4u + 13u);
    BinaryFileReader reader(path);
    EXPECT_TRUE(reader.readChunkHeader("ZvSp"));
    EXPECT_EQ(reader.readFloat(), 3.25f);
    EXPECT_EQ(reader.readString(), "Ondrel \xC3\xA9");
    EXPECT_TRUE(reader.good());

    BinaryFileReader missing((folder / "missing.bin").string());
    EXPECT_FALSE(missing.isOpen());
    EXPECT_EQ(missing.readUInt32(), 0u);
    EXPECT_FALSE(missing.good());
}

TEST(BinaryResources, ReadFromTheBundlesResourceFolderOrThrowWithTheName) {
    EXPECT_EQ(resourceFolderForModulePath("/home/u/.vst3/Ondrel 4.vst3/Contents/x86_64-linux/Ondrel 4.so"),
              "/home/u/.vst3/Ondrel 4.vst3/Contents/Resources/");
    const auto resources = testing_support::makeTempFolder("bundle") / "Ondrel 4.vst3/Contents/Resources";
    std::filesystem::create_directories(resources / "Images");
    std::ofstream(resources / "Images/knob.bin", std::ios::binary).write("\x04\x00\x00\x00knob", 8);
    setBundleResourceFolder(resources.string());
    EXPECT_EQ(bundleResourceFolder(), resources.string() + "/");
    EXPECT_EQ(BinaryResourceReader("Images/knob.bin").readString(), "knob");
    const auto messageFor = [](const std::string& name) -> std::string {
        try {
            BinaryResourceReader reader(name);
        } catch (const EResource& error) {
            return error.what();
        }
        return "no exception";
    };
    EXPECT_EQ(messageFor("Images/missing.png"), "Resource 'Images/missing.png' not found\n");
    EXPECT_EQ(messageFor(""), "Resource not found");
    setBundleResourceFolder("");
}

} // namespace
