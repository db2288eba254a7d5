#include "foundation/Preferences.h"
#include "foundation/PreferencesFile.h"
#include "plugin/GenericPluginSettings.h"
#include "plugin/eq/OndrelPlugin.h"

#include <gtest/gtest.h>

#include "support/KilledWriter.h"

#include <filesystem>

namespace {

// Each test uses a domain of its own so that tests never see each other's files.
std::string freshDomain(const char* name) {
    const std::string domain = std::string("com.zorvane.Test.") + name;
    std::filesystem::remove(preferencesFilePath(domain));
    return domain;
}

constexpr InterfaceLimits kLimits{.defaultLayout = 1,
                                  .maximumLayout = 2,
                                  .defaultPanels = 0,
                                  .maximumPanels = 7,
                                  .defaultWidth = 900,
                                  .minimumWidth = 600,
                                  .maximumWidth = 2000,
                                  .defaultHeight = 500,
                                  .minimumHeight = 400,
                                  .maximumHeight = 1500};

PreferenceMap storedKeys(const std::string& domain) {
    return loadPreferences(preferencesFilePath(domain));
}

} // namespace

TEST(Settings, DefaultsOfEveryKey) {
    std::filesystem::remove(preferencesFilePath(kCommonPreferencesDomain));
    std::filesystem::remove(preferencesFilePath(preferencesDomain("Ondrel", 4)));
    OndrelPlugin plugin;
    plugin.initialise(HostKind::Vst3);
    const OndrelPlugin::OndrelSharedSettings& shared = plugin.getOndrelSharedSettings();
    EXPECT_FALSE(shared.enableMidiProgramChanges.getValue());
    EXPECT_EQ(shared.graphicsAcceleration.getValue(), GraphicsAccelerationMode::Accelerated);
    EXPECT_EQ(shared.retinaEnabled.getValue(), 1);
    EXPECT_TRUE(shared.showInteractiveHelp.getValue());
    EXPECT_FALSE(shared.showWelcomeHint.getValue());
    EXPECT_TRUE(shared.showComponentDisplays.getValue());
    EXPECT_TRUE(shared.presetBrowserTypeToSearch.getValue());
    EXPECT_TRUE(shared.autoAdjustDisplayRange.getValue());
    EXPECT_FALSE(shared.autoEqSketch.getValue());
    EXPECT_EQ(shared.instanceListKeyAction.getValue(), OndrelPlugin::KeyAction::FilterList);
    EXPECT_FALSE(shared.useAccessibleColors.getValue());
    const OndrelPlugin::OndrelSettings& settings = plugin.getOndrelSettings();
    EXPECT_EQ(settings.getDomain(), "com.zorvane.Ondrel.4");
    EXPECT_FALSE(settings.gainQInteraction.getValue());
    EXPECT_FALSE(settings.pianoRoll.getValue());
    EXPECT_TRUE(settings.showOutputLevelMeter.getValue());
    EXPECT_EQ(settings.interfaceWidth.getValue(), 1000);
    EXPECT_EQ(shared.getDomain(), "com.zorvane.Common");
    // Reading alone writes nothing.
    EXPECT_TRUE(storedKeys(kCommonPreferencesDomain).empty());
}

TEST(Settings, ReadValuesAreClampedAndWrongTypesFallBack) {
    const std::string domain = freshDomain("Read");
    {
        PreferencesWriter writer(domain);
        writer.writeInt("InterfaceWidth", 99999);
        writer.writeInt("InterfaceHeight", -5);
        writer.writeString("InterfaceLayout", "2"); // a string where an integer belongs
        writer.writeString("ScalingAdjustments", "1.5@96");
    }
    GenericPlugin::Settings settings(domain, kLimits);
    settings.load();
    EXPECT_EQ(settings.interfaceWidth.getValue(), 2000);
    EXPECT_EQ(settings.interfaceHeight.getValue(), 400);
    EXPECT_EQ(settings.interfaceLayout.getValue(), 1);
    EXPECT_EQ(settings.scalingAdjustments.getValue(), "1.5@96");
}

TEST(Settings, ChangesAreWrittenOnceLoadedAndNotifiedOncePerUpdate) {
    const std::string domain = freshDomain("Write");
    GenericPlugin::Settings settings(domain, kLimits);
    int notifications = 0;
    settings.changed.subscribe([&notifications] { ++notifications; });
    settings.load();
    settings.interfaceWidth.setValue(1200); // not loaded yet: kept, not written
    EXPECT_TRUE(storedKeys(domain).empty());
    EXPECT_EQ(notifications, 0);

    settings.markLoaded();
    settings.markLoaded();
    EXPECT_EQ(notifications, 1);

    settings.interfaceHeight.setValue(800);
    EXPECT_EQ(notifications, 2);
    PreferenceMap stored = storedKeys(domain);
    EXPECT_EQ(stored.size(), 1u);
    EXPECT_EQ(stored.at("InterfaceHeight").text, "800");
    {
        GenericPlugin::Settings::UpdateLock lock(settings);
        settings.interfacePanels.setValue(5);
        settings.scalingAdjustments.setValue("2@192");
        settings.interfacePanels.setValue(3);
    }
    EXPECT_EQ(notifications, 3);
    stored = storedKeys(domain);
    EXPECT_EQ(stored.at("InterfacePanels").text, "3");
    EXPECT_EQ(stored.at("ScalingAdjustments").text, "2@192");

    GenericPlugin::Settings reread(domain, kLimits);
    reread.load();
    EXPECT_EQ(reread.interfaceHeight.getValue(), 800);
    EXPECT_EQ(reread.interfacePanels.getValue(), 3);
    EXPECT_EQ(reread.interfaceWidth.getValue(), 900); // the unloaded change was never written
}

// A writer killed at any moment leaves the old or the new file, never a mixture.
TEST(Settings, AKilledWriterNeverLeavesAMixedFile) {
    const std::string domain = freshDomain("Killed");
    const std::string first(200000, 'a');
    const std::string second(200000, 'b');
    const auto writeOnce = [&](GenericPlugin::Settings& settings, const std::string& value) {
        settings.scalingAdjustments.setValue(value);
    };
    GenericPlugin::Settings settings(domain, kLimits);
    settings.load();
    settings.markLoaded();
    writeOnce(settings, first);
    testing_support::killWritersAtVaryingMoments(
        30,
        [&] {
            for (int k = 0;; ++k)
                writeOnce(settings, k % 2 == 0 ? second : first);
        },
        [&](int round) {
            const PreferenceMap stored = storedKeys(domain);
            ASSERT_EQ(stored.count("ScalingAdjustments"), 1u) << "round " << round;
            const std::string& value = stored.at("ScalingAdjustments").text;
            EXPECT_TRUE(value == first || value == second) << "round " << round << ": " << value.size();
        });
}
