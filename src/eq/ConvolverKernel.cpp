#include "eq/Convolver.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace {

int32_t firstPartitionFor(int32_t requested) {
    if (requested <= 0)
        return Convolver::kDefaultFirstPartition;
    const int32_t limited = std::clamp(requested, Convolver::kMinimumPartition, Convolver::kMaximumPartition);
    return static_cast<int32_t>(std::bit_ceil(static_cast<uint32_t>(limited)));
}

} // namespace

int32_t Convolver::Layout::largestPartitionFor(int32_t length, int32_t firstPartition) {
    const int32_t kernelLength = std::clamp(length, 1, kMaximumKernelLength);
    int32_t size = firstPartitionFor(firstPartition);
    while (32 * static_cast<int64_t>(size) <= kernelLength)
        size *= 8;
    return size;
}

Convolver::Layout::Layout(int32_t length, int32_t firstPartition)
    : kernelLength(std::clamp(length, 1, kMaximumKernelLength)) {
    const int32_t b0 = firstPartitionFor(firstPartition);
    const int32_t largest = largestPartitionFor(length, firstPartition);
    std::vector<int32_t> sizes{b0};
    while (sizes.back() < largest)
        sizes.push_back(8 * sizes.back());
    // A level of size B delivers its block 2 B after the block's input started; the chain as a
    // whole is b0 late, so the level can serve taps from 2 B - b0 on. Level 0 is the exception:
    // its newest partition is computed at once, so it starts at tap 0.
    int32_t spectrumSize = 0;
    for (size_t level = 0; level < sizes.size(); ++level) {
        const int32_t size = sizes[level];
        const int32_t firstTap = level == 0 ? 0 : 2 * size - b0;
        const int32_t endTap = level + 1 < sizes.size() ? 2 * sizes[level + 1] - b0 : kernelLength;
        const int32_t partitions = (endTap - firstTap + size - 1) / size;
        levels.push_back({size, firstTap, partitions});
        spectrumOffsets.push_back(spectrumSize);
        spectrumSize += partitions * 2 * size;
        plans.push_back(std::make_unique<FFTPlan<double>>(2 * size));
    }
    spectrumOffsets.push_back(spectrumSize);
}

Convolver::Kernel::Kernel(const Layout& layout) : layout(layout), spectra(layout.getSpectrumSize()) {
    for (int32_t level = 0; level < layout.getLevelCount(); ++level)
        steppers.push_back(std::make_unique<FFTStepper<double>>(layout.getPlan(level)));
}

Convolver::Kernel::~Kernel() = default;

bool Convolver::Kernel::setImpulseResponse(const double* taps, int32_t count) {
    count = std::clamp(count, 0, layout.getKernelLength());
    filled = std::all_of(taps, taps + count, [](double tap) { return std::isfinite(tap); });
    if (!filled)
        return false;
    for (int32_t level = 0; level < layout.getLevelCount(); ++level) {
        const LevelShape& shape = layout.getLevel(level);
        FFTStepper<double>& stepper = *steppers[static_cast<size_t>(level)];
        for (int32_t index = 0; index < shape.partitions; ++index) {
            double* spectrum = spectra.getData() + layout.getSpectrumOffset(level) + index * 2 * shape.size;
            const int32_t first = std::min(shape.firstTap + index * shape.size, count);
            const int32_t end = std::min(first + shape.size, count);
            std::fill(std::copy(taps + first, taps + end, spectrum), spectrum + 2 * shape.size, 0.0);
            stepper.forward(spectrum, spectrum);
        }
    }
    return true;
}

const double* Convolver::Kernel::getPartition(int32_t level, int32_t index) const {
    return spectra.getData() + layout.getSpectrumOffset(level) + index * 2 * layout.getLevel(level).size;
}
