// The admission check's reading of nginx's questions, from the bytes of one connection split
// into reads where the input says: the first byte is the length of every read.
#include <cstddef>
#include <cstdint>

#include "AdmissionRequestReader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const size_t step = data[0] == 0 ? size : data[0];
    const char* bytes = reinterpret_cast<const char*>(data + 1);
    size_t left = size - 1;
    gatewayd::AdmissionRequestReader reader;
    while (left > 0) {
        const size_t piece = left < step ? left : step;
        size_t consumed = 0;
        const auto state = reader.feed(bytes, piece, consumed);
        if (consumed > piece) {
            __builtin_trap();
        }
        bytes += consumed;
        left -= consumed;
        if (state == gatewayd::AdmissionRequestReader::State::refused) {
            break;
        }
        if (state == gatewayd::AdmissionRequestReader::State::complete) {
            reader.next();
        }
    }
    return 0;
}
