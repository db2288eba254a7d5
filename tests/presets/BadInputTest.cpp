#include "PresetTestSupport.h"
#include "StateChunkCheck.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

using namespace testing_support;

namespace {

std::string withParameters(const std::string& lines) {
    return presetHeader() + "[Parameters]\n" + lines;
}

} // namespace

TEST(BadInput, EveryTruncationOfAStateIsSafe) {
    StoredPlugin source;
    std::mt19937 random(3);
    randomise(source.plugin, random);
    source.plugin.setPresetState({"Cut \"short\"", {}, false});
    source.plugin.setPresetSettings({{"Key", "Value with spaces"}});
    const std::string chunk = source.stateText();

    StoredPlugin target;
    // Every cut inside the header and the first entries, then every 61st byte.
    for (size_t length = 0; length <= chunk.size(); length += length < 200 ? 1 : 61)
        ASSERT_EQ(checkStateChunk(target.plugin, std::string_view(chunk).substr(0, length)), "") << length;
}

TEST(BadInput, BinaryGarbageIsRejectedOrHarmless) {
    StoredPlugin target;
    std::mt19937 random(5);
    for (int trial = 0; trial < 300; ++trial) {
        std::string bytes(random() % 2048, '\0');
        for (char& byte : bytes)
            byte = static_cast<char>(random());
        // Half of them behind a valid header, so that the garbage reaches the sections.
        if (trial % 2 == 1)
            bytes = withParameters("Band 1 Gain=1\n") + bytes;
        ASSERT_EQ(checkStateChunk(target.plugin, bytes), "") << "trial " << trial;
    }
}

TEST(BadInput, MegabytesOfTextAreReadInOnePass) {
    StoredPlugin target;
    // Eight megabytes of repeated entries: the last one wins.
    std::string lines;
    for (int k = 0; lines.size() < 8u << 20; ++k)
        lines += "Band 3 Gain=" + std::to_string(k % 61 - 30) + "\n";
    lines += "Band 3 Gain=7.25\n";
    ASSERT_EQ(checkStateChunk(target.plugin, withParameters(lines)), "");
    EXPECT_FLOAT_EQ(target.plugin.bands.getSet(2).gain.getValue(), 7.25f);

    // A single line of four megabytes, as a key and as a value.
    const std::string huge(4u << 20, 'x');
    ErrorReporter errors;
    std::istringstream asKey(withParameters(huge + "=1\n"));
    EXPECT_TRUE(target.plugin.readState(asKey, errors));
    ASSERT_EQ(errors.getMessages().size(), 1u);
    EXPECT_LT(errors.getMessages()[0].size(), 300u); // the message shows the key's beginning only
    ASSERT_EQ(checkStateChunk(target.plugin, withParameters("Band 1 Gain=" + huge + "\n")), "");
    ASSERT_EQ(checkStateChunk(target.plugin, presetHeader() + "Name=" + huge + "\n"), "");

    // A flood of unknown keys keeps a bounded list of messages.
    std::string unknown;
    for (int k = 0; k < 20000; ++k)
        unknown += "Unknown " + std::to_string(k) + "=1\n";
    ErrorReporter flood;
    std::istringstream floodStream(withParameters(unknown));
    EXPECT_TRUE(target.plugin.readState(floodStream, flood));
    EXPECT_EQ(flood.getMessages().size(), ErrorReporter::kMaximumMessages);
    EXPECT_EQ(flood.getDroppedCount(), 20000u - ErrorReporter::kMaximumMessages);
}

TEST(BadInput, AbsurdNumbersNeverLeaveTheRange) {
    StoredPlugin target;
    const std::vector<std::pair<std::string, float>> cases{
        {"1e999", 0.0f},     {"-1e999", 0.0f}, {"nan", 0.0f},  {"inf", 0.0f},  {"-0", 0.0f},
        {"1e-999", 0.0f},    {"+5", 5.0f},     {"5abc", 0.0f}, {"", 0.0f},     {"3.4e38", 30.0f},
        {"-3.4e39", -30.0f}, {"0x10", 0.0f},   {" 4 ", 4.0f},  {"1e30", 30.0f}};
    for (const auto& [text, expected] : cases) {
        // Not a finite number: the parameter keeps its default (the load resets to defaults).
        ASSERT_EQ(checkStateChunk(target.plugin, withParameters("Band 1 Gain=" + text + "\n")), "") << text;
        EXPECT_FLOAT_EQ(target.plugin.bands.getSet(0).gain.getValue(), expected) << text;
    }
    for (const char* text : {"1e999", "-1e999", "nan", "-0", "2147483648", "-2147483649", "1e30"}) {
        ASSERT_EQ(
            checkStateChunk(target.plugin, withParameters(std::string("Band 1 Shape=") + text +
                                                          "\nBand 1 Stereo Placement=" + text +
                                                          "\nAnalyzer External Spectrum=" + text + "\n")),
            "")
            << text;
    }
}

TEST(BadInput, InvalidUtf8IsMadeValidWhereItIsKept) {
    StoredPlugin target;
    const std::string chunk =
        presetHeader() +
        "Name=Bad \xFF\xFE name\n\n[Parameters]\nBand \xC0\xAF Gain=1\n[Settings]\nK\xE2=v\xF0\n";
    bool loaded = false;
    const std::vector<std::string> messages = target.load(chunk, &loaded);
    EXPECT_TRUE(loaded);
    EXPECT_EQ(target.plugin.getPresetState().name, "Bad \xEF\xBF\xBD\xEF\xBF\xBD name");
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0], "Unknown parameter: Band \xEF\xBF\xBD\xEF\xBF\xBD Gain");
    EXPECT_EQ(target.plugin.getPresetSettings().begin()->first, "K\xEF\xBF\xBD");
    ASSERT_EQ(checkStateChunk(target.plugin, chunk), "");
}

// Inputs the fuzzer found interesting, kept in the repository and replayed in every build.
TEST(BadInput, FuzzCorpusReplays) {
    StoredPlugin target;
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(ONDREL_FUZZ_CORPUS)) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        EXPECT_EQ(checkStateChunk(target.plugin, bytes), "") << entry.path();
        ++files;
    }
    EXPECT_GE(files, 10);
}
