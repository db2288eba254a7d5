#pragma once

#include <array>
#include <cstdint>

// Accepts raw three-byte MIDI messages (status, data 1, data 2).
class MidiMessageReceiver {
public:
    virtual ~MidiMessageReceiver() = default;
    virtual void receiveMidiMessage(uint8_t status, uint8_t data1, uint8_t data2) = 0;
};

// Receives decoded events. Channels are 0..15; values are normalised (velocities and controller
// values 0..1, pitch bend -0.5..+0.5) unless noted. Every event does nothing unless overridden.
class AbstractMusicEventReceiver {
public:
    virtual ~AbstractMusicEventReceiver() = default;
    virtual void noteOff(int32_t /*note*/, int32_t /*channel*/, float /*velocity*/) {}
    virtual void noteOn(int32_t /*note*/, int32_t /*channel*/, float /*velocity*/) {}
    virtual void polyphonicPressure(int32_t /*note*/, int32_t /*channel*/, float /*value*/) {}
    virtual void controlChange(int32_t /*controller*/, int32_t /*channel*/, float /*value*/) {}
    // bank is the 14-bit bank select value of the receiving slot.
    virtual void programChange(int32_t /*bank*/, int32_t /*program*/) {}
    virtual void channelPressure(int32_t /*channel*/, float /*value*/) {}
    virtual void pitchBend(int32_t /*channel*/, int32_t /*raw*/, float /*normalised*/) {}
};

// Splits raw messages into events. Slot 0 receives the events of every channel and slot c + 1
// those of channel c, so a channel message is delivered twice when both slots have receivers.
// Each slot keeps its own bank select. Not thread-safe: one decoder per thread that decodes.
class MidiDecoder {
public:
    static constexpr int32_t kNumSlots = 17;
    static constexpr int32_t kAllChannels = 0;

    MidiDecoder();

    // Receivers are not owned; null removes one.
    void setReceiver(int32_t slot, AbstractMusicEventReceiver* receiver);
    void setSystemReceiver(MidiMessageReceiver* receiver) { systemReceiver = receiver; }
    // Sees every raw message before it is decoded (MIDI learn).
    void setLearnListener(MidiMessageReceiver* listener) { learnListener = listener; }

    void decode(uint8_t status, uint8_t data1, uint8_t data2);

    int32_t getBank(int32_t slot) const { return banks[static_cast<std::size_t>(slot)]; }

private:
    void decodeFor(int32_t slot, uint8_t status, uint8_t data1, uint8_t data2);

    std::array<int32_t, kNumSlots> banks{};
    std::array<AbstractMusicEventReceiver*, kNumSlots> receivers{};
    MidiMessageReceiver* systemReceiver = nullptr;
    MidiMessageReceiver* learnListener = nullptr;
};
