#include "eq/OndrelProcessor.h"

#include "eq/Convolver.h"
#include "eq/EngineWorker.h"
#include "eq/OndrelChannel.h"
#include "eq/OutputStage.h"
#include "foundation/BinaryStreams.h"
#include "foundation/Numbers.h"
#include "plugin/eq/ParameterMappings.h"
#include "wave/ChannelLayouts.h"
#include "wave/MidSideConverter.h"
#include "wave/sr/ConverterStyle.h"
#include "wave/sr/IIRConverterStyle.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr int32_t kStereoLayout = 1;
constexpr float kAutoThresholdAttack = 25.0f;
constexpr float kAutoThresholdRelease = 35.0f;
// The detector's band: " Side Chain Filtering" Free makes it three times steeper than the band's.
constexpr float kBandDetectorSlope = 1.0f; // 12 dB/oct
constexpr float kFreeDetectorSlope = 5.0f; // 36 dB/oct

// The filter that lets a soloed band's region through: the part of the spectrum a boost or cut
// affects, or what a cut removes. Tilts and All Pass affect everything (no filter at all).
struct SoloFilterDesign {
    bool everything = false;
    FilterShape shape = FilterShape::BandPass;
    float slope = 1.0f;
    float q = 1.0f;
};

SoloFilterDesign soloFilterFor(const BandSettings& band) {
    switch (band.shape) {
    case FilterShape::Bell:
    case FilterShape::Notch:
        return {false, FilterShape::BandPass, 1.0f, band.userQ()};
    case FilterShape::BandPass:
    case FilterShape::ScaledBandPass:
        return {false, FilterShape::BandPass, band.engineSlope(), band.userQ()};
    case FilterShape::LowShelf:
    case FilterShape::LowShelfVariant:
        return {false, FilterShape::HighCut, 1.0f, 1.0f};
    case FilterShape::HighShelf:
    case FilterShape::HighShelfVariant:
        return {false, FilterShape::LowCut, 1.0f, 1.0f};
    case FilterShape::LowCut:
        return {false, FilterShape::HighCut, band.engineSlope(), band.userQ()};
    case FilterShape::HighCut:
        return {false, FilterShape::LowCut, band.engineSlope(), band.userQ()};
    case FilterShape::TiltShelf:
    case FilterShape::FlatTilt:
    case FilterShape::AllPass:
        break;
    }
    return {true};
}

// The lowest band whose flag is set, keeping the current one while it still is.
int32_t pickBand(int32_t current, const BandSettingsArray& bands, bool (*wanted)(const BandSettings&)) {
    if (current >= 0 && wanted(bands[static_cast<size_t>(current)]))
        return current;
    for (size_t b = 0; b < bands.size(); ++b)
        if (wanted(bands[b]))
            return static_cast<int32_t>(b);
    return -1;
}

bool wantsSolo(const BandSettings& band) {
    return band.used && band.solo;
}
bool wantsAudition(const BandSettings& band) {
    return band.used && band.sideChainAudition && !band.dynamicsAuto;
}

} // namespace

struct OndrelProcessor::ChannelGroup {
    ChannelGroup(wave::Environment* environment, int32_t first, int32_t second)
        : channels{first, second}, size(second >= 0 ? 2 : 1),
          output(std::make_unique<OutputStage>(environment, size)) {
        if (size < 2)
            return;
        encoder = std::make_unique<wave::MidSideConverter>(environment);
        encoder->conversion.setValue(wave::MidSideConverter::kEncode);
        decoder = std::make_unique<wave::MidSideConverter>(environment);
        decoder->conversion.setValue(wave::MidSideConverter::kDecode);
        sideChainEncoder = std::make_unique<wave::MidSideConverter>(environment);
        sideChainEncoder->conversion.setValue(wave::MidSideConverter::kEncode);
        monitorDecoder = std::make_unique<wave::MidSideConverter>(environment);
    }

    std::array<int32_t, 2> channels;
    int32_t size;
    std::unique_ptr<OutputStage> output;
    // Into and out of mid/side for the mid/side stages.
    std::unique_ptr<wave::MidSideConverter> encoder;
    std::unique_ptr<wave::MidSideConverter> decoder;
    // The side chain as mid and side, for mid/side bands that listen to it.
    std::unique_ptr<wave::MidSideConverter> sideChainEncoder;
    // A monitored mid/side band's signal back to left/right.
    std::unique_ptr<wave::MidSideConverter> monitorDecoder;
};

OndrelProcessor::OndrelProcessor(int32_t layoutIndex, int32_t maxBlockSize, float sampleRate)
    : OndrelParameters(static_cast<GenericPluginBase&>(*this)),
      layout(chl::layoutChannelCount(layoutIndex) > 0 ? layoutIndex : kStereoLayout),
      worker(std::make_unique<EngineWorker>()) {
    initialize(std::max(maxBlockSize, 1), static_cast<int32_t>(sampleRate));
    constexpr int32_t kCharacterOversampling = 2;
    linearPhaseConverter =
        std::make_unique<sr::ConverterStyle>(*getEnvironment(), 70.0, 20000.0, kCharacterOversampling);
    minimumPhaseConverter =
        std::make_unique<sr::IIRConverterStyle>(*getEnvironment(), kCharacterOversampling);
    setSampleRate(sampleRate);
    setBypassParameterIndex(bypass.getIndex());
    createChannels();
    sampleRateChanged();
}

