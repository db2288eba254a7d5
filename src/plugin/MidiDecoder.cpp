#include "plugin/MidiDecoder.h"

namespace {

constexpr float kPerStep = 0.007874016f; // 1 / 127
// 1 / 16383 as the hosts' pitch wheels scale it; the centre 8192 lands just above 0.
constexpr float kPitchBendPerStep = 6.103888e-5f;

constexpr uint8_t kBankSelectMsb = 0;
constexpr uint8_t kBankSelectLsb = 32;
constexpr uint8_t kAllNotesOff = 123;

} // namespace

MidiDecoder::MidiDecoder() = default;

void MidiDecoder::setReceiver(int32_t slot, AbstractMusicEventReceiver* receiver) {
    if (slot >= 0 && slot < kNumSlots)
        receivers[static_cast<std::size_t>(slot)] = receiver;
}

void MidiDecoder::decode(uint8_t status, uint8_t data1, uint8_t data2) {
    if (learnListener != nullptr)
        learnListener->receiveMidiMessage(status, data1, data2);
    if (status >= 0xF0) {
        if (systemReceiver != nullptr)
            systemReceiver->receiveMidiMessage(status, data1, data2);
        return;
    }
    // Data bytes are seven bits; a stray high bit must not reach bank numbers or values.
    data1 &= 0x7F;
    data2 &= 0x7F;
    decodeFor(kAllChannels, status, data1, data2);
    decodeFor((status & 15) + 1, status, data1, data2);
}

void MidiDecoder::decodeFor(int32_t slot, uint8_t status, uint8_t data1, uint8_t data2) {
    int32_t& bank = banks[static_cast<std::size_t>(slot)];
    AbstractMusicEventReceiver* receiver = receivers[static_cast<std::size_t>(slot)];
    const int32_t channel = status & 15;
    switch (status >> 4) {
    case 0x8:
        if (receiver != nullptr)
            receiver->noteOff(data1, channel, data2 * kPerStep);
        break;
    case 0x9:
        if (receiver == nullptr)
            break;
        if (data2 == 0)
            receiver->noteOff(data1, channel, 0.0f);
        else
            receiver->noteOn(data1, channel, data2 * kPerStep);
        break;
    case 0xA:
        if (receiver != nullptr)
            receiver->polyphonicPressure(data1, channel, data2 * kPerStep);
        break;
    case 0xB:
        // Bank selects change the slot's bank whether or not anyone listens.
        if (data1 == kBankSelectMsb) {
            bank = (data2 << 7) | (bank & 127);
            break;
        }
        if (data1 == kBankSelectLsb)
            bank = (bank & 0x3F80) + data2;
        if (receiver == nullptr)
            break;
        if (data1 == kAllNotesOff)
            receiver->noteOff(0, channel, 0.0f);
        else
            receiver->controlChange(data1, channel, data2 * kPerStep);
        break;
    case 0xC:
        if (receiver != nullptr)
            receiver->programChange(bank, data1);
        break;
    case 0xD:
        if (receiver != nullptr)
            receiver->channelPressure(channel, data1 * kPerStep);
        break;
    case 0xE:
        if (receiver != nullptr) {
            const int32_t raw = (data2 << 7) + data1;
            receiver->pitchBend(channel, raw, raw * kPitchBendPerStep - 0.5f);
        }
        break;
    default:
        break; // data bytes in status position carry no event
    }
}
