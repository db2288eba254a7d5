#pragma once

#include "eq/AutoGain.h"
#include "eq/EngineSnapshot.h"
#include "eq/KernelBuilder.h"
#include "eq/SpectralEngine.h"
#include "wave/TripleBuffer.h"

#include <atomic>
#include <cstdint>
#include <mutex>
#include <semaphore>
#include <thread>

// The processor's background thread: everything that is too slow for the audio thread but must
// follow the audio thread's state runs here, from the latest published snapshot.
//
// Threading: publish and the getters run on the audio thread and never wait (the wake-up is a
// semaphore release); the work runs on the worker's own thread. Constructed and destroyed off the
// audio thread.
class EngineWorker {
public:
    EngineWorker();
    ~EngineWorker();
    EngineWorker(const EngineWorker&) = delete;
    EngineWorker& operator=(const EngineWorker&) = delete;

    // Audio thread: copies the snapshot for the worker and, unless told not to, wakes it.
    void publish(const EngineSnapshot& snapshot, bool wake = true);

    // Off the audio thread, while nothing is processed: new convolver banks (see KernelBuilder).
    void setBanks(const std::array<KernelBuilder::Bank, KernelBuilder::kBanks>& banks, int32_t numChannels);
    // Off the audio thread, while nothing is processed: does what the snapshot asks for right away,
    // so processing starts with its kernels in place.
    void followNow(const EngineSnapshot& snapshot);
    // The audio thread's side of the kernel hand-over.
    KernelBuilder& getKernelBuilder() { return kernelBuilder; }
    // Off the audio thread, while nothing is processed: where the spectral analysis reads the input.
    void setSpectralInputs(std::vector<wave::SampleRing*> mainInputs,
                           std::vector<wave::SampleRing*> sideChains);
    // The polling thread's side of the spectral records.
    SpectralEngine& getSpectralEngine() { return spectralEngine; }

    // Auto Gain's estimate for the last snapshot handled.
    float getLoudnessChangeDb() const { return loudnessChange.load(std::memory_order_relaxed); }
    // Kernels wait for a free slot or for their turn: the worker comes back to them shortly.
    bool hasWorkPending() const { return workPending.load(std::memory_order_acquire); }
    // The settings serial of the last snapshot the worker has finished with.
    uint64_t getHandledSerial() const { return handledSerial.load(std::memory_order_acquire); }

private:
    void run();
    // Returns whether work is left for a later try.
    bool handle(const EngineSnapshot& snapshot);

    wave::TripleBuffer<EngineSnapshot> snapshots;
    std::counting_semaphore<> wakeUp{0};
    std::atomic<bool> stopping{false};
    std::atomic<float> loudnessChange{0.0f};
    std::atomic<uint64_t> handledSerial{0};
    std::atomic<bool> workPending{false};
    AutoGainEstimator estimator;
    KernelBuilder kernelBuilder;
    SpectralEngine spectralEngine;
    // Held while the worker's state is worked on: by the worker, or by a setup call.
    std::mutex work;
    uint64_t lastSerial = ~uint64_t{0};
    std::thread thread;
};