OndrelProcessor::~OndrelProcessor() {
    // The worker reads nothing of ours, but stopping it first keeps shut-down order obvious.
    worker.reset();
    terminate();
}

OndrelProcessor::OndrelChannel& OndrelProcessor::getOndrelChannel(int32_t index) const {
    return static_cast<OndrelChannel&>(getChannel(index));
}

void OndrelProcessor::createChannels() {
    const auto flags = chl::layoutFlags(layout);
    const int32_t maximumDelay = longestLatency();
    for (uint32_t channelFlags : flags) {
        auto channel = std::make_unique<OndrelChannel>(*this, channelFlags, maximumDelay);
        channel->getCharacterStage().prepareConverters(*linearPhaseConverter, *minimumPhaseConverter);
        addChannel(std::move(channel));
    }
    setFirstPerChannelMeter(0);

    // A left speaker pairs with the right speaker at the same azimuth and height.
    constexpr uint32_t kPlacement = chl::kAzimuthMask | chl::kHeight;
    std::vector<bool> grouped(flags.size(), false);
    for (size_t i = 0; i < flags.size(); ++i) {
        if (grouped[i])
            continue;
        int32_t partner = -1;
        if ((flags[i] & chl::kLeftOfPair) != 0) {
            for (size_t j = i + 1; j < flags.size(); ++j) {
                if (!grouped[j] && (flags[j] & chl::kRightOfPair) != 0 &&
                    (flags[j] & kPlacement) == (flags[i] & kPlacement)) {
                    partner = static_cast<int32_t>(j);
                    grouped[j] = true;
                    break;
                }
            }
        }
        grouped[i] = true;
        groups.emplace_back(getEnvironment(), static_cast<int32_t>(i), partner);
    }

    for (const ChannelGroup& group : groups) {
        for (int32_t k = 0; k < group.size; ++k) {
            OndrelChannel& channel = getOndrelChannel(group.channels[static_cast<size_t>(k)]);
            channel.getOutputMeter().setInput(group.output->getOutputProducer(k));
        }
    }
    for (int32_t c = 0; c < getNumChannels(); ++c) {
        OndrelChannel& channel = getOndrelChannel(c);
        for (int32_t b = 0; b < kNumBands; ++b) {
            setMeter(c, b, &channel.getSlot(b).gainMeter);
            setMeter(c, kBandGainReductionMeter + b, &channel.getSlot(b).reductionMeter);
        }
        setMeter(c, kInputMeter, &channel.getInputMeter());
        setMeter(c, kOutputMeter, &channel.getOutputMeter());
        setMeter(c, kSideChainMeter, &channel.getSideChainMeter());
    }
}

void OndrelProcessor::sampleRateChanged() {
    // The converters may hear of the new rate after us.
    linearPhaseConverter->refresh();
    minimumPhaseConverter->refresh();
    const int32_t longest = longestLatency();
    reserveLatency(longest);
    for (int32_t c = 0; c < getNumChannels(); ++c)
        getOndrelChannel(c).getMonitorMix().setMaximumDelay(longest);

    // Every convolver was sized for the old rate: start over with fresh banks, and have the worker
    // prepare the one the settings need right now, so processing starts with it.
    std::array<KernelBuilder::Bank, KernelBuilder::kBanks> banks{};
    for (int32_t bank = 0; bank < KernelBuilder::kBanks; ++bank)
        for (int32_t c = 0; c < std::min(getNumChannels(), EngineSnapshot::kMaxChannels); ++c)
            for (int32_t t = 0; t < kNumStageTypes; ++t)
                banks[static_cast<size_t>(bank)][static_cast<size_t>(c)][static_cast<size_t>(t)] =
                    &getOndrelChannel(c).getConvolver(bank, static_cast<StageType>(t));
    worker->setBanks(banks, getNumChannels());
    activeBank = -1;

    // Room for a few frames of the longest kernel the spectral bands run with, and a few blocks.
    const int32_t spectralCapacity =
        4 * (linearKernelTaps(ProcessingResolution::High, getSampleRate()) + getMaxBlockSize());
    worker->setSpectralInputs({}, {});
    std::vector<wave::SampleRing*> spectralInputs;
    std::vector<wave::SampleRing*> spectralSideChains;
    for (int32_t c = 0; c < std::min(getNumChannels(), EngineSnapshot::kMaxChannels); ++c) {
        OndrelChannel& channel = getOndrelChannel(c);
        channel.getSpectralInput().resize(spectralCapacity);
        channel.getSpectralSideChain().resize(spectralCapacity);
        spectralInputs.push_back(&channel.getSpectralInput());
        spectralSideChains.push_back(&channel.getSpectralSideChain());
    }
    worker->setSpectralInputs(std::move(spectralInputs), std::move(spectralSideChains));
    running.config = {};
    for (int32_t c = 0; c < getNumChannels(); ++c)
        for (int32_t t = 0; t < kNumStageTypes; ++t)
            getOndrelChannel(c).getKernelStage(static_cast<StageType>(t)).setConvolver(nullptr);

    changedBands.set();
    globalsChanged = true;
    outputChanged = true;
    rewirePending = true;
    applyPendingChanges();
    if (switchPending) {
        // Nothing is playing: take the new setup at once, without the fade.
        fillSnapshot();
        worker->followNow(snapshot);
        adoptSetup(neededConfig.isEmpty() ? -1 : worker->getKernelBuilder().takeReadyBank(neededConfig));
        updateLatency();
        publishRealTimeBands();
    }
}

