// The audio a simulated device streams: a sine tone as G.711 mu-law (RTP payload type 0).
#pragma once

#include <cstdint>
#include <vector>

namespace devsim {

constexpr int kPcmuSampleRate = 8000;

uint8_t pcmuFromLinear(int16_t sample);

// One second of the tone, so that it loops without a seam for any whole number of hertz.
std::vector<uint8_t> pcmuToneSecond(int hertz);

}  // namespace devsim
