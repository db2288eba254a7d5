#include "foundation/BinaryStreams.h"
#include "plugin/ControllerMapping.h"
#include "plugin/MidiDecoder.h"
#include "support/AllocationCounter.h"
#include "support/LockCounter.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// Writes every event it receives as one line, e.g. "cc 7 ch 4 0.5".
class EventLog : public AbstractMusicEventReceiver, public MidiMessageReceiver {
public:
    void noteOff(int32_t note, int32_t channel, float velocity) override {
        add("off " + std::to_string(note) + " ch " + std::to_string(channel), velocity);
    }
    void noteOn(int32_t note, int32_t channel, float velocity) override {
        add("on " + std::to_string(note) + " ch " + std::to_string(channel), velocity);
    }
    void polyphonicPressure(int32_t note, int32_t channel, float value) override {
        add("poly " + std::to_string(note) + " ch " + std::to_string(channel), value);
    }
    void controlChange(int32_t controller, int32_t channel, float value) override {
        add("cc " + std::to_string(controller) + " ch " + std::to_string(channel), value);
    }
    void programChange(int32_t bank, int32_t program) override {
        add("program " + std::to_string(program) + " bank " + std::to_string(bank), 0.0f);
    }
    void channelPressure(int32_t channel, float value) override {
        add("pressure ch " + std::to_string(channel), value);
    }
    void pitchBend(int32_t channel, int32_t raw, float normalised) override {
        add("bend ch " + std::to_string(channel) + " raw " + std::to_string(raw), normalised);
    }
    void receiveMidiMessage(uint8_t status, uint8_t data1, uint8_t data2) override {
        add("raw " + std::to_string(status) + " " + std::to_string(data1) + " " + std::to_string(data2),
            0.0f);
    }

    std::vector<std::string> events;
    std::vector<float> values;

private:
    void add(std::string event, float value) {
        events.push_back(std::move(event));
        values.push_back(value);
    }
};

struct Decoder {
    Decoder() { decoder.setReceiver(MidiDecoder::kAllChannels, &all); }
    MidiDecoder decoder;
    EventLog all;
};

std::vector<uint8_t> mappingBytes(const ControllerMapping& mapping) {
    BinaryMemoryWriter writer;
    mapping.write(writer);
    return writer.release();
}

} // namespace

TEST(MidiDecoder, ChannelMessagesBecomeEventsWithNormalisedValues) {
    Decoder d;
    d.decoder.decode(0x92, 60, 127);
    d.decoder.decode(0x82, 60, 64);
    d.decoder.decode(0xA1, 61, 1);
    d.decoder.decode(0xB0, 7, 127);
    d.decoder.decode(0xDF, 127, 0);
    const std::vector<std::string> expected{"on 60 ch 2", "off 60 ch 2", "poly 61 ch 1", "cc 7 ch 0",
                                            "pressure ch 15"};
    EXPECT_EQ(d.all.events, expected);
    EXPECT_FLOAT_EQ(d.all.values[0], 1.0f);
    EXPECT_FLOAT_EQ(d.all.values[1], 64 * 0.007874016f);
    EXPECT_FLOAT_EQ(d.all.values[2], 0.007874016f);
    EXPECT_FLOAT_EQ(d.all.values[4], 1.0f);
}

TEST(MidiDecoder, NoteOnWithVelocityZeroIsANoteOff) {
    Decoder d;
    d.decoder.decode(0x90, 64, 0);
    EXPECT_EQ(d.all.events, std::vector<std::string>{"off 64 ch 0"});
    EXPECT_EQ(d.all.values[0], 0.0f);
}

TEST(MidiDecoder, BankSelectMsbAndLsbPrefixTheProgramChange) {
    Decoder d;
    d.decoder.decode(0xB0, 0, 1);  // MSB: not delivered
    d.decoder.decode(0xB0, 32, 5); // LSB: delivered as a controller as well
    d.decoder.decode(0xC0, 3, 0);
    EXPECT_EQ(d.all.events, (std::vector<std::string>{"cc 32 ch 0", "program 3 bank 133"}));
    // A later MSB keeps the LSB; a later LSB keeps the MSB.
    d.decoder.decode(0xB0, 0, 2);
    d.decoder.decode(0xC0, 4, 0);
    d.decoder.decode(0xB0, 32, 9);
    d.decoder.decode(0xC0, 5, 0);
    ASSERT_EQ(d.all.events.size(), 5u);
    EXPECT_EQ(d.all.events[2], "program 4 bank 261");
    EXPECT_EQ(d.all.events[4], "program 5 bank 265");
}

