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

TEST(BinaryEncoding, WritesLittleEndianPrimitives) {
    BinaryMemoryWriter writer;
    writer.writeUInt32(0x12345678u);
    writer.writeString("abc");
    writer.writeFloat(1.0f);  // IEEE 754: 0x3F800000
    writer.writeFloat(-2.5f); // sign 1, exponent 128, mantissa 0x200000: 0xC0200000
    writer.writeChunkHeader("ab", 7);
    writer.writeChunkHeader("PRESETS", 0x01020304u); // only the first four characters
    writer.writeString("");
    const uint64_t fileTime = 0x0102030405060708ull;
    writer.writeRaw(&fileTime, sizeof fileTime);

    Bytes expected = {0x78, 0x56, 0x34, 0x12,                         //
                      0x03, 0x00, 0x00, 0x00, 'a',  'b',  'c',        //
                      0x00, 0x00, 0x80, 0x3F,                         //
                      0x00, 0x00, 0x20, 0xC0,                         //
                      'a',  'b',  0x00, 0x00, 0x07, 0x00, 0x00, 0x00, //
                      'P',  'R',  'E',  'S',  0x04, 0x03, 0x02, 0x01, //
                      0x00, 0x00, 0x00, 0x00};
    // Raw bytes keep the processor's own order.
    uint8_t rawTime[8];
    std::memcpy(rawTime, &fileTime, sizeof rawTime);
    expected.insert(expected.end(), rawTime, rawTime + 8);
    EXPECT_TRUE(writer.good());
    EXPECT_EQ(writer.bytes(), expected);
}

TEST(BinaryEncoding, ReadsWhatWasWrittenAndConsumesExactly) {
    BinaryMemoryWriter writer;
    writer.writeChunkHeader("Zv", 42);
    writer.writeString("");
    writer.writeUInt32(0xFFFFFFFEu);
    writer.writeFloat(3.25f);
    writer.writeString("Ondrel \xC3\xA9");
    writer.writeChunkHeader("EQ01", 3);
    const Bytes bytes = writer.release();
    EXPECT_TRUE(writer.bytes().empty());

    BinaryMemoryReader reader(bytes);
    EXPECT_EQ(reader.chunkSize(), BinaryDataReader::kNoChunk);
    EXPECT_EQ(reader.readChunkHeader(), "Zv");
    EXPECT_EQ(reader.chunkSize(), 42u);
    EXPECT_EQ(reader.readString(), ""); // four bytes only: the next value is intact
    EXPECT_EQ(reader.readUInt32(), 0xFFFFFFFEu);
    EXPECT_EQ(reader.readFloat(), 3.25f);
    EXPECT_EQ(reader.readString(), "Ondrel \xC3\xA9");
    EXPECT_TRUE(reader.readChunkHeader("EQ01"));
    EXPECT_EQ(reader.chunkSize(), 3u);
    EXPECT_TRUE(reader.good());
}

TEST(BinaryEncoding, DecodesHandMadeBytes) {
    const Bytes bytes = {0x02, 0x00, 0x00, 0x00, 'h', 'i', 0x00, 0x00, 0xC0, 0x7F, 0x01, 0x00, 0x00, 0x80};
    BinaryMemoryReader reader(bytes);
    EXPECT_EQ(reader.readString(), "hi");
    EXPECT_TRUE(std::isnan(reader.readFloat())); // 0x7FC00000 is a quiet NaN
    EXPECT_EQ(reader.readUInt32(), 0x80000001u);
    EXPECT_TRUE(reader.good());
}

TEST(BinaryFailure, ReadPastEndGivesDefaultsAndFails) {
    const Bytes bytes = {0x01, 0x02};
    BinaryMemoryReader reader(bytes);
    EXPECT_EQ(reader.readUInt32(), 0u);
    EXPECT_FALSE(reader.good());
    // Later reads keep failing even where data would be present.
    EXPECT_EQ(reader.readFloat(), 0.0f);
    EXPECT_EQ(reader.readString(), "");
    uint64_t raw = 0x5555;
    EXPECT_FALSE(reader.readRaw(&raw, sizeof raw));
    EXPECT_EQ(raw, 0x5555u);
}

TEST(BinaryFailure, StringShorterThanItsCountIsEmpty) {
    const Bytes bytes = {0x05, 0x00, 0x00, 0x00, 'a', 'b'};
    BinaryMemoryReader reader(bytes);
    EXPECT_EQ(reader.readString(), "");
    EXPECT_FALSE(reader.good());
}

