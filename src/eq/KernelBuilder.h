#pragma once

#include "eq/EngineSnapshot.h"
#include "eq/KernelDesigner.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

class Convolver;
class SpectralEngine;

// Keeps the processor's convolvers supplied with kernels. There are two banks of convolvers, so
// that a change of processing mode, resolution or rate can be prepared on the side: the builder
// sizes the bank the audio thread is not using, fills it with kernels and offers it; the audio
// thread switches to it at a block boundary. While the bank in use fits the settings, the builder
// rebuilds the kernels of the stages whose bands changed (a stage's kernel is shared with other
// channels that apply the same bands) and hands them over through the convolvers' kernel slots.
//
// Threading: setBanks while neither the audio thread nor the worker runs; follow on the worker
// thread; takeReadyBank, getConfig of a taken bank and noteBankActive on the audio thread. The two
// sides meet in one atomic word (which bank is in use, which is offered), so neither ever waits.
class KernelBuilder {
public:
    static constexpr int32_t kBanks = kKernelBanks;
    // Stay with the kernel in use while a dynamic band's gain moved less than this.
    static constexpr float kGainToleranceDb = 0.05f;

    using StageConvolvers = std::array<Convolver*, kNumStageTypes>;
    using Bank = std::array<StageConvolvers, EngineSnapshot::kMaxChannels>;

    KernelBuilder();
    ~KernelBuilder();
    KernelBuilder(const KernelBuilder&) = delete;
    KernelBuilder& operator=(const KernelBuilder&) = delete;

    // Both banks, each per channel and stage; the convolvers stay owned by the caller. Forgets every
    // configuration (no bank in use).
    void setBanks(const std::array<Bank, kBanks>& banks, int32_t numChannels);

    // Worker: brings the banks in line with the snapshot. Returns true when work is left that must
    // be retried later (a kernel slot was busy or a gain change was held back).
    // Spectral bands take their shaping from the spectral engine, when there is one.
    bool follow(const EngineSnapshot& snapshot, const SpectralEngine* spectralEngine = nullptr);

    // Audio thread: whether a bank that fits is on offer.
    bool hasOffer(const KernelConfig& needed) const;
    // Audio thread: the offered bank if it fits the config the settings need (it then becomes the
    // bank in use), else -1.
    int32_t takeReadyBank(const KernelConfig& needed);
    // Audio thread: no bank in use any more (the settings need no convolver).
    void releaseActiveBank();
    // The config a bank was prepared for (read by the audio thread only for the bank it took).
    const KernelConfig& getConfig(int32_t bank) const { return configs[static_cast<size_t>(bank)]; }
    int32_t getActiveBank() const;

private:
    struct StageRecord {
        std::vector<KernelBand> bands;
        int64_t builtAt = 0;
        bool valid = false;
    };

    // The bank builds go to: the bank in use or offered when it fits, else a freshly sized one.
    int32_t targetBankFor(const EngineSnapshot& snapshot);
    void prepareBank(int32_t bank, const KernelConfig& config);
    void releaseBank(int32_t bank);
    void collectBands(const EngineSnapshot& snapshot, const SpectralEngine* spectralEngine, int32_t channel,
                      StageType type, std::vector<KernelBand>& out) const;
    // Whether the kernel built from `built` may stay for `wanted` (held back when only gains moved
    // a little, or moved recently).
    bool isCloseEnough(const StageRecord& record, const std::vector<KernelBand>& wanted, int64_t position,
                       int32_t interval) const;
    KernelDesigner& designerFor(const KernelConfig& config, StageType type);

    std::array<Bank, kBanks> banks{};
    std::array<KernelConfig, kBanks> configs{};
    int32_t numChannels = 0;
    // (active + 1) * 4 + (offered + 1); -1 means none.
    std::atomic<int32_t> state{0};
    std::array<std::array<std::array<StageRecord, kNumStageTypes>, EngineSnapshot::kMaxChannels>, kBanks>
        records{};
    std::unique_ptr<KernelDesigner> naturalDesigner;
    std::unique_ptr<KernelDesigner> linearDesigner;
    std::vector<KernelBand> wanted;
};