int32_t OndrelProcessor::computeLatency(double sampleRate) const {
    return ::computeLatency(running.stages, running.mode, running.resolution, sampleRate,
                            characterLatency(running.character, running.mode));
}

int32_t OndrelProcessor::longestLatency() const {
    return maximumLatency(getSampleRate(),
                          std::max(linearPhaseConverter->getLatency(), minimumPhaseConverter->getLatency()));
}

sr::ConverterStyleBase& OndrelProcessor::converterFor(ProcessingMode mode) const {
    if (mode == ProcessingMode::LinearPhase)
        return *linearPhaseConverter;
    return *minimumPhaseConverter;
}

int32_t OndrelProcessor::characterLatency(Character value, ProcessingMode mode) const {
    return value == Character::Clean ? 0 : converterFor(mode).getLatency();
}

void OndrelProcessor::updateCharacterDrive() {
    const CharacterDrive drive = characterDriveFor(character.getValue(), maxBandBoost(bandSettings));
    if (drive.drive == 0.0f)
        return;
    for (int32_t c = 0; c < getNumChannels(); ++c)
        getOndrelChannel(c).getCharacterStage().setDrive(drive);
}

bool OndrelProcessor::hasKernelWorkPending() const {
    return worker->hasWorkPending();
}

void OndrelProcessor::parameterChanged(int32_t index) {
    GenericPluginProcessor::parameterChanged(index);
    if (bands.containsParameterIndex(index)) {
        changedBands.set(static_cast<size_t>(bands.getSetIndexForParameter(index)));
    } else if (extensions.containsParameterIndex(index)) {
        changedBands.set(static_cast<size_t>(extensions.getSetIndexForParameter(index)));
    } else if (index == processingMode.getIndex() || index == processingResolution.getIndex() ||
               index == character.getIndex() || index == gainScale.getIndex()) {
        globalsChanged = true;
    } else {
        outputChanged = true;
    }
}

void OndrelProcessor::applyParameterPoint(int32_t index, float value) {
    if (AbstractPluginParameter* parameter = getParameter(index)) {
        parameter->setPlain(value);
        parameterChanged(index);
    }
}

void OndrelProcessor::applyPendingChanges() {
    if (globalsChanged)
        changedBands.set();
    if (changedBands.none() && !outputChanged)
        return;
    std::bitset<kNumBands> newlySoloed;
    std::bitset<kNumBands> newlyAuditioned;
    for (int32_t b = 0; b < kNumBands; ++b) {
        const auto index = static_cast<size_t>(b);
        if (!changedBands.test(index))
            continue;
        const BandSettings settings = BandSettings::from(bands.getSet(b), extensions.getSet(b));
        newlySoloed.set(index, wantsSolo(settings) && !wantsSolo(bandSettings[index]));
        newlyAuditioned.set(index, wantsAudition(settings) && !wantsAudition(bandSettings[index]));
        bandSettings[index] = settings;
    }
    if (changedBands.any()) {
        updateStages();
        bool sideChainUsed = false;
        for (int32_t b = 0; b < kNumBands; ++b) {
            const auto index = static_cast<size_t>(b);
            if (changedBands.test(index))
                updateBand(b);
            sideChainUsed = sideChainUsed ||
                            (isDynamicBand(bandSettings[index]) && bandSettings[index].externalSideChain);
        }
        setSideChainUsed(sideChainUsed);
        const ProcessingMode mode = processingMode.getValue();
        const ProcessingResolution resolution = processingResolution.getValue();
        anyDynamic = std::any_of(bandSettings.begin(), bandSettings.end(), [&](const BandSettings& band) {
            return hasActiveDynamics(band, mode, resolution);
        });
        if (!anyDynamic)
            gainReduction = 0.0f;
        followGains = anyDynamic && !neededConfig.isEmpty();
        const auto analysed = [&](const BandSettings& band) {
            return isAnalysedSpectralBand(band, resolution);
        };
        analysingSpectrum =
            neededConfig.linearTaps > 0 && std::any_of(bandSettings.begin(), bandSettings.end(), analysed);
        updateCharacterDrive();
        updateMonitor(newlySoloed, newlyAuditioned);
        publishRealTimeBands();
        ++snapshot.settingsSerial;
        snapshotPending = true;
    }
    updateOutput();
    updateLatency();
    changedBands.reset();
    globalsChanged = false;
    outputChanged = false;
}