TEST(BinaryFailure, HugeStringCountFailsWithoutReadingBeyondData) {
    const Bytes bytes = {0xFF, 0xFF, 0xFF, 0x7F, 'x'};
    BinaryMemoryReader reader(bytes);
    EXPECT_EQ(reader.readString(), "");
    EXPECT_FALSE(reader.good());
}

TEST(BinaryFailure, PartialRawReadLeavesDestinationAlone) {
    const Bytes bytes = {1, 2, 3};
    BinaryMemoryReader reader(bytes);
    uint8_t destination[4] = {9, 9, 9, 9};
    EXPECT_FALSE(reader.readRaw(destination, sizeof destination));
    EXPECT_EQ(destination[0], 9);
    EXPECT_EQ(destination[2], 9);
}

TEST(BinaryFailure, ChunkIdFromFailedStreamIsEmptyAndNeverMatches) {
    const Bytes bytes = {'E', 'Q', 0, 0, 0x01};
    BinaryMemoryReader reader(bytes);
    EXPECT_FALSE(reader.readChunkHeader("EQ"));
    EXPECT_FALSE(reader.good());
    EXPECT_EQ(reader.chunkSize(), 0u);
    EXPECT_EQ(reader.readChunkHeader(), "");
    EXPECT_FALSE(reader.readChunkHeader(""));
}

TEST(BinaryFailure, MismatchedChunkIdIsReportedButStreamStaysGood) {
    BinaryMemoryWriter writer;
    writer.writeChunkHeader("SPCT", 9);
    BinaryMemoryReader reader(writer.bytes());
    EXPECT_FALSE(reader.readChunkHeader("SPCX"));
    EXPECT_TRUE(reader.good());
    EXPECT_EQ(reader.chunkSize(), 9u);
}

TEST(BinaryFiles, RoundTripThroughFile) {
    const auto folder = testing_support::makeTempFolder("binary");
    const std::string path = (folder / "data.bin").string();
    {
        BinaryFileWriter writer(path);
        ASSERT_TRUE(writer.isOpen());
        writer.writeChunkHeader("ZvSp", 1);
        writer.writeString("abc");
    }
    EXPECT_EQ(std::filesystem::file_size(path), 8u + 7u);
    BinaryFileReader reader(path);
    EXPECT_EQ(reader.chunkSize(), 0xFFFFFFFFu);
    EXPECT_TRUE(reader.readChunkHeader("ZvSp"));
    EXPECT_EQ(reader.readString(), "abc");
    EXPECT_TRUE(reader.good());

    BinaryFileReader missing((folder / "missing.bin").string());
    EXPECT_FALSE(missing.isOpen());
    EXPECT_EQ(missing.readUInt32(), 0u);
    EXPECT_FALSE(missing.good());
}

class ResourceReaderTest : public ::testing::Test {
protected:
    void SetUp() override {
        bundle = testing_support::makeTempFolder("bundle") / "Ondrel 4.vst3";
        std::filesystem::create_directories(bundle / "Contents/Resources/Images");
        std::ofstream file(bundle / "Contents/Resources/Images/knob.bin", std::ios::binary);
        file.write("\x04\x00\x00\x00knob", 8);
        setBundleResourceFolder((bundle / "Contents/Resources").string());
    }
    void TearDown() override { setBundleResourceFolder(""); }

    std::filesystem::path bundle;
};

TEST_F(ResourceReaderTest, ReadsNamedFileFromResourceFolder) {
    EXPECT_EQ(bundleResourceFolder(), (bundle / "Contents/Resources/").string());
    BinaryResourceReader reader("Images/knob.bin");
    EXPECT_EQ(reader.readString(), "knob");
    EXPECT_TRUE(reader.good());
}

TEST_F(ResourceReaderTest, MissingResourceThrowsWithItsName) {
    try {
        BinaryResourceReader reader("Images/missing.png");
        FAIL() << "no exception";
    } catch (const EResource& error) {
        EXPECT_STREQ(error.what(), "Resource 'Images/missing.png' not found\n");
    }
    try {
        BinaryResourceReader reader("");
        FAIL() << "no exception";
    } catch (const EResource& error) {
        EXPECT_STREQ(error.what(), "Resource not found");
    }
}

TEST(BundleLocation, ResourceFolderSitsBesideTheLibraryFolder) {
    EXPECT_EQ(resourceFolderForModulePath("/home/u/.vst3/Ondrel 4.vst3/Contents/x86_64-linux/Ondrel 4.so"),
              "/home/u/.vst3/Ondrel 4.vst3/Contents/Resources/");
}

} // namespace
