#include "PcmuTone.h"

#include <cmath>

namespace devsim {

uint8_t pcmuFromLinear(int16_t sample) {
    constexpr int kBias = 0x84;
    constexpr int kClip = 32635;
    int magnitude = sample;
    const int sign = magnitude < 0 ? 0x80 : 0;
    if (magnitude < 0) {
        magnitude = -magnitude;
    }
    if (magnitude > kClip) {
        magnitude = kClip;
    }
    magnitude += kBias;
    int exponent = 7;
    for (int mask = 0x4000; (magnitude & mask) == 0 && exponent > 0; mask >>= 1) {
        --exponent;
    }
    const int mantissa = (magnitude >> (exponent + 3)) & 0x0f;
    return static_cast<uint8_t>(~(sign | (exponent << 4) | mantissa));
}

std::vector<uint8_t> pcmuToneSecond(int hertz) {
    constexpr double kAmplitude = 8000.0;  // about -12 dBFS: audible, far from clipping
    const double step = 2.0 * M_PI * hertz / kPcmuSampleRate;
    std::vector<uint8_t> samples(kPcmuSampleRate);
    for (int i = 0; i < kPcmuSampleRate; ++i) {
        const long linear = std::lround(kAmplitude * std::sin(step * i));
        samples[static_cast<size_t>(i)] = pcmuFromLinear(static_cast<int16_t>(linear));
    }
    return samples;
}

}  // namespace devsim
