#pragma once

#include "eq/AutoGain.h"
#include "eq/EngineSnapshot.h"
#include "wave/TripleBuffer.h"

#include <atomic>
#include <cstdint>
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

    // Audio thread: copies the snapshot for the worker and wakes it.
    void publish(const EngineSnapshot& snapshot);

    // Auto Gain's estimate for the last snapshot handled.
    float getLoudnessChangeDb() const { return loudnessChange.load(std::memory_order_relaxed); }
    // The settings serial of the last snapshot the worker has finished with.
    uint64_t getHandledSerial() const { return handledSerial.load(std::memory_order_acquire); }

private:
    void run();
    void handle(const EngineSnapshot& snapshot);

    wave::TripleBuffer<EngineSnapshot> snapshots;
    std::counting_semaphore<> wakeUp{0};
    std::atomic<bool> stopping{false};
    std::atomic<float> loudnessChange{0.0f};
    std::atomic<uint64_t> handledSerial{0};
    AutoGainEstimator estimator;
    uint64_t lastSerial = ~uint64_t{0};
    std::thread thread;
};
