// The built bundle, driven only through the VST3 interfaces, the way a DAW drives it.
#include "HostObjects.h"
#include "PluginInstance.h"
#include "PluginModule.h"
#include "foundation/BinaryStreams.h"
#include "host/vst3/IPluginCompatibility.h"

#include "pluginterfaces/base/ustring.h"
#include "pluginterfaces/vst/ivstmidicontrollers.h"
#include "public.sdk/source/common/memorystream.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <numbers>
#include <string>
#include <vector>

using namespace Steinberg;
using namespace Steinberg::Vst;

namespace {

constexpr ParamID kHostBypass = 0x40000000;
constexpr double kRate = 48000.0;
constexpr int32_t kBlock = 256;
// The speaker arrangements of the 29 layouts, in layout order.
constexpr SpeakerArrangement kArrangements[] = {0x80000,
                                                0x3,
                                                0x7,
                                                0x33,
                                                0x107,
                                                0x37,
                                                0x3f,
                                                0x137,
                                                0x13f,
                                                0xf7,
                                                0x637,
                                                0xff,
                                                0x63f,
                                                0x2d6f7,
                                                0x2d6ff,
                                                0x302d6f7,
                                                0x302d6ff,
                                                0x300003f,
                                                0x2d03f,
                                                0x3000637,
                                                0x300063f,
                                                0x2d637,
                                                0x2d63f,
                                                0x302d637,
                                                0x302d63f,
                                                0x180000000002d637,
                                                0x180000000002d63f,
                                                0x180000000302d637,
                                                0x180000000302d63f};

std::string text(const TChar* chars) {
    char buffer[256];
    UString(const_cast<TChar*>(chars), 128).toAscii(buffer, sizeof(buffer));
    return buffer;
}

class Vst3PluginTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string error;
        module = vst3_host::PluginModule::load(ONDREL_BUNDLE, error);
        ASSERT_NE(module, nullptr) << error;
    }

    std::unique_ptr<vst3_host::PluginInstance> instance() {
        std::string error;
        auto created = vst3_host::PluginInstance::create(*module, &host, error);
        EXPECT_NE(created, nullptr) << error;
        return created;
    }

    std::unique_ptr<vst3_host::PluginInstance> started(SpeakerArrangement arrangement = SpeakerArr::kStereo) {
        auto created = instance();
        std::string error;
        EXPECT_TRUE(created->start(arrangement, kRate, kBlock, error)) << error;
        return created;
    }

    // Runs blocks of a signal through channel 0 of a stereo instance; returns channel 0 out.
    static std::vector<float> run(vst3_host::PluginInstance& plugin, const std::vector<float>& signal,
                                  vst3_host::ParameterChanges* firstChanges = nullptr, bool forward = true) {
        std::vector<float> out(signal.size());
        std::vector<float> silence(kBlock, 0.0f), left(kBlock), right(kBlock), sink(kBlock);
        vst3_host::ParameterChanges outputChanges;
        for (size_t done = 0; done < signal.size(); done += kBlock) {
            const auto n = static_cast<int32_t>(std::min<size_t>(kBlock, signal.size() - done));
            std::copy_n(signal.begin() + static_cast<std::ptrdiff_t>(done), n, left.begin());
            const float* in[] = {left.data(), silence.data()};
            float* outs[] = {right.data(), sink.data()};
            outputChanges.clear();
            plugin.process(in, nullptr, outs, n, done == 0 ? firstChanges : nullptr, nullptr, &outputChanges);
            if (forward)
                plugin.forwardToController(outputChanges);
            std::copy_n(right.begin(), n, out.begin() + static_cast<std::ptrdiff_t>(done));
        }
        return out;
    }

    vst3_host::HostApplication host{"ondrel tests"};
    std::unique_ptr<vst3_host::PluginModule> module;
};