void OndrelProcessor::updateStages() {
    stages = assignStages(bandSettings, processingMode.getValue(), processingResolution.getValue(), stages);
    neededConfig =
        kernelConfigFor(stages, processingMode.getValue(), processingResolution.getValue(), getSampleRate());
    followSetup();
}

void OndrelProcessor::followSetup() {
    // Within one setup bands come and go without a break; a new mode, resolution or latency goes
    // through a short fade (see advanceSwitch).
    const Character wantedCharacter = character.getValue();
    const bool sameSetup =
        neededConfig == running.config && processingMode.getValue() == running.mode &&
        wantedCharacter == running.character &&
        ::computeLatency(stages, running.mode, processingResolution.getValue(), getSampleRate(),
                         characterLatency(wantedCharacter, running.mode)) == getLatency();
    if (sameSetup) {
        adoptSetup(activeBank);
        return;
    }
    switchPending = true;
}

void OndrelProcessor::advanceSwitch() {
    KernelBuilder& builder = worker->getKernelBuilder();
    // A switch that keeps the convolvers (Character only) needs nothing from the worker.
    const bool keepsBank = activeBank >= 0 && neededConfig == running.config;
    if (!neededConfig.isEmpty() && !keepsBank && !builder.hasOffer(neededConfig))
        return;
    bool silent = true;
    for (ChannelGroup& group : groups) {
        group.output->setSwitchMute(true);
        silent = silent && group.output->isSwitchMuted();
    }
    if (!silent)
        return;
    const int32_t bank =
        neededConfig.isEmpty() ? -1 : (keepsBank ? activeBank : builder.takeReadyBank(neededConfig));
    if (bank < 0 && !neededConfig.isEmpty())
        return;
    adoptSetup(bank);
    updateLatency();
    publishRealTimeBands();
    // The new path is silent for its latency; fading in before its first sound would cut it in.
    unmuteCountdown = getLatency();
}

void OndrelProcessor::unmuteWhenDue() {
    // Before the outputs are read: a control set after its block was read would jump.
    if (unmuteCountdown < 0 || unmuteCountdown > 0)
        return;
    unmuteCountdown = -1;
    for (ChannelGroup& group : groups)
        group.output->setSwitchMute(false);
}

void OndrelProcessor::adoptSetup(int32_t bank) {
    switchPending = false;
    if (bank < 0 && activeBank >= 0)
        worker->getKernelBuilder().releaseActiveBank();
    if (bank != activeBank) {
        activeBank = bank;
        for (int32_t c = 0; c < getNumChannels(); ++c) {
            OndrelChannel& channel = getOndrelChannel(c);
            for (int32_t t = 0; t < kNumStageTypes; ++t) {
                const auto type = static_cast<StageType>(t);
                channel.getKernelStage(type).setConvolver(bank >= 0 ? &channel.getConvolver(bank, type)
                                                                    : nullptr);
            }
        }
    }
    const RunningSetup next{processingMode.getValue(), processingResolution.getValue(), stages, neededConfig,
                            character.getValue()};
    if (next.character != running.character || next.mode != running.mode) {
        // The switch fade has silenced the stage: it may start over with its new style.
        for (int32_t c = 0; c < getNumChannels(); ++c) {
            CharacterStage& stage = getOndrelChannel(c).getCharacterStage();
            stage.setConverterStyle(converterFor(next.mode));
            if (const FunctionTableClipper::Style* style = characterStyleFor(next.character))
                stage.setStyle(*style);
            stage.reset();
        }
    }
    // Filters that sat out a kernel mode would resume from long-gone signal.
    if (next.mode != running.mode)
        for (int32_t c = 0; c < getNumChannels(); ++c)
            for (int32_t b = 0; b < kNumBands; ++b)
                getOndrelChannel(c).getSlot(b).filter.reset();
    if (next.stages != running.stages || next.mode != running.mode || !(next.config == running.config) ||
        next.character != running.character)
        rewirePending = true;
    running = next;
}

