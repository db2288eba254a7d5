#pragma once

#include "eq/Convolver.h"

#include <atomic>
#include <cstdint>
#include <memory>

// The four kernel slots of one convolver and their hand-over between the builder and the audio
// thread. Every slot has one owner at a time: free, the builder's, published, or the audio
// thread's (the kernel in use and the one fading in). Ownership moves by one atomic operation on
// either side, so neither side ever waits: the published slot is exchanged, so a kernel published
// over an untaken one and the audio thread taking it cannot both get it. Four slots always leave
// one for the builder: two on the audio thread, one published, one being built.
//
// Threading: construction and adoptFirst() off the audio thread before processing; acquire,
// publish and discard on the builder thread (one at a time); take and release on the audio thread.
class Convolver::KernelMailbox {
public:
    static constexpr int32_t kSlots = 4;

    explicit KernelMailbox(const Layout& layout);
    ~KernelMailbox();

    // Hands a first slot to the audio thread before processing starts.
    Kernel* adoptFirst();

    // Builder side.
    Kernel* acquire();
    void publish(Kernel* kernel);
    void discard(Kernel* kernel);

    // Audio side: the newest published kernel, or null; and giving a kernel back once unused.
    Kernel* take();
    void release(const Kernel* kernel);

private:
    enum SlotState : int32_t { kFree = 0, kBuilding = 1, kPublished = 2, kInUse = 3 };

    int32_t indexOf(const Kernel* kernel) const;

    std::unique_ptr<Kernel> kernels[kSlots];
    std::atomic<int32_t> states[kSlots];
    std::atomic<int32_t> published{-1};
};