TEST_F(Vst3PluginTest, FactoryListsTheThreeClassesWithTheirIdentity) {
    IPluginFactory* factory = module->getFactory();
    PFactoryInfo info;
    ASSERT_EQ(factory->getFactoryInfo(&info), kResultOk);
    EXPECT_STREQ(info.vendor, "Zorvane");
    EXPECT_EQ(info.flags, 0x10);
    ASSERT_EQ(factory->countClasses(), 3);
    FUnknownPtr<IPluginFactory2> factory2(factory);
    ASSERT_TRUE(factory2);
    const char* ids[] = {"ED57BD725C60467EA64DD2F400758B6F", "A2494658E9CC4417BA600EA26BDF598F",
                         "09C3A28150374A32821C03BE20E24ECE"};
    const char* categories[] = {"Audio Module Class", "Component Controller Class",
                                "Plugin Compatibility Class"};
    for (int32 i = 0; i < 3; ++i) {
        PClassInfo2 classInfo;
        ASSERT_EQ(factory2->getClassInfo2(i, &classInfo), kResultOk);
        std::string hex;
        char pair[3];
        for (char byte : classInfo.cid) {
            std::snprintf(pair, sizeof(pair), "%02X", static_cast<unsigned>(static_cast<uint8_t>(byte)));
            hex += pair;
        }
        EXPECT_EQ(hex, ids[i]);
        EXPECT_STREQ(classInfo.category, categories[i]);
        EXPECT_STREQ(classInfo.name, "Ondrel 4");
        EXPECT_STREQ(classInfo.subCategories, "Fx|EQ");
        EXPECT_STREQ(classInfo.version, "4.0.0.0");
        EXPECT_STREQ(classInfo.sdkVersion, "VST 3.7.9");
        EXPECT_EQ(classInfo.classFlags, 1u);
        EXPECT_EQ(classInfo.cardinality, PClassInfo::kManyInstances);
    }
    EXPECT_NE(factory->countClasses(), 0);
    void* object = nullptr;
    TUID unknown{};
    EXPECT_NE(factory->createInstance(unknown, IComponent::iid, &object), kResultOk);
    EXPECT_EQ(object, nullptr);
}

TEST_F(Vst3PluginTest, CompatibilityDocumentNamesTheFourVst2Builds) {
    PClassInfo info;
    module->getFactory()->getClassInfo(2, &info);
    void* object = nullptr;
    ASSERT_EQ(module->getFactory()->createInstance(info.cid, FUnknown::iid, &object), kResultOk);
    auto* unknown = static_cast<FUnknown*>(object);
    void* compatibility = nullptr;
    ASSERT_EQ(unknown->queryInterface(IPluginCompatibility::iid, &compatibility), kResultOk);
    MemoryStream stream;
    ASSERT_EQ(static_cast<IPluginCompatibility*>(compatibility)->getCompatibilityJSON(&stream), kResultOk);
    // "VST" + the VST2 id of each variant of "ZO4p" + "ondrel 4" padded to nine bytes.
    const std::string expected = "[  {    \"New\": \"ED57BD725C60467EA64DD2F400758B6F\",    \"Old\": ["
                                 "      \"5653545A4F34706F6E6472656C203400\","
                                 "      \"5653545A4F34326F6E6472656C203400\","
                                 "      \"5653545A4F34346F6E6472656C203400\","
                                 "      \"5653545A4F34336F6E6472656C203400\"    ]  }]";
    EXPECT_EQ(std::string(stream.getData(), static_cast<size_t>(stream.getSize())), expected);
    static_cast<FUnknown*>(compatibility)->release();
    unknown->release();
}

