#include "eq/EngineWorker.h"

#include <chrono>

EngineWorker::EngineWorker() : thread([this] { run(); }) {}

EngineWorker::~EngineWorker() {
    stopping.store(true);
    wakeUp.release();
    thread.join();
}

void EngineWorker::publish(const EngineSnapshot& snapshot, bool wake) {
    snapshots.writeSlot() = snapshot;
    snapshots.publish();
    if (wake)
        wakeUp.release();
}

void EngineWorker::setBanks(const std::array<KernelBuilder::Bank, KernelBuilder::kBanks>& banks,
                            int32_t numChannels) {
    const std::lock_guard<std::mutex> lock(work);
    kernelBuilder.setBanks(banks, numChannels);
}

void EngineWorker::setSpectralInputs(std::vector<wave::SampleRing*> mainInputs,
                                     std::vector<wave::SampleRing*> sideChains) {
    const std::lock_guard<std::mutex> lock(work);
    spectralEngine.setInputs(std::move(mainInputs), std::move(sideChains));
}

void EngineWorker::followNow(const EngineSnapshot& snapshot) {
    publish(snapshot);
    const std::lock_guard<std::mutex> lock(work);
    snapshots.take();
    handle(snapshots.readSlot());
}

void EngineWorker::run() {
    bool retry = false;
    bool followGains = false;
    while (!stopping.load()) {
        // Settings changes wake the thread; the short round paces retries and moving gains.
        wakeUp.try_acquire_for(std::chrono::milliseconds(retry || followGains ? 5 : 100));
        const std::lock_guard<std::mutex> lock(work);
        bool fresh = false;
        while (snapshots.take())
            fresh = true;
        if ((fresh || retry || spectralEngine.isActive()) && !stopping.load())
            retry = handle(snapshots.readSlot());
        // Moving gains and arriving audio to analyse are picked up on the short round.
        followGains = snapshots.readSlot().followsGains || spectralEngine.isActive();
    }
}

bool EngineWorker::handle(const EngineSnapshot& snapshot) {
    if (snapshot.settingsSerial != lastSerial) {
        lastSerial = snapshot.settingsSerial;
        const auto flags = std::span<const uint32_t>(snapshot.channelFlags.data(),
                                                     static_cast<size_t>(snapshot.numChannels));
        loudnessChange.store(
            static_cast<float>(estimator.loudnessChangeDb(snapshot.bands, snapshot.gainScale, flags)),
            std::memory_order_relaxed);
    }
    spectralEngine.follow(snapshot);
    const bool retry = kernelBuilder.follow(snapshot, &spectralEngine);
    workPending.store(retry, std::memory_order_release);
    handledSerial.store(snapshot.settingsSerial, std::memory_order_release);
    return retry;
}