void OndrelProcessor::updateBand(int32_t b) {
    const BandSettings& band = bandSettings[static_cast<size_t>(b)];
    const bool dynamic = hasActiveDynamics(band, processingMode.getValue(), processingResolution.getValue());
    const float scale = gainScale.getValue();
    for (int32_t c = 0; c < getNumChannels(); ++c) {
        OndrelChannel& channel = getOndrelChannel(c);
        OndrelChannel::BandSlot& slot = channel.getSlot(b);
        const bool applies = bandAppliesToChannel(band, channel.getFlags());
        if (applies != channel.bandApplies(b))
            rewirePending = true;
        channel.setBandApplies(b, applies);

        DynamicEQFilter& filter = slot.filter;
        filter.shape.setValue(band.shape);
        filter.slope.setValue(band.engineSlope());
        filter.frequency.setValue(band.frequency);
        filter.q.setValue(band.userQ());
        filter.baseGain.setValue(band.gain);
        filter.range.setValue(band.dynamicRange);
        filter.gainScale.setValue(scale);
        filter.dynamicsEnabled.setValue(dynamic);

        const bool metered = dynamic && applies;
        for (wave::LevelMeter* meter : {&slot.gainMeter, &slot.reductionMeter}) {
            if (metered)
                meter->schedule(false);
            else
                meter->unschedule();
        }
        if (dynamic || wantsAudition(band))
            configureDetection(band, channel, b);
    }
}

void OndrelProcessor::configureDetection(const BandSettings& band, OndrelChannel& channel, int32_t b) {
    OndrelChannel::BandSlot& slot = channel.getSlot(b);
    const DetectorBand detector = detectorBandFor(band);
    double low = detector.low;
    double high = detector.high;
    FilterShape shape = detector.shape;
    BandCompander& compander = slot.compander;
    compander.detectorLowEdge.setValue(static_cast<float>(std::log2(low)));
    compander.detectorHighEdge.setValue(static_cast<float>(std::log2(high)));
    float slope = kBandDetectorSlope;
    if (!band.dynamicsAuto && band.sideChainFiltering == SideChainFiltering::Free) {
        low = std::exp2(static_cast<double>(band.sideChainLowFrequency));
        high = std::exp2(static_cast<double>(band.sideChainHighFrequency));
        if (high < low)
            std::swap(low, high);
        shape = FilterShape::BandPass;
        slope = kFreeDetectorSlope;
    }

    double corner = std::sqrt(low * high);
    float q = 1.0f;
    if (shape == FilterShape::LowCut) {
        corner = low;
    } else if (shape == FilterShape::HighCut) {
        corner = high;
    } else {
        // A band pass whose -3 dB edges are low and high.
        const double prototype = corner / std::max(high - low, corner * 1e-3);
        q = static_cast<float>(userQ(FilterShape::BandPass, prototype));
    }
    const auto cornerLog2 = static_cast<float>(std::log2(corner));
    const bool moved =
        std::fabs(cornerLog2 - slot.detectorFrequency) > kFloatEpsilon || shape != slot.detectorShape;
    slot.detector.shape.setValue(shape);
    slot.detector.slope.setValue(slope);
    slot.detector.setFrequency(cornerLog2);
    slot.detector.setQ(q);
    if (moved) {
        slot.detectorFrequency = cornerLog2;
        slot.detectorShape = shape;
        // A band being auditioned keeps its filter running, so the listener hears no gap.
        if (!band.sideChainAudition)
            slot.detector.resetStates();
        compander.restartNormalizer();
    }

    compander.autoThreshold.setValue(band.dynamicsAuto);
    compander.getThreshold().setValue(static_cast<float>(thresholdDbFromStored(band.threshold)));
    compander.getLimit().setValue(std::fabs(band.dynamicRange));
    compander.setRangeSign(band.dynamicRange < 0.0f ? -1.0f : 1.0f);
    // In auto mode the knobs are ignored; at their default 50 % they give the same times.
    compander.attack.setValue(band.dynamicsAuto ? kAutoThresholdAttack : band.attack * 0.5f);
    compander.release.setValue(band.dynamicsAuto ? kAutoThresholdRelease : band.release * 0.7f);
}

void OndrelProcessor::updateMonitor(const std::bitset<kNumBands>& newlySoloed,
                                    const std::bitset<kNumBands>& newlyAuditioned) {
    // The band switched on last wins; when it lets go, another band still switched on takes over.
    const auto follow = [this](int32_t current, const std::bitset<kNumBands>& fresh, auto wanted) {
        for (int32_t b = 0; b < kNumBands; ++b)
            if (fresh.test(static_cast<size_t>(b)))
                current = b;
        return pickBand(current, bandSettings, wanted);
    };
    soloBand = follow(soloBand, newlySoloed, wantsSolo);
    auditionBand = follow(auditionBand, newlyAuditioned, wantsAudition);
    const int32_t monitored = auditionBand >= 0 ? auditionBand : soloBand;
    if (monitored != monitoredBand)
        rewirePending = true;
    monitoredBand = monitored;
    if (soloBand < 0 || auditionBand >= 0)
        return;
    const BandSettings& band = bandSettings[static_cast<size_t>(soloBand)];
    const SoloFilterDesign design = soloFilterFor(band);
    for (int32_t c = 0; c < getNumChannels(); ++c) {
        EQFilter& filter = getOndrelChannel(c).getSoloFilter();
        filter.shape.setValue(design.shape);
        filter.slope.setValue(design.slope);
        filter.setFrequency(band.frequency);
        filter.setQ(design.q);
    }
    soloPassesEverything = design.everything;
}