TEST_F(Vst3PluginTest, EveryLayoutNegotiatesProcessesAndRestoresStateExactly) {
    auto plugin = instance();
    IAudioProcessor* processor = plugin->getProcessor();
    for (size_t layout = 0; layout < std::size(kArrangements); ++layout) {
        SpeakerArrangement ins[] = {kArrangements[layout], kArrangements[layout]};
        SpeakerArrangement outs[] = {kArrangements[layout]};
        ASSERT_EQ(processor->setBusArrangements(ins, 2, outs, 1), kResultOk) << "layout " << layout;
        SpeakerArrangement reported = 0;
        processor->getBusArrangement(kOutput, 0, reported);
        EXPECT_EQ(reported, kArrangements[layout]);
    }
    // A lone centre speaker stands for mono.
    SpeakerArrangement centre[] = {SpeakerArr::kMono, SpeakerArr::kMono};
    EXPECT_EQ(processor->setBusArrangements(centre, 2, centre, 1), kResultOk);

    plugin = started();
    const auto gain = static_cast<ParamID>(plugin->findParameter("Band 1 Gain"));
    const auto used = static_cast<ParamID>(plugin->findParameter("Band 1 Used"));
    const auto frequency = static_cast<ParamID>(plugin->findParameter("Band 1 Frequency"));
    vst3_host::ParameterChanges changes;
    changes.add(used, 0, 1.0);
    changes.add(gain, 0, 0.6123456789);
    changes.add(frequency, 0, 0.3333333);
    changes.add(kHostBypass, 0, 0.0);
    run(*plugin, std::vector<float>(4 * kBlock, 0.1f), &changes);
    const std::vector<uint8_t> state = plugin->getState();
    ASSERT_FALSE(state.empty());

    auto restored = started();
    ASSERT_TRUE(restored->setState(state));
    EXPECT_EQ(restored->getState(), state) << "a restored instance saves the same state";
    EXPECT_TRUE(restored->getHandler().edits.empty()) << "a restore is no edit for the host to record";
    // The controller learns the values from the state; they went through a float on the way.
    EXPECT_EQ(restored->getController()->getParamNormalized(used), 1.0);
    EXPECT_NEAR(restored->getController()->getParamNormalized(gain), 0.6123456789, 1e-6);
    EXPECT_NEAR(restored->getController()->getParamNormalized(frequency), 0.3333333, 1e-6);
}

TEST_F(Vst3PluginTest, ParameterChangeMidBlockSplitsProcessing) {
    auto plugin = started();
    const auto level = static_cast<ParamID>(plugin->findParameter("Output Level"));
    run(*plugin, std::vector<float>(kBlock * 8, 0.5f));
    vst3_host::ParameterChanges changes;
    changes.add(level, 100, 0.0); // silence
    const std::vector<float> out = run(*plugin, std::vector<float>(kBlock, 0.5f), &changes);
    for (int i = 0; i < 100; ++i)
        ASSERT_FLOAT_EQ(out[static_cast<size_t>(i)], 0.5f) << "sample " << i << " is before the change";
    EXPECT_LT(out[255], out[100]) << "the level falls from sample 100 on";
    EXPECT_LT(out[101], 0.5f);
}

TEST_F(Vst3PluginTest, ModeChangeReportsLatencyThatMatchesTheMeasuredDelay) {
    auto plugin = started();
    EXPECT_EQ(plugin->getLatency(), 0u);
    const auto mode = static_cast<ParamID>(plugin->findParameter("Processing Mode"));
    vst3_host::ParameterChanges changes;
    changes.add(mode, 0, 1.0); // Linear Phase
    std::vector<float> impulse(48000, 0.0f);
    run(*plugin, std::vector<float>(kBlock, 0.0f), &changes);
    // The new setup arrives from the engine's worker; keep playing until the host heard of it.
    for (int round = 0; round < 200 && plugin->getHandler().restarts.empty(); ++round)
        run(*plugin, std::vector<float>(kBlock * 4, 0.0f));
    ASSERT_FALSE(plugin->getHandler().restarts.empty());
    EXPECT_EQ(plugin->getHandler().restarts.back(), kLatencyChanged);
    const uint32_t latency = plugin->getLatency();
    EXPECT_EQ(latency, 8192u / 2 + 1024);
    run(*plugin, std::vector<float>(static_cast<size_t>(kRate / 2), 0.0f));
    impulse[0] = 1.0f;
    const std::vector<float> out = run(*plugin, impulse);
    const auto peak = std::max_element(out.begin(), out.end(),
                                       [](float a, float b) { return std::fabs(a) < std::fabs(b); });
    EXPECT_EQ(static_cast<uint32_t>(peak - out.begin()), latency);
    EXPECT_NEAR(*peak, 1.0f, 1e-5f);
}

