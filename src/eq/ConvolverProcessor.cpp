#include "eq/ConvolverProcessor.h"

#include <algorithm>

Convolver::Processor::Processor(const Layout& layout, int32_t level, const double* history,
                                int32_t historyMask)
    : level(level), immediate(level == 0), size(layout.getLevel(level).size),
      partitions(layout.getLevel(level).partitions), history(history), historyMask(historyMask),
      stepper(layout.getPlan(level)), ring(partitions * 2 * size), transformInput(2 * size),
      store(layout.getPlan(level)),
      forward(layout.getPlan(level), stepper), lanes{{layout.getPlan(level), stepper},
                                                     {layout.getPlan(level), stepper}} {
    store.setOutput(transformInput.getData());
    forward.setInput(transformInput.getData());
    if (!immediate) {
        queue.addTask(store);
        queue.addTask(forward);
    }
    for (Lane& lane : lanes) {
        lane.blocks[0].resize(2 * size);
        lane.blocks[1].resize(2 * size);
        lane.multiply.reserve(partitions);
        lane.multiply.enabled.setValue(false);
        lane.inverse.enabled.setValue(false);
        queue.addTask(lane.multiply);
        if (!immediate)
            queue.addTask(lane.inverse);
    }
}

void Convolver::Processor::endPeriod(int64_t t) {
    if (!periodRunning)
        return;
    queue.runToEnd();
    if (immediate) {
        prepareTransform(t);
        store.runToEnd();
        forward.runToEnd();
        for (Lane& lane : lanes) {
            if (!lane.running)
                continue;
            const bool onto = lane.multiply.getGranuleCount() > 0;
            queuePartitions(lane, 0, 1, onto);
            lane.multiply.runToEnd();
            lane.inverse.runToEnd();
        }
    }
    for (Lane& lane : lanes)
        lane.valid = lane.running;
    readBlock ^= 1;
    periodRunning = false;
}

void Convolver::Processor::startPeriod(int64_t t) {
    if (!immediate) {
        // The first block of a delayed level ends at B.
        if (t < size)
            return;
        prepareTransform(t);
    }
    for (Lane& lane : lanes) {
        lane.running = lane.kernel != nullptr;
        lane.multiply.enabled.setValue(lane.running);
        lane.inverse.enabled.setValue(lane.running);
        if (!lane.running)
            continue;
        // The immediate level's older partitions meet input one block older than they will be
        // at the block's end, where the newest partition joins them.
        queuePartitions(lane, immediate ? 1 : 0, partitions, false);
        double* block = lane.blocks[readBlock ^ 1].getData();
        lane.inverse.setInput(block);
        lane.inverse.setOutput(block);
    }
    queue.startPeriod(size);
    periodRunning = true;
}

void Convolver::Processor::addOutput(int32_t lane, int64_t t, double* out, int32_t count) const {
    const Lane& source = lanes[lane];
    if (!source.valid)
        return;
    // Overlap-save: the second half of the inverse transform is the block's output.
    const double* block = source.blocks[readBlock].getData() + size + static_cast<int32_t>(t % size);
    for (int32_t i = 0; i < count; ++i)
        out[i] += block[i];
}

void Convolver::Processor::setKernel(int32_t index, const Kernel* kernel) {
    Lane& lane = lanes[index];
    lane.kernel = kernel;
    lane.running = false;
    lane.valid = false;
    lane.multiply.enabled.setValue(false);
    lane.inverse.enabled.setValue(false);
}

void Convolver::Processor::reset() {
    queue.stop();
    newest = 0;
    entries = 0;
    readBlock = 0;
    periodRunning = false;
    for (Lane& lane : lanes) {
        lane.running = false;
        lane.valid = false;
    }
}

const double* Convolver::Processor::entry(int32_t age) const {
    return ring.getData() + ((newest - age + partitions) % partitions) * 2 * size;
}

void Convolver::Processor::prepareTransform(int64_t t) {
    const int32_t length = 2 * size;
    const int64_t begin = t - length;
    if (begin < 0) {
        // Before the reset the input was silence.
        store.setPieces(nullptr, static_cast<int32_t>(-begin), history, static_cast<int32_t>(t));
    } else {
        const auto start = static_cast<int32_t>(begin & historyMask);
        const int32_t first = std::min(length, historyMask + 1 - start);
        store.setPieces(history + start, first, history, length - first);
    }
    newest = (newest + 1) % partitions;
    entries = std::min(entries + 1, partitions);
    forward.setOutput(ring.getData() + newest * length);
}

void Convolver::Processor::queuePartitions(Lane& lane, int32_t firstPartition, int32_t endPartition,
                                           bool addOnto) {
    int32_t count = 0;
    for (int32_t index = firstPartition; index < endPartition && index - firstPartition < entries; ++index)
        lane.multiply.setPair(count++, entry(index - firstPartition),
                              lane.kernel->getPartition(level, index));
    lane.multiply.setPairCount(count, addOnto);
    lane.multiply.setOutput(lane.blocks[readBlock ^ 1].getData());
}