void OndrelProcessor::updateOutput() {
    const auto panMode = outputPanMode.getValue();
    for (ChannelGroup& group : groups) {
        OutputStage& output = *group.output;
        output.setLevel(static_cast<float>(outputLevelToGain(outputLevel.getValue())));
        output.setPan(outputPan.getValue());
        output.setMidSidePan(panMode == ChannelMode::MidSide);
        output.setInverted(outputInvertPhase.getValue());
        output.setMakeUpGain(static_cast<float>(dbToGain(makeUpGainDb())));
    }
    const bool soloing = monitoredBand >= 0 && monitoredBand != auditionBand;
    for (int32_t c = 0; c < getNumChannels(); ++c)
        getOndrelChannel(c).getMonitorMix().setMonitoring(monitoredBand >= 0,
                                                          soloing ? soloGain.getValue() : 0.0f);
}

float OndrelProcessor::makeUpGainDb() const {
    if (!autoGain.getValue())
        return 0.0f;
    return std::clamp(-appliedLoudnessChange, -kMaximumMakeUpDb, kMaximumMakeUpDb);
}

void OndrelProcessor::followLoudness() {
    const float change = worker->getLoudnessChangeDb();
    if (change == appliedLoudnessChange)
        return;
    appliedLoudnessChange = change;
    if (autoGain.getValue())
        updateOutput();
}

void OndrelProcessor::updateLatency() {
    const int32_t samples = computeLatency(getSampleRate());
    if (samples != getLatency()) {
        setLatency(samples);
        // The model tells the host, which then asks for the new figure.
        reportNumber(kLatencyChangedReport);
    }
    for (int32_t c = 0; c < getNumChannels(); ++c)
        getOndrelChannel(c).getMonitorMix().setDelay(samples);
}

StageSet OndrelProcessor::wiredStages() const {
    StageSet wired = stagesInUse(running.stages, running.mode);
    if (running.mode != ProcessingMode::ZeroLatency)
        return wired;
    // Without latency to keep, a stage whose last band is fading out stays until it is silent.
    for (int32_t b = 0; b < kNumBands; ++b) {
        const auto stage = static_cast<size_t>(running.stages.stageOfBand[static_cast<size_t>(b)]);
        for (int32_t c = 0; c < getNumChannels() && !wired[stage]; ++c)
            wired[stage] = !getOndrelChannel(c).getSlot(b).filter.isFadedOut();
    }
    return wired;
}

wave::Producer* OndrelProcessor::wireStage(StageType type, OndrelChannel& channel, wave::Producer* input,
                                           const ChannelGroup& group, int32_t side, bool used) {
    channel.setStageInput(type, input);
    const bool midSidePair = isMidSideStage(type) && group.size == 2;
    for (int32_t b = 0; b < kNumBands; ++b) {
        if (running.stages.stageOfBand[static_cast<size_t>(b)] != type)
            continue;
        OndrelChannel::BandSlot& slot = channel.getSlot(b);
        if (!bandSettings[static_cast<size_t>(b)].externalSideChain)
            slot.detector.setInput(input);
        else if (midSidePair)
            slot.detector.setInput(group.sideChainEncoder->getOutputProducer(side));
        else
            slot.detector.setInput(&channel.getSideChainInput());
    }
    if (!used)
        return input;
    if (!isLinearStage(type)) {
        for (int32_t b = 0; b < kNumBands; ++b) {
            if (running.stages.stageOfBand[static_cast<size_t>(b)] != type)
                continue;
            DynamicEQFilter& filter = channel.getSlot(b).filter;
            filter.setInput(input);
            input = &filter;
        }
    }
    // Natural Phase's correction after the minimum-phase bands; a linear stage is its kernel.
    if (running.config.tapsFor(type) > 0 &&
        (isLinearStage(type) || running.mode == ProcessingMode::NaturalPhase)) {
        KernelStage& kernel = channel.getKernelStage(type);
        kernel.setInput(input);
        input = &kernel;
    }
    return input;
}

wave::Producer* OndrelProcessor::monitorSource(OndrelChannel& channel) {
    if (monitoredBand < 0 || !channel.bandApplies(monitoredBand))
        return nullptr;
    OndrelChannel::BandSlot& slot = channel.getSlot(monitoredBand);
    if (monitoredBand == auditionBand)
        return &slot.detector;
    wave::Producer* input =
        channel.getStageInput(running.stages.stageOfBand[static_cast<size_t>(monitoredBand)]);
    if (soloPassesEverything)
        return input;
    channel.getSoloFilter().setInput(input);
    return &channel.getSoloFilter();
}