TEST_F(Vst3PluginTest, HostBypassPassesTheInputThrough) {
    auto plugin = started();
    vst3_host::ParameterChanges changes;
    changes.add(static_cast<ParamID>(plugin->findParameter("Band 1 Used")), 0, 1.0);
    changes.add(static_cast<ParamID>(plugin->findParameter("Band 1 Gain")), 0, 1.0);
    std::vector<float> tone(kBlock * 40);
    for (size_t i = 0; i < tone.size(); ++i)
        tone[i] = 0.25f * static_cast<float>(
                              std::sin(2.0 * std::numbers::pi * 1000.0 * static_cast<double>(i) / kRate));
    std::vector<float> out = run(*plugin, tone, &changes);
    EXPECT_GT(std::fabs(out.back() - tone.back()), 1e-3f) << "the band boosts before bypass";
    vst3_host::ParameterChanges bypass;
    bypass.add(kHostBypass, 0, 1.0);
    run(*plugin, tone, &bypass);
    out = run(*plugin, tone);
    for (size_t i = 0; i < out.size(); ++i)
        ASSERT_FLOAT_EQ(out[i], tone[i]) << i;
}

TEST_F(Vst3PluginTest, StateOfAnOlderBuildIsRead) {
    auto plugin = started();
    const auto gainIndex = plugin->findParameter("Band 1 Gain");
    for (uint32_t version : {1u, 2u}) {
        BinaryMemoryWriter writer;
        writer.writeChunkHeader("ZorF", version);
        writer.writeString("Old Preset");
        if (version == 2)
            writer.writeFloat(0.0f);
        writer.writeUInt32(600);
        for (int i = 0; i < 600; ++i)
            writer.writeFloat(i == gainIndex ? 6.5f : (i == 0 ? 1.0f : 0.0f));
        writer.writeUInt32(1);
        writer.writeUInt32(1);
        ASSERT_TRUE(plugin->setState(writer.bytes())) << "version " << version;
        const double normalized =
            plugin->getController()->getParamNormalized(static_cast<ParamID>(gainIndex));
        EXPECT_NEAR(
            plugin->getController()->normalizedParamToPlain(static_cast<ParamID>(gainIndex), normalized), 6.5,
            1e-4);
    }
}

TEST_F(Vst3PluginTest, SpecialParametersCarryTheirFlagsAndTexts) {
    auto plugin = instance();
    IEditController* controller = plugin->getController();
    EXPECT_EQ(controller->getParameterCount(), 600 + 137);
    const auto info = [controller](ParamID id) {
        for (int32 i = 0; i < controller->getParameterCount(); ++i) {
            ParameterInfo parameter{};
            controller->getParameterInfo(i, parameter);
            if (parameter.id == id)
                return parameter;
        }
        return ParameterInfo{};
    };
    EXPECT_EQ(text(info(kHostBypass).title), "Host Bypass");
    EXPECT_EQ(info(kHostBypass).flags, 0x10001);
    EXPECT_EQ(info(kHostBypass).stepCount, 1);
    EXPECT_EQ(info(0x40000087).flags, 0x8009);
    EXPECT_EQ(info(0x40000087).stepCount, 127);
    EXPECT_EQ(info(0x40000088).flags, 0x1a);
    EXPECT_EQ(info(0x40000088).stepCount, 0x400000);
    EXPECT_EQ(text(info(0x40000005).title), "Pitch Bend");
    // Continuous parameters carry the list flag, stepped ones do not.
    EXPECT_EQ(info(static_cast<ParamID>(plugin->findParameter("Band 1 Gain"))).flags & ParameterInfo::kIsList,
              ParameterInfo::kIsList);
    EXPECT_EQ(info(static_cast<ParamID>(plugin->findParameter("Band 1 Used"))).flags & ParameterInfo::kIsList,
              0);

    String128 string;
    controller->getParamStringByValue(kHostBypass, 0.49, string);
    EXPECT_EQ(text(string), "Not Bypassed");
    controller->getParamStringByValue(kHostBypass, 0.5, string);
    EXPECT_EQ(text(string), "Bypassed");
    controller->getParamStringByValue(0x40000007, 0.3, string);
    EXPECT_EQ(text(string), "-");
    const auto frequency = static_cast<ParamID>(plugin->findParameter("Band 1 Frequency"));
    ParamValue value = 0.0;
    TChar typed[128];
    UString(typed, 128).fromAscii("440");
    ASSERT_EQ(controller->getParamValueByString(frequency, typed, value), kResultOk);
    EXPECT_NEAR(controller->normalizedParamToPlain(frequency, value), std::log2(440.0), 1e-4);
    UString(typed, 128).fromAscii("loud");
    EXPECT_EQ(controller->getParamValueByString(frequency, typed, value), kResultFalse);
}

