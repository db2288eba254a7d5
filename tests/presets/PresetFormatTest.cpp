#include "PresetTestSupport.h"
#include "support/TempHome.h"

#include "presets/PresetParameterCollection.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

using namespace testing_support;

namespace {

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

// Band 1's gain set to 6 dB and band 2's used flag on, the rest untouched, in the current format.
std::string smallPreset(const std::string& header = presetHeader()) {
    return header + "[Parameters]\nBand 1 Gain=6\nBand 2 Used=1\n";
}

} // namespace

TEST(PresetFormat, EveryParameterRoundTripsBitExactly) {
    std::mt19937 random(4);
    for (int trial = 0; trial < 5; ++trial) {
        StoredPlugin source;
        randomise(source.plugin, random);
        source.plugin.setPresetState({"Trial " + std::to_string(trial), {}, false});
        const std::vector<float> values = source.plugin.getParameterValues();
        ASSERT_EQ(values.size(), 600u);

        StoredPlugin target;
        EXPECT_TRUE(target.load(source.stateText()).empty());
        EXPECT_TRUE(bitIdentical(target.plugin.getParameterValues(), values)) << "trial " << trial;
        EXPECT_EQ(target.plugin.getPresetState().name, "Trial " + std::to_string(trial));
    }
}

TEST(PresetFormat, LayoutOfTheText) {
    StoredPlugin stored;
    stored.plugin.bands.getSet(0).gain.setValue(-4.5f);
    stored.plugin.setPresetState({"My Preset", {}, false});
    const std::vector<std::string> lines = linesOf(stored.stateText());
    ASSERT_EQ(lines.size(), 4u + 1u + 1u + 600u);
    EXPECT_EQ(std::vector<std::string>(lines.begin(), lines.begin() + 7),
              (std::vector<std::string>{"[OndrelPreset]", "Signature=ZO4p", "Version=1", "Name=\"My Preset\"",
                                        "", "[Parameters]", "Band 1 Used=0"}));
    EXPECT_EQ(lines[6 + 2], "Band 1 Frequency=9.96578407287598");
    EXPECT_EQ(lines[6 + 3], "Band 1 Gain=-4.5");
    EXPECT_EQ(lines[6 + 5], "Band 1 Shape=7");
    EXPECT_EQ(lines[6 + 556], "Output Level=0");
    EXPECT_EQ(lines.back(), "Band 24 Spectral Tilt=0");

    // A Settings section appears only with settings.
    stored.plugin.setPresetSettings({{"View", "Wide Open"}});
    const std::vector<std::string> withSettings = linesOf(stored.stateText());
    EXPECT_EQ(std::vector<std::string>(withSettings.end() - 4, withSettings.end()),
              (std::vector<std::string>{"Band 24 Spectral Tilt=0", "", "[Settings]", "View=\"Wide Open\""}));
}

TEST(PresetFormat, MetadataWithAwkwardCharactersRoundTrips) {
    StoredPlugin stored;
    const std::string path = (std::filesystem::path(testing_support::tempHome()) / "Awkward.zvp").string();
    const PresetMetadata metadata{"Name with \"quotes\" and \\slashes\\", "Author\nwith two lines",
                                  "Carriage\rreturn, tab\tand trailing blank ", "Bass,Mix Bus,Warm"};
    ASSERT_TRUE(stored.plugin.savePreset(path, metadata));
    EXPECT_EQ(stored.plugin.getPresetState(), (PresetState{metadata.name, path, false}));

    std::ifstream file(path);
    ErrorReporter errors;
    const std::optional<PresetContent> content =
        PresetParameterCollection(stored.plugin).readPreset(file, errors);
    ASSERT_TRUE(content.has_value());
    EXPECT_EQ(content->metadata.name, metadata.name);
    EXPECT_EQ(content->metadata.author, metadata.author);
    EXPECT_EQ(content->metadata.description, metadata.description);
    EXPECT_EQ(content->metadata.tags, metadata.tags);

    StoredPlugin other;
    ASSERT_TRUE(other.plugin.loadPreset(path, errors));
    EXPECT_EQ(other.plugin.getPresetState(), (PresetState{metadata.name, path, false}));
}

TEST(PresetFormat, ACommentBeforeTheHeaderIsAccepted) {
    StoredPlugin stored;
    bool loaded = false;
    EXPECT_TRUE(stored.load("; exported\n" + smallPreset(), &loaded).empty());
    EXPECT_TRUE(loaded);
    EXPECT_FLOAT_EQ(stored.plugin.bands.getSet(0).gain.getValue(), 6.0f);
    EXPECT_TRUE(stored.plugin.bands.getSet(1).used.getValue());
}

