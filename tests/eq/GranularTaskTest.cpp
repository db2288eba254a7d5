#include "eq/GranularTask.h"
#include "eq/FFTTask.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

namespace {

// Logs every piece of work as (task, granule, from, to).
struct Piece {
    int task, granule, from, to;
};

class LoggingTask : public GranularTask {
public:
    LoggingTask(int id, int32_t granules, int32_t cost, std::vector<Piece>& log) : id(id), log(log) {
        setGranules(granules, cost);
    }

    int finished = 0;

protected:
    void finish() override { ++finished; }
    void runGranule(int32_t granule, int32_t fromUnits, int32_t toUnits) override {
        log.push_back({id, granule, fromUnits, toUnits});
    }

private:
    int id;
    std::vector<Piece>& log;
};

// Call sizes that add up to exactly `period`, between 1 and maxCall.
std::vector<int32_t> randomCalls(int32_t period, int32_t maxCall, unsigned seed) {
    std::mt19937 generator(seed);
    std::uniform_int_distribution<int32_t> size(1, maxCall);
    std::vector<int32_t> calls;
    for (int32_t left = period; left > 0;) {
        calls.push_back(std::min(size(generator), left));
        left -= calls.back();
    }
    return calls;
}

TEST(GranularTaskQueue, SpreadsCostEvenlyAndFinishesExactlyAtThePeriodsEnd) {
    for (unsigned seed = 1; seed <= 20; ++seed) {
        std::vector<Piece> log;
        LoggingTask first(0, 3, 1000, log), skipped(1, 5, 70, log), second(2, 7, 333, log),
            empty(3, 0, 9, log);
        skipped.enabled.setValue(false);
        GranularTaskQueue queue;
        for (GranularTask* task : std::vector<GranularTask*>{&first, &skipped, &second, &empty})
            queue.addTask(*task);
        const int32_t period = 1024;
        queue.startPeriod(period);
        ASSERT_EQ(queue.getTotalCost(), 3 * 1000 + 7 * 333);

        int32_t elapsed = 0;
        for (int32_t call : randomCalls(period, 300, seed)) {
            queue.run(call);
            elapsed += call;
            EXPECT_EQ(queue.getSpentCost(), queue.getTotalCost() * elapsed / period);
            EXPECT_EQ(queue.isFinished(), elapsed == period);
        }
        EXPECT_EQ(first.finished + second.finished + empty.finished, 3);
        EXPECT_EQ(skipped.finished, 0);

        // The pieces cover every granule of each task once, in order, and tasks never interleave.
        int expectedTask = 0, expectedGranule = 0, expectedFrom = 0;
        for (const Piece& piece : log) {
            if (piece.task != expectedTask) {
                EXPECT_EQ(expectedGranule, expectedTask == 0 ? 3 : 7);
                expectedTask = piece.task;
                expectedGranule = 0;
            }
            ASSERT_TRUE(piece.task == 0 || piece.task == 2);
            EXPECT_EQ(piece.granule, expectedGranule);
            EXPECT_EQ(piece.from, expectedFrom);
            EXPECT_GT(piece.to, piece.from);
            const int32_t cost = piece.task == 0 ? 1000 : 333;
            expectedFrom = piece.to == cost ? 0 : piece.to;
            expectedGranule += piece.to == cost ? 1 : 0;
        }
        EXPECT_EQ(expectedTask, 2);
        EXPECT_EQ(expectedGranule, 7);
    }
}

std::vector<double> randomValues(int32_t count, unsigned seed) {
    std::mt19937 generator(seed);
    std::uniform_real_distribution<double> value(-1.0, 1.0);
    std::vector<double> values(static_cast<size_t>(count));
    for (double& v : values)
        v = value(generator);
    return values;
}

// One overlap-save block as the convolver queues it: store two pieces (the first standing for
// silence), transform, multiply with three partitions, inverse transform. Run in random call sizes,
// it must give the bits of the plain computation.
TEST(FFTTasks, AQueuedBlockEqualsThePlainComputationForAnyCallSizes) {
    constexpr int32_t kSize = 512;
    const FFTPlan<double> plan(kSize);
    const std::vector<double> piece = randomValues(300, 5);
    std::vector<std::vector<double>> partitions, inputs;
    for (unsigned k = 0; k < 3; ++k) {
        partitions.push_back(randomValues(kSize, 10 + k));
        inputs.push_back(randomValues(kSize, 20 + k));
    }

    // Plain: 100 zeros, the piece, zeros; the new spectrum meets partition 0, older ones the rest.
    FFTStepper<double> plain(plan);
    std::vector<double> time(kSize, 0.0);
    std::copy(piece.begin(), piece.end(), time.begin() + 100);
    plain.forward(time.data(), inputs[0].data());
    std::vector<double> expected(kSize);
    for (size_t k = 0; k < 3; ++k)
        FFTPlan<double>::multiplySpectra(inputs[k].data(), partitions[k].data(), expected.data(), kSize,
                                         k > 0);
    plain.inverse(expected.data(), expected.data());

    for (unsigned seed = 1; seed <= 10; ++seed) {
        FFTStepper<double> stepper(plan);
        std::vector<double> stored(kSize, 7.0), spectrum(kSize), result(kSize);
        FFTStoreInputTask<double> store(plan);
        FFTCalculateTask<double> forward(plan, stepper);
        FFTMultiplyTask<double> multiply(plan);
        FFTCalculateInverseTask<double> inverse(plan, stepper);
        store.setPieces(nullptr, 100, piece.data(), 300);
        store.setOutput(stored.data());
        forward.setInput(stored.data());
        forward.setOutput(spectrum.data());
        multiply.reserve(3);
        multiply.setPairCount(3, false);
        multiply.setPair(0, spectrum.data(), partitions[0].data());
        for (int32_t k = 1; k < 3; ++k)
            multiply.setPair(k, inputs[static_cast<size_t>(k)].data(),
                             partitions[static_cast<size_t>(k)].data());
        multiply.setOutput(result.data());
        inverse.setInput(result.data());
        inverse.setOutput(result.data());
        GranularTaskQueue queue;
        for (GranularTask* task : std::vector<GranularTask*>{&store, &forward, &multiply, &inverse})
            queue.addTask(*task);

        queue.startPeriod(kSize);
        for (int32_t call : randomCalls(kSize, seed * 7, seed))
            queue.run(call);
        ASSERT_TRUE(queue.isFinished());
        EXPECT_EQ(result, expected) << "seed " << seed;
    }
}

} // namespace