TEST_F(Vst3PluginTest, MidiControllersMapOntoTheSpecialParameters) {
    auto plugin = instance();
    FUnknownPtr<IMidiMapping> mapping(plugin->getController());
    ASSERT_TRUE(mapping);
    ParamID id = 0;
    ASSERT_EQ(mapping->getMidiControllerAssignment(0, 0, 127, id), kResultOk);
    EXPECT_EQ(id, 0x40000086u);
    ASSERT_EQ(mapping->getMidiControllerAssignment(0, 3, kPitchBend, id), kResultOk);
    EXPECT_EQ(id, 0x40000005u);
    ASSERT_EQ(mapping->getMidiControllerAssignment(0, 0, kAfterTouch, id), kResultOk);
    EXPECT_EQ(id, 0x40000006u);
    EXPECT_EQ(mapping->getMidiControllerAssignment(0, 0, 130, id), kResultFalse);
}

TEST_F(Vst3PluginTest, StrictHostCallsAreAnsweredSafely) {
    auto plugin = instance();
    IAudioProcessor* processor = plugin->getProcessor();
    IEditController* controller = plugin->getController();
    // Processing before any setup, with null buffers and zero samples.
    ProcessData empty{};
    EXPECT_EQ(processor->process(empty), kResultOk);
    empty.numSamples = 64;
    EXPECT_EQ(processor->process(empty), kResultOk);
    BusInfo bus{};
    EXPECT_NE(plugin->getComponent()->getBusInfo(kAudio, kInput, 7, bus), kResultOk);
    EXPECT_EQ(controller->setParamNormalized(99999, 0.5), kResultFalse);
    String128 string;
    EXPECT_EQ(controller->getParamStringByValue(99999, 0.5, string), kResultOk);
    EXPECT_EQ(processor->setBusArrangements(nullptr, 1, nullptr, 1), kResultFalse);
    EXPECT_EQ(plugin->getComponent()->setState(nullptr), kResultFalse);

    plugin = started();
    const std::vector<uint8_t> before = plugin->getState();
    std::vector<uint8_t> garbage(5000);
    for (size_t i = 0; i < garbage.size(); ++i)
        garbage[i] = static_cast<uint8_t>(i * 37 + 11);
    MemoryStream stream(garbage.data(), static_cast<TSize>(garbage.size()));
    EXPECT_EQ(plugin->getComponent()->setState(&stream), kResultFalse);
    EXPECT_EQ(plugin->getState(), before);

    // A block far beyond the announced maximum, and processing in place.
    std::vector<float> left(kBlock * 40, 0.25f), right(kBlock * 40, -0.25f);
    float* buffers[] = {left.data(), right.data()};
    plugin->process(buffers, nullptr, buffers, static_cast<int32_t>(left.size()), nullptr, nullptr, nullptr);
    EXPECT_FLOAT_EQ(left.back(), 0.25f);
    EXPECT_FLOAT_EQ(right.back(), -0.25f);
}

} // namespace
