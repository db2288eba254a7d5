#include "eq/FFTTask.h"

#include <algorithm>
#include <cassert>

namespace {

// Copying a point costs about a quarter of a butterfly pass over it; a complex product about three
// passes (measured: the products stream two spectra and an accumulator, the butterflies mostly
// stay in the cache).
constexpr int32_t kCopiesPerUnit = 4;
constexpr int32_t kUnitsPerProduct = 3;
// The transform's first stage reads (forward) or writes (inverse) through the bit reversal, all
// over memory: about eight times the plan's estimate for it.
constexpr int32_t kUnitsPerReorderUnit = 8;

} // namespace

template <class T>
void FFTStoreInputTask<T>::setPieces(const T* first, int32_t firstLength, const T* second,
                                     int32_t secondLength) {
    const int32_t size = this->plan.getSize();
    pieces[0] = {first, std::clamp(firstLength, 0, size)};
    pieces[1] = {second, std::clamp(secondLength, 0, size - pieces[0].length)};
}

template <class T>
void FFTStoreInputTask<T>::prepare() {
    this->setGranules(1, std::max(this->plan.getSize() / kCopiesPerUnit, 1));
}

template <class T>
void FFTStoreInputTask<T>::runGranule(int32_t, int32_t fromUnits, int32_t toUnits) {
    const int32_t size = this->plan.getSize();
    const int32_t cost = this->getGranuleCost();
    const int32_t first = this->pointsDone(fromUnits, cost, size);
    const int32_t end = this->pointsDone(toUnits, cost, size);
    int32_t pieceStart = 0;
    for (const Piece& piece : pieces) {
        const int32_t from = std::clamp(first - pieceStart, 0, piece.length);
        const int32_t to = std::clamp(end - pieceStart, 0, piece.length);
        if (piece.data != nullptr)
            std::copy(piece.data + from, piece.data + to, this->output + pieceStart + from);
        else
            std::fill(this->output + pieceStart + from, this->output + pieceStart + to, T(0));
        pieceStart += piece.length;
    }
    const int32_t zerosFrom = std::max(first, pieceStart);
    if (end > zerosFrom)
        std::fill(this->output + zerosFrom, this->output + end, T(0));
}

template <class T>
int32_t FFTCalculateTask<T>::reorderCost() const {
    return this->plan.getStageCount() > 0 ? this->plan.getStageCost(0) : 0;
}

template <class T>
int32_t FFTCalculateTask<T>::planUnitsAt(int32_t units) const {
    const int32_t reorder = reorderCost();
    if (units < kUnitsPerReorderUnit * reorder)
        return units / kUnitsPerReorderUnit;
    return units - (kUnitsPerReorderUnit - 1) * reorder;
}

template <class T>
void FFTCalculateTask<T>::prepare() {
    this->setGranules(1, this->plan.getTotalCost() + (kUnitsPerReorderUnit - 1) * reorderCost());
}

template <class T>
void FFTCalculateTask<T>::runGranule(int32_t, int32_t fromUnits, int32_t toUnits) {
    // The stepper may be shared with tasks queued before this one, so it is claimed only now.
    if (fromUnits == 0)
        stepper.start(direction, input, this->output);
    int32_t budget = planUnitsAt(toUnits) - planUnitsAt(fromUnits);
    stepper.step(budget);
}

template <class T>
void FFTMultiplyTask<T>::reserve(int32_t pairs) {
    inputs.assign(static_cast<size_t>(std::max(pairs, 0)), nullptr);
    partitions.assign(inputs.size(), nullptr);
}

template <class T>
void FFTMultiplyTask<T>::setPairCount(int32_t count, bool onto) {
    assert(count <= static_cast<int32_t>(inputs.size()));
    pairCount = std::clamp(count, 0, static_cast<int32_t>(inputs.size()));
    addOnto = onto;
}

template <class T>
void FFTMultiplyTask<T>::setPair(int32_t index, const T* input, const T* partition) {
    inputs[static_cast<size_t>(index)] = input;
    partitions[static_cast<size_t>(index)] = partition;
}

template <class T>
void FFTMultiplyTask<T>::prepare() {
    this->setGranules(pairCount, kUnitsPerProduct * this->plan.getSize());
}

template <class T>
void FFTMultiplyTask<T>::runGranule(int32_t granule, int32_t fromUnits, int32_t toUnits) {
    const int32_t size = this->plan.getSize();
    const int32_t cost = this->getGranuleCost();
    const auto pair = static_cast<size_t>(granule);
    FFTPlan<T>::multiplySpectra(inputs[pair], partitions[pair], this->output,
                                this->pointsDone(fromUnits, cost, size),
                                this->pointsDone(toUnits, cost, size), addOnto || granule > 0);
}

template class FFTTask<double>;
template class FFTStoreInputTask<double>;
template class FFTCalculateTask<double>;
template class FFTCalculateInverseTask<double>;
template class FFTMultiplyTask<double>;