TEST(MidiDecoder, EachSlotKeepsItsOwnBank) {
    Decoder d;
    EventLog channel2;
    d.decoder.setReceiver(3, &channel2);
    d.decoder.decode(0xB2, 0, 1); // channel index 2: slots 0 and 3
    d.decoder.decode(0xB5, 0, 4); // channel index 5: slots 0 and 6
    d.decoder.decode(0xC2, 7, 0);
    EXPECT_EQ(d.all.events.back(), "program 7 bank 512");
    EXPECT_EQ(channel2.events.back(), "program 7 bank 128");
    EXPECT_EQ(d.decoder.getBank(6), 512);
}

TEST(MidiDecoder, PitchBendIsCentredJustAboveZero) {
    Decoder d;
    d.decoder.decode(0xE0, 0, 64);
    d.decoder.decode(0xE0, 0, 0);
    d.decoder.decode(0xE0, 127, 127);
    EXPECT_EQ(d.all.events[0], "bend ch 0 raw 8192");
    EXPECT_NEAR(d.all.values[0], 0.00003f, 0.000002f);
    EXPECT_GT(d.all.values[0], 0.0f);
    EXPECT_FLOAT_EQ(d.all.values[1], -0.5f);
    EXPECT_EQ(d.all.events[2], "bend ch 0 raw 16383");
    EXPECT_NEAR(d.all.values[2], 0.5f, 1e-6f);
}

TEST(MidiDecoder, AllNotesOffIsANoteOffForNoteZero) {
    Decoder d;
    d.decoder.decode(0xB4, 123, 0);
    EXPECT_EQ(d.all.events, std::vector<std::string>{"off 0 ch 4"});
}

TEST(MidiDecoder, AMessageReachesTheAllChannelsAndTheChannelReceiver) {
    Decoder d;
    EventLog channel5;
    EventLog channel6;
    d.decoder.setReceiver(5, &channel5);
    d.decoder.setReceiver(6, &channel6);
    d.decoder.decode(0xB4, 10, 0); // MIDI channel 5 is channel index 4, slot 5
    EXPECT_EQ(d.all.events, std::vector<std::string>{"cc 10 ch 4"});
    EXPECT_EQ(channel5.events, std::vector<std::string>{"cc 10 ch 4"});
    EXPECT_TRUE(channel6.events.empty());
    d.decoder.setReceiver(MidiDecoder::kAllChannels, nullptr); // a missing receiver is skipped
    d.decoder.decode(0x94, 1, 1);
    EXPECT_EQ(channel5.events.size(), 2u);
    EXPECT_EQ(d.all.events.size(), 1u);
}

TEST(MidiDecoder, LearnListenerSeesEveryRawMessageFirstAndSystemMessagesGoAside) {
    Decoder d;
    EventLog learn;
    EventLog system;
    d.decoder.setLearnListener(&learn);
    d.decoder.setSystemReceiver(&system);
    d.decoder.decode(0xB0, 1, 2);
    d.decoder.decode(0xF8, 0, 0);
    d.decoder.decode(0x45, 0, 0);     // a data byte where a status belongs: no event
    d.decoder.decode(0x90, 200, 255); // stray high bits are dropped
    EXPECT_EQ(learn.events,
              (std::vector<std::string>{"raw 176 1 2", "raw 248 0 0", "raw 69 0 0", "raw 144 200 255"}));
    EXPECT_EQ(system.events, std::vector<std::string>{"raw 248 0 0"});
    EXPECT_EQ(d.all.events, (std::vector<std::string>{"cc 1 ch 0", "on 72 ch 0"}));
    EXPECT_FLOAT_EQ(d.all.values[1], 1.0f);
}

TEST(ControllerMapping, LooksUpBothWaysAndFiresOncePerUpdate) {
    ControllerMapping mapping;
    int updates = 0;
    mapping.changed.event.subscribe([&updates] { ++updates; });
    EXPECT_EQ(mapping.getParameterForController(0), ControllerMapping::kUnassigned);
    EXPECT_EQ(mapping.getParameterForController(128), ControllerMapping::kUnassigned);
    EXPECT_EQ(mapping.getParameterForController(-1), ControllerMapping::kUnassigned);
    mapping.assign(74, 12);
    mapping.assign(74, 12); // unchanged: no update
    EXPECT_EQ(updates, 1);
    {
        ControllerMapping::UpdateLock lock(mapping);
        mapping.assign(20, 12);
        mapping.assign(21, 13);
        mapping.assign(128, 1); // not a controller
    }
    EXPECT_EQ(updates, 2);
    EXPECT_EQ(mapping.getControllerForParameter(12), 20u); // the lowest
    EXPECT_EQ(mapping.getControllerForParameter(14), ControllerMapping::kUnassigned);
    mapping.clear(20);
    EXPECT_EQ(mapping.getControllerForParameter(12), 74u);
    EXPECT_EQ(updates, 3);
}