void OndrelProcessor::rewire() {
    rewirePending = false;
    wired = wiredStages();
    const bool midSide = wired[static_cast<size_t>(StageType::MinimumMidSide)] ||
                         wired[static_cast<size_t>(StageType::LinearMidSide)];
    const bool monitoredMidSide =
        monitoredBand >= 0 && isMidSideStage(running.stages.stageOfBand[static_cast<size_t>(monitoredBand)]);
    for (ChannelGroup& group : groups) {
        std::array<OndrelChannel*, 2> channels{};
        std::array<wave::Producer*, 2> path{};
        for (int32_t k = 0; k < group.size; ++k) {
            channels[static_cast<size_t>(k)] = &getOndrelChannel(group.channels[static_cast<size_t>(k)]);
            path[static_cast<size_t>(k)] = &channels[static_cast<size_t>(k)]->getMainInput();
        }
        const auto runStages = [&](StageType first, StageType second) {
            for (StageType type : {first, second})
                for (int32_t k = 0; k < group.size; ++k)
                    path[static_cast<size_t>(k)] =
                        wireStage(type, *channels[static_cast<size_t>(k)], path[static_cast<size_t>(k)],
                                  group, k, wired[static_cast<size_t>(type)]);
        };
        runStages(StageType::MinimumLeftRight, StageType::LinearLeftRight);
        if (group.size == 2) {
            // A band acting on both channels of a pair runs them in one two-channel loop.
            for (int32_t b = 0; b < kNumBands; ++b) {
                DynamicEQFilter& first = channels[0]->getSlot(b).filter;
                const bool joint = channels[0]->bandApplies(b) && channels[1]->bandApplies(b);
                first.linkJoint(joint ? &channels[1]->getSlot(b).filter : nullptr);
            }
            group.sideChainEncoder->setFirstInput(&channels[0]->getSideChainInput());
            group.sideChainEncoder->setSecondInput(&channels[1]->getSideChainInput());
        }
        if (group.size == 2 && midSide) {
            group.encoder->setFirstInput(path[0]);
            group.encoder->setSecondInput(path[1]);
            path = {group.encoder->getOutputProducer(0), group.encoder->getOutputProducer(1)};
        }
        runStages(StageType::MinimumMidSide, StageType::LinearMidSide);
        if (group.size == 2 && midSide) {
            group.decoder->setFirstInput(path[0]);
            group.decoder->setSecondInput(path[1]);
            path = {group.decoder->getOutputProducer(0), group.decoder->getOutputProducer(1)};
        }

        std::array<wave::Producer*, 2> monitor{};
        for (int32_t k = 0; k < group.size; ++k)
            monitor[static_cast<size_t>(k)] = monitorSource(*channels[static_cast<size_t>(k)]);
        if (group.size == 2) {
            group.monitorDecoder->conversion.setValue(
                monitoredMidSide ? wave::MidSideConverter::kDecode : wave::MidSideConverter::kPassThrough);
            group.monitorDecoder->setFirstInput(monitor[0]);
            group.monitorDecoder->setSecondInput(monitor[1]);
            monitor = {group.monitorDecoder->getOutputProducer(0),
                       group.monitorDecoder->getOutputProducer(1)};
        }
        for (int32_t k = 0; k < group.size; ++k) {
            if (running.character != Character::Clean) {
                CharacterStage& stage = channels[static_cast<size_t>(k)]->getCharacterStage();
                stage.setInput(path[static_cast<size_t>(k)]);
                path[static_cast<size_t>(k)] = &stage.getOutput();
            }
        }
        for (int32_t k = 0; k < group.size; ++k) {
            MonitorMix& mix = channels[static_cast<size_t>(k)]->getMonitorMix();
            mix.setInputs(path[static_cast<size_t>(k)], monitor[static_cast<size_t>(k)]);
            group.output->setInput(k, &mix);
        }
    }
}

void OndrelProcessor::processChannels(float* const* buffers, int32_t numChannels, int32_t numSamples) {
    applyPendingChanges();
    if (switchPending)
        advanceSwitch();
    unmuteWhenDue();
    followLoudness();
    if (rewirePending || wiredStages() != wired)
        rewire();
    for (const ChannelGroup& group : groups) {
        for (int32_t k = 0; k < group.size; ++k) {
            const int32_t c = group.channels[static_cast<size_t>(k)];
            const float* out = group.output->getOutputProducer(k)->fetch(numSamples)->getData();
            if (c < numChannels)
                std::copy_n(out, numSamples, buffers[c]);
        }
    }
    if (unmuteCountdown > 0)
        unmuteCountdown = std::max(unmuteCountdown - numSamples, 0);
    if (anyDynamic)
        collectGainChanges(numSamples);
    if (analysingSpectrum)
        feedSpectralAnalysis(numSamples);
    if (snapshotPending || followGains)
        publishSnapshot();
}

bool OndrelProcessor::getGainReduction(float& db) const {
    db = gainReduction;
    return true;
}

bool OndrelProcessor::acceptsMidi() const {
    return receiveMidi.getValue() == MidiState::Enabled;
}

