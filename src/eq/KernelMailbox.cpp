#include "eq/KernelMailbox.h"

Convolver::KernelMailbox::KernelMailbox(const Layout& layout) {
    for (int32_t slot = 0; slot < kSlots; ++slot) {
        kernels[slot] = std::make_unique<Kernel>(layout);
        states[slot].store(kFree, std::memory_order_relaxed);
    }
}

Convolver::KernelMailbox::~KernelMailbox() = default;

Convolver::Kernel* Convolver::KernelMailbox::adoptFirst() {
    states[0].store(kInUse, std::memory_order_relaxed);
    return kernels[0].get();
}

Convolver::Kernel* Convolver::KernelMailbox::acquire() {
    for (int32_t slot = 0; slot < kSlots; ++slot) {
        int32_t expected = kFree;
        // Acquire: the audio thread's last reads of the slot happen before the builder writes it.
        if (states[slot].compare_exchange_strong(expected, kBuilding, std::memory_order_acquire)) {
            kernels[slot]->filled = false;
            return kernels[slot].get();
        }
    }
    return nullptr;
}

void Convolver::KernelMailbox::publish(Kernel* kernel) {
    const int32_t slot = indexOf(kernel);
    if (slot < 0 || states[slot].load(std::memory_order_relaxed) != kBuilding)
        return;
    if (!kernel->isFilled()) {
        discard(kernel);
        return;
    }
    states[slot].store(kPublished, std::memory_order_relaxed);
    // Release: the kernel's contents are visible to whoever takes it.
    const int32_t replaced = published.exchange(slot, std::memory_order_acq_rel);
    if (replaced >= 0)
        states[replaced].store(kFree, std::memory_order_relaxed);
}

void Convolver::KernelMailbox::discard(Kernel* kernel) {
    const int32_t slot = indexOf(kernel);
    if (slot >= 0 && states[slot].load(std::memory_order_relaxed) == kBuilding)
        states[slot].store(kFree, std::memory_order_relaxed);
}

Convolver::Kernel* Convolver::KernelMailbox::take() {
    // A cheap look first: most blocks find nothing.
    if (published.load(std::memory_order_relaxed) < 0)
        return nullptr;
    const int32_t slot = published.exchange(-1, std::memory_order_acq_rel);
    if (slot < 0)
        return nullptr;
    states[slot].store(kInUse, std::memory_order_relaxed);
    return kernels[slot].get();
}

void Convolver::KernelMailbox::release(const Kernel* kernel) {
    const int32_t slot = indexOf(kernel);
    if (slot >= 0)
        states[slot].store(kFree, std::memory_order_release);
}

int32_t Convolver::KernelMailbox::indexOf(const Kernel* kernel) const {
    for (int32_t slot = 0; slot < kSlots; ++slot)
        if (kernels[slot].get() == kernel)
            return slot;
    return -1;
}