TEST(ControllerMapping, BinaryFormByteByByte) {
    ControllerMapping mapping;
    mapping.assign(0, 0x01020304);
    mapping.assign(127, 599);
    const std::vector<uint8_t> bytes = mappingBytes(mapping);
    ASSERT_EQ(bytes.size(), 8u + 128u * 4u);
    const std::vector<uint8_t> header(bytes.begin(), bytes.begin() + 8);
    EXPECT_EQ(header, (std::vector<uint8_t>{'Z', 'V', 'C', 'M', 1, 0, 0, 0}));
    EXPECT_EQ(std::vector<uint8_t>(bytes.begin() + 8, bytes.begin() + 12),
              (std::vector<uint8_t>{4, 3, 2, 1}));
    for (size_t controller = 1; controller < 127; ++controller)
        for (size_t k = 0; k < 4; ++k)
            ASSERT_EQ(bytes[8 + controller * 4 + k], 0xFF) << controller;
    EXPECT_EQ(std::vector<uint8_t>(bytes.end() - 4, bytes.end()), (std::vector<uint8_t>{0x57, 0x02, 0, 0}));

    ControllerMapping copy;
    BinaryMemoryReader reader(bytes);
    EXPECT_TRUE(copy.read(reader));
    EXPECT_EQ(mappingBytes(copy), bytes);
}

TEST(ControllerMapping, ReadingRefusesOtherChunksAndShortData) {
    ControllerMapping source;
    source.assign(5, 42);
    std::vector<uint8_t> bytes = mappingBytes(source);

    ControllerMapping target;
    target.assign(9, 7);
    int updates = 0;
    target.changed.event.subscribe([&updates] { ++updates; });

    std::vector<uint8_t> otherChunk = bytes;
    otherChunk[3] = 'X';
    BinaryMemoryReader otherReader(otherChunk);
    EXPECT_FALSE(target.read(otherReader));

    const std::vector<uint8_t> truncated(bytes.begin(), bytes.end() - 1);
    BinaryMemoryReader shortReader(truncated);
    EXPECT_FALSE(target.read(shortReader));
    EXPECT_EQ(target.getParameterForController(9), 7u);
    EXPECT_EQ(target.getParameterForController(5), ControllerMapping::kUnassigned);
    EXPECT_EQ(updates, 0);

    BinaryMemoryReader goodReader(bytes);
    EXPECT_TRUE(target.read(goodReader));
    EXPECT_EQ(updates, 1); // two entries changed inside one update
    EXPECT_EQ(target.getParameterForController(5), 42u);
    EXPECT_EQ(target.getParameterForController(9), ControllerMapping::kUnassigned);
}

// The processor decodes MIDI on the audio thread: decoding and looking up the controller map
// must neither allocate nor lock.
TEST(MidiDecoder, DecodingNeitherAllocatesNorLocks) {
    struct Counting : AbstractMusicEventReceiver {
        void controlChange(int32_t, int32_t, float value) override { sum += value; }
        void pitchBend(int32_t, int32_t, float value) override { sum += value; }
        float sum = 0.0f;
    } receiver;
    MidiDecoder decoder;
    decoder.setReceiver(MidiDecoder::kAllChannels, &receiver);
    decoder.setReceiver(3, &receiver);
    ControllerMapping mapping;
    mapping.assign(7, 3);
    uint32_t mapped = 0;
    testing_support::AllocationCounter allocations;
    testing_support::LockCounter locks;
    for (int k = 0; k < 1000; ++k) {
        decoder.decode(static_cast<uint8_t>(0xB0 | (k & 15)), static_cast<uint8_t>(k % 128), 127);
        decoder.decode(0xE2, static_cast<uint8_t>(k % 128), 64);
        mapped += mapping.getParameterForController(k % 128) == 3 ? 1 : 0;
    }
    EXPECT_EQ(allocations.count(), 0u);
    EXPECT_EQ(locks.count(), 0);
    EXPECT_EQ(mapped, 8u);
    EXPECT_GT(receiver.sum, 1000.0f);
}