void OndrelProcessor::collectGainChanges(int32_t numSamples) {
    // In Linear Phase no filter pulls the companders, so this is what drives them.
    float reduction = 0.0f;
    for (int32_t c = 0; c < std::min(getNumChannels(), EngineSnapshot::kMaxChannels); ++c) {
        OndrelChannel& channel = getOndrelChannel(c);
        for (int32_t b = 0; b < kNumBands; ++b) {
            float& change = snapshot.gainChanges[static_cast<size_t>(c)][static_cast<size_t>(b)];
            if (!channel.bandApplies(b) || !channel.getSlot(b).filter.dynamicsEnabled.getValue()) {
                change = 0.0f;
                continue;
            }
            const wave::BasicBlock<float>& block = *channel.getSlot(b).compander.fetch(numSamples);
            change = block.getData()[block.isConstant() ? 0 : numSamples - 1];
            reduction = std::min(reduction, change);
        }
    }
    gainReduction = reduction;
}

void OndrelProcessor::feedSpectralAnalysis(int32_t numSamples) {
    for (int32_t c = 0; c < std::min(getNumChannels(), EngineSnapshot::kMaxChannels); ++c) {
        OndrelChannel& channel = getOndrelChannel(c);
        channel.getSpectralInput().write(channel.getMainInput().fetch(numSamples)->getData(), numSamples);
        // Always both, so that the two stay in step when a band starts listening to the side chain.
        channel.getSpectralSideChain().write(channel.getSideChainInput().fetch(numSamples)->getData(),
                                             numSamples);
    }
}

void OndrelProcessor::publishSnapshot() {
    // Only settings changes wake the worker; moving gains are picked up on its short round.
    const bool wake = snapshotPending;
    snapshotPending = false;
    fillSnapshot();
    worker->publish(snapshot, wake);
}

void OndrelProcessor::fillSnapshot() {
    snapshot.bands = bandSettings;
    snapshot.stages = stages;
    snapshot.mode = processingMode.getValue();
    snapshot.resolution = processingResolution.getValue();
    snapshot.gainScale = gainScale.getValue();
    snapshot.sampleRate = getSampleRate();
    snapshot.numChannels = std::min(getNumChannels(), EngineSnapshot::kMaxChannels);
    for (int32_t c = 0; c < snapshot.numChannels; ++c)
        snapshot.channelFlags[static_cast<size_t>(c)] = getChannel(c).getFlags();
    snapshot.config = neededConfig;
    snapshot.followsGains = followGains;
    snapshot.position = getEnvironment()->getPosition();
}

void OndrelProcessor::publishRealTimeBands() {
    // Latencies of the stages a band's gain readings run ahead of: everything after its own stage.
    const ProcessingMode mode = running.mode;
    const ProcessingResolution resolution = running.resolution;
    const StageSet inUse = stagesInUse(running.stages, mode);
    std::array<int32_t, kNumStageTypes> latencies{};
    for (size_t type = 0; type < latencies.size(); ++type)
        latencies[type] =
            inUse[type] ? stageLatency(static_cast<StageType>(type), mode, resolution, getSampleRate()) : 0;
    int32_t total = computeLatency(getSampleRate());
    // Spectral readings keep the linear kernel's timing: half the kernel back, half its largest
    // partition on.
    if (running.config.linearTaps > 0)
        total += Convolver::Layout::largestPartitionFor(running.config.linearTaps,
                                                        running.config.linearFirstPartition) /
                     2 -
                 running.config.linearTaps / 2;
    RealTimeBands& info = realTimeBands.writeSlot();
    info.count = 0;
    for (int32_t b = 0; b < kNumBands; ++b) {
        const BandSettings& band = bandSettings[static_cast<size_t>(b)];
        if (!band.used || !hasGain(band.shape) || !band.hasDynamicRange() || !band.spectralEnabled)
            continue;
        const bool midSide =
            band.placement == StereoPlacement::Mid || band.placement == StereoPlacement::Side;
        const int32_t ahead = midSide ? latencies[0] + latencies[1] + latencies[2] : latencies[0];
        info.bands[static_cast<size_t>(info.count)] = b;
        info.delaysMs[static_cast<size_t>(info.count)] =
            static_cast<float>(getEnvironment()->samplesToMs(total - ahead));
        ++info.count;
    }
    realTimeBands.publish();
}

void OndrelProcessor::writeRealTimeData(BinaryDataWriter& stream) {
    GenericPluginProcessor::writeRealTimeData(stream);
    realTimeBands.take();
    const RealTimeBands& info = realTimeBands.readSlot();
    stream.writeUInt32(static_cast<uint32_t>(info.count));
    for (int32_t i = 0; i < info.count; ++i) {
        stream.writeUInt32(static_cast<uint32_t>(info.bands[static_cast<size_t>(i)]));
        stream.writeFloat(info.delaysMs[static_cast<size_t>(i)]);
        worker->getSpectralEngine().writeRecord(info.bands[static_cast<size_t>(i)], stream);
    }
}