TEST(PresetFormat, HeaderFailuresReportTheirMessageAndChangeNothing) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {"Signature=ZO4p\n[OndrelPreset]\n", "Invalid preset header."},
        {"[OtherPreset]\nSignature=ZO4p\nVersion=1\n", "Invalid preset header."},
        {"", "Invalid preset header."},
        {"; only a comment\n", "Invalid preset header."},
        {smallPreset(presetHeader("ABCD")),
         "Unknown preset signature (likely intended for another Zorvane plug-in): ABCD"},
        {smallPreset(presetHeader("ZO3p")),
         "Unknown preset signature (likely intended for another Zorvane plug-in): ZO3p"},
        {"[OndrelPreset]\nVersion=1\n",
         "Unknown preset signature (likely intended for another Zorvane plug-in): "},
        {smallPreset(presetHeader("ZO4p", "2")), "Preset version not supported: 2"},
        {smallPreset(presetHeader("ZO4p", "one")), "Preset version not supported: 0"},
        {"[OndrelPreset\nSignature=ZO4p\n", "Invalid file format."},
        {"[OndrelPreset]\nSignature ZO4p\n", "Invalid file format."},
    };
    for (const auto& [text, message] : cases) {
        StoredPlugin stored;
        stored.plugin.bands.getSet(3).gain.setValue(12.0f);
        stored.plugin.setPresetState({"Before", "/before.zvp", true});
        const std::vector<float> before = stored.plugin.getParameterValues();
        bool loaded = true;
        EXPECT_EQ(stored.load(text, &loaded), std::vector<std::string>{message}) << text;
        EXPECT_FALSE(loaded);
        EXPECT_TRUE(bitIdentical(stored.plugin.getParameterValues(), before)) << text;
        EXPECT_EQ(stored.plugin.getPresetState().name, "Before");
    }
}

TEST(PresetFormat, ABrokenLineAfterTheHeaderRejectsTheWholeText) {
    for (const char* broken : {"Band 3 Gain 5\n", "[Settings\n", "[Settings] trailing\n"}) {
        StoredPlugin stored;
        const std::vector<float> before = stored.plugin.getParameterValues();
        EXPECT_EQ(stored.load(smallPreset() + std::string(broken)),
                  std::vector<std::string>{"Invalid file format."});
        EXPECT_TRUE(bitIdentical(stored.plugin.getParameterValues(), before));
    }
}

TEST(PresetFormat, AMissingFileIsReportedAsUnreadable) {
    StoredPlugin stored;
    ErrorReporter errors;
    EXPECT_FALSE(stored.plugin.loadPreset("/nonexistent/folder/None.zvp", errors));
    EXPECT_EQ(errors.getMessages(),
              std::vector<std::string>{"Incorrect file permissions or corrupt preset file."});
}

TEST(PresetFormat, UnknownKeysAreReportedAndTheRestApplied) {
    StoredPlugin stored;
    stored.plugin.bands.getSet(5).q.setValue(0.9f);
    bool loaded = false;
    const std::string text = presetHeader() +
                             "[Parameters]\nBand 1 Gain=3\nBand 25 Gain=4\nBand 2 Gain=5\nAnalyzer Zoom=1\n"
                             "[Other Section]\nAnything=goes\n";
    EXPECT_EQ(stored.load(text, &loaded), (std::vector<std::string>{"Unknown parameter: Band 25 Gain",
                                                                    "Unknown parameter: Analyzer Zoom"}));
    EXPECT_TRUE(loaded);
    EXPECT_FLOAT_EQ(stored.plugin.bands.getSet(0).gain.getValue(), 3.0f);
    EXPECT_FLOAT_EQ(stored.plugin.bands.getSet(1).gain.getValue(), 5.0f);
    // Parameters the text does not mention go back to their defaults.
    EXPECT_FLOAT_EQ(stored.plugin.bands.getSet(5).q.getValue(), 0.5f);
}

TEST(PresetFormat, ValuesAreClampedByTheirParameters) {
    StoredPlugin stored;
    stored.load(presetHeader() + "[Parameters]\nBand 1 Gain=100\nBand 1 Q=-3\nBand 1 Stereo Placement=9\n"
                                 "Band 1 Shape=12\nBand 2 Shape=99\nAnalyzer External Spectrum=-7\n");
    const EQParameterSet& band = stored.plugin.bands.getSet(0);
    EXPECT_FLOAT_EQ(band.gain.getValue(), 30.0f);
    EXPECT_FLOAT_EQ(band.q.getValue(), 0.0f);
    EXPECT_EQ(band.stereoPlacement.getItemIndex(), 4);
    EXPECT_EQ(band.getShape(), FilterShape::FlatTilt);
    EXPECT_EQ(stored.plugin.bands.getSet(1).getShape(), FilterShape::FlatTilt); // the largest shape code
    EXPECT_EQ(stored.plugin.analyzer.externalSpectrum.getValue(), -1);
}

TEST(PresetFormat, SettingsRoundTripThroughTheState) {
    StoredPlugin source;
    source.plugin.setPresetSettings(
        {{"Display", "Zoomed In"}, {"Line\\Feed", "a\nb"}, {"bad=key", "dropped"}});
    StoredPlugin target;
    target.load(source.stateText());
    const std::map<std::string, std::string> expected{{"Display", "Zoomed In"}, {"Line\\Feed", "a\nb"}};
    EXPECT_EQ(target.plugin.getPresetSettings(), expected);
}
