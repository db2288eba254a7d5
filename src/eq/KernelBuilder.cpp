#include "eq/KernelBuilder.h"

#include "eq/Convolver.h"
#include "eq/SpectralEngine.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr int32_t encodeState(int32_t active, int32_t offered) {
    return (active + 1) * 4 + (offered + 1);
}
constexpr int32_t activeOf(int32_t state) {
    return state / 4 - 1;
}
constexpr int32_t offeredOf(int32_t state) {
    return state % 4 - 1;
}

// Long enough to hide the change of a kernel, short enough to follow a moving band.
constexpr double kNaturalCrossfadeSeconds = 0.02;
constexpr double kLinearCrossfadeSeconds = 0.04;
// The smallest configuration a convolver can have: what an unused bank shrinks to.
constexpr int32_t kIdleTaps = 2;

} // namespace

KernelBuilder::KernelBuilder() = default;
KernelBuilder::~KernelBuilder() = default;

void KernelBuilder::setBanks(const std::array<Bank, kBanks>& newBanks, int32_t channels) {
    banks = newBanks;
    numChannels = std::clamp(channels, 0, EngineSnapshot::kMaxChannels);
    configs = {};
    records = {};
    state.store(encodeState(-1, -1));
}

int32_t KernelBuilder::getActiveBank() const {
    return activeOf(state.load(std::memory_order_acquire));
}

bool KernelBuilder::hasOffer(const KernelConfig& needed) const {
    const int32_t offered = offeredOf(state.load(std::memory_order_acquire));
    return offered >= 0 && configs[static_cast<size_t>(offered)] == needed;
}

int32_t KernelBuilder::takeReadyBank(const KernelConfig& needed) {
    int32_t current = state.load(std::memory_order_acquire);
    const int32_t offered = offeredOf(current);
    if (offered < 0 || !(configs[static_cast<size_t>(offered)] == needed))
        return -1;
    if (!state.compare_exchange_strong(current, encodeState(offered, -1), std::memory_order_acq_rel))
        return -1;
    return offered;
}

void KernelBuilder::releaseActiveBank() {
    int32_t current = state.load(std::memory_order_acquire);
    while (!state.compare_exchange_weak(current, encodeState(-1, offeredOf(current)),
                                        std::memory_order_acq_rel)) {
    }
}

bool KernelBuilder::follow(const EngineSnapshot& snapshot, const SpectralEngine* spectralEngine) {
    const int32_t target = targetBankFor(snapshot);
    const int32_t current = state.load(std::memory_order_acquire);
    for (int32_t bank = 0; bank < kBanks; ++bank) {
        const bool needed = bank == target || bank == activeOf(current) || bank == offeredOf(current);
        if (!needed && !configs[static_cast<size_t>(bank)].isEmpty())
            releaseBank(bank);
    }
    if (target < 0)
        return false;

    const KernelConfig& config = configs[static_cast<size_t>(target)];
    bool retry = false;
    for (int32_t channel = 0; channel < numChannels; ++channel) {
        for (int32_t t = 0; t < kNumStageTypes; ++t) {
            const auto type = static_cast<StageType>(t);
            if (config.tapsFor(type) == 0)
                continue;
            collectBands(snapshot, spectralEngine, channel, type, wanted);
            StageRecord& record =
                records[static_cast<size_t>(target)][static_cast<size_t>(channel)][static_cast<size_t>(t)];
            if (record.valid && isCloseEnough(record, wanted, snapshot.position, config.tapsFor(type) / 4)) {
                retry = retry || record.bands != wanted;
                continue;
            }
            Convolver& convolver =
                *banks[static_cast<size_t>(target)][static_cast<size_t>(channel)][static_cast<size_t>(t)];
            Convolver::Kernel* kernel = convolver.acquireFreeKernel();
            if (kernel == nullptr) {
                retry = true;
                continue;
            }
            if (designerFor(config, type).build(wanted, *kernel))
                convolver.publishKernel(kernel);
            else
                convolver.discardKernel(kernel);
            record.bands = wanted;
            record.builtAt = snapshot.position;
            record.valid = true;
        }
    }

    // A freshly prepared bank is offered once it holds its first kernels.
    int32_t now = state.load(std::memory_order_acquire);
    while (activeOf(now) != target && offeredOf(now) != target &&
           !state.compare_exchange_weak(now, encodeState(activeOf(now), target), std::memory_order_acq_rel)) {
    }
    return retry;
}

