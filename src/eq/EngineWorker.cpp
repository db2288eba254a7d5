#include "eq/EngineWorker.h"

#include <chrono>

EngineWorker::EngineWorker() : thread([this] { run(); }) {}

EngineWorker::~EngineWorker() {
    stopping.store(true);
    wakeUp.release();
    thread.join();
}

void EngineWorker::publish(const EngineSnapshot& snapshot) {
    snapshots.writeSlot() = snapshot;
    snapshots.publish();
    wakeUp.release();
}

void EngineWorker::run() {
    while (!stopping.load()) {
        // The timeout is only a safety net; every publication wakes the thread.
        wakeUp.try_acquire_for(std::chrono::milliseconds(100));
        while (snapshots.take() && !stopping.load())
            handle(snapshots.readSlot());
    }
}

void EngineWorker::handle(const EngineSnapshot& snapshot) {
    if (snapshot.settingsSerial != lastSerial) {
        lastSerial = snapshot.settingsSerial;
        const auto flags = std::span<const uint32_t>(snapshot.channelFlags.data(),
                                                     static_cast<size_t>(snapshot.numChannels));
        loudnessChange.store(
            static_cast<float>(estimator.loudnessChangeDb(snapshot.bands, snapshot.gainScale, flags)),
            std::memory_order_relaxed);
    }
    handledSerial.store(snapshot.settingsSerial, std::memory_order_release);
}