int32_t KernelBuilder::targetBankFor(const EngineSnapshot& snapshot) {
    const KernelConfig& needed = snapshot.config;
    if (needed.isEmpty())
        return -1;
    for (;;) {
        int32_t current = state.load(std::memory_order_acquire);
        const int32_t active = activeOf(current);
        const int32_t offered = offeredOf(current);
        if (active >= 0 && configs[static_cast<size_t>(active)] == needed)
            return active;
        if (offered >= 0 && configs[static_cast<size_t>(offered)] == needed)
            return offered;
        // Withdraw an offer that no longer fits; failing means the audio thread just took it.
        if (offered >= 0 &&
            !state.compare_exchange_strong(current, encodeState(active, -1), std::memory_order_acq_rel))
            continue;
        const int32_t bank = active == 0 ? 1 : 0;
        prepareBank(bank, needed);
        return bank;
    }
}

void KernelBuilder::prepareBank(int32_t bank, const KernelConfig& config) {
    for (int32_t channel = 0; channel < numChannels; ++channel) {
        for (int32_t t = 0; t < kNumStageTypes; ++t) {
            const auto type = static_cast<StageType>(t);
            const int32_t taps = config.tapsFor(type);
            Convolver& convolver =
                *banks[static_cast<size_t>(bank)][static_cast<size_t>(channel)][static_cast<size_t>(t)];
            const double seconds = isLinearStage(type) ? kLinearCrossfadeSeconds : kNaturalCrossfadeSeconds;
            if (taps > 0)
                convolver.configure(taps, config.firstPartitionFor(type),
                                    static_cast<int32_t>(std::lround(seconds * config.sampleRate)));
            else
                convolver.configure(kIdleTaps, Convolver::kMinimumPartition, 0);
        }
    }
    configs[static_cast<size_t>(bank)] = config;
    records[static_cast<size_t>(bank)] = {};
}

void KernelBuilder::releaseBank(int32_t bank) {
    prepareBank(bank, {});
}

void KernelBuilder::collectBands(const EngineSnapshot& snapshot, const SpectralEngine* spectralEngine,
                                 int32_t channel, StageType type, std::vector<KernelBand>& out) const {
    out.clear();
    const uint32_t flags = snapshot.channelFlags[static_cast<size_t>(channel)];
    for (int32_t b = 0; b < kNumBands; ++b) {
        const BandSettings& band = snapshot.bands[static_cast<size_t>(b)];
        if (!band.used || snapshot.stages.stageOfBand[static_cast<size_t>(b)] != type ||
            !bandAppliesToChannel(band, flags))
            continue;
        const SpectralAnalyzer* analyzer =
            spectralEngine != nullptr ? spectralEngine->analyzerFor(b) : nullptr;
        if (analyzer != nullptr) {
            // The analyzer moves a spectral band between its static and its full-range response.
            out.push_back({b, band.design(band.gain * snapshot.gainScale), band.gain, analyzer,
                           band.design((band.gain + band.dynamicRange) * snapshot.gainScale),
                           spectralEngine->versionOf(b)});
            continue;
        }
        const float change = hasActiveDynamics(band, snapshot.mode, snapshot.resolution)
                                 ? snapshot.gainChanges[static_cast<size_t>(channel)][static_cast<size_t>(b)]
                                 : 0.0f;
        KernelBand kernelBand;
        kernelBand.index = b;
        kernelBand.settings = band.design((band.gain + change) * snapshot.gainScale);
        kernelBand.staticGain = band.gain;
        out.push_back(kernelBand);
    }
}

bool KernelBuilder::isCloseEnough(const StageRecord& record, const std::vector<KernelBand>& bands,
                                  int64_t position, int32_t interval) const {
    if (record.bands.size() != bands.size())
        return false;
    float largestMove = 0.0f;
    for (size_t i = 0; i < bands.size(); ++i) {
        const KernelBand& built = record.bands[i];
        const KernelBand& now = bands[i];
        // Anything but a dynamic band's momentary gain counts at once, a spectral band's moves too.
        if (built.index != now.index || built.staticGain != now.staticGain ||
            built.spectral != now.spectral || built.spectralVersion != now.spectralVersion ||
            !(built.fullSettings == now.fullSettings))
            return false;
        EQBandSettings sameGain = built.settings;
        sameGain.gain = now.settings.gain;
        if (!(sameGain == now.settings))
            return false;
        largestMove = std::max(largestMove, std::fabs(built.settings.gain - now.settings.gain));
    }
    return largestMove <= kGainToleranceDb || position - record.builtAt < interval;
}

KernelDesigner& KernelBuilder::designerFor(const KernelConfig& config, StageType type) {
    const bool linear = isLinearStage(type);
    std::unique_ptr<KernelDesigner>& designer = linear ? linearDesigner : naturalDesigner;
    const int32_t taps = config.tapsFor(type);
    if (designer == nullptr || designer->getKernelLength() != taps ||
        designer->getSampleRate() != static_cast<double>(config.sampleRate))
        designer = std::make_unique<KernelDesigner>(linear ? KernelDesigner::Kind::LinearPhase
                                                           : KernelDesigner::Kind::NaturalPhase,
                                                    taps, config.sampleRate);
    return *designer;
}
