// The fixed-width text fields of host records, read and written by the library's field helpers
// at every width the records use. Each field is the last bytes of its allocation, so a read or
// write past the width is reported; what is read is the text up to the first NUL or the width,
// and what is written is the text cut to the limit, always terminated.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "frame/FieldText.h"

namespace {

template <size_t N>
struct Field {
    char text[N];
};

template <size_t N>
void exercise(const std::string& input, size_t limit) {
    auto* block = static_cast<Field<N>*>(std::malloc(N));
    if (block == nullptr) {
        std::abort();
    }
    std::memset(block->text, 'x', N);
    std::memcpy(block->text, input.data(), std::min(input.size(), N));
    const std::string read = ZQTELMIMgrBus::fieldText(block->text);
    if (read != std::string(block->text, strnlen(block->text, N))) {
        std::abort();
    }

    ZQTELMIMgrBus::copyField(block->text, input, limit);
    const std::string kept = input.substr(0, std::min({input.size(), limit, N - 1}));
    if (std::memchr(block->text, '\0', N) == nullptr || ZQTELMIMgrBus::fieldText(block->text) != kept.c_str()) {
        std::abort();  // not terminated, or not the text cut to the limit (up to its first NUL)
    }
    std::free(block);
}

}  // namespace

// Input: one byte giving the copy limit, then the text.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const size_t limit = data[0] == 0xff ? std::string::npos : data[0];
    const std::string input(reinterpret_cast<const char*>(data + 1), size - 1);
    exercise<18>(input, limit);    // lock key, password
    exercise<34>(input, limit);    // user name
    exercise<37>(input, limit);    // device and record indexes
    exercise<129>(input, limit);   // query keyword
    exercise<5121>(input, limit);  // Authorization header, challenge
    return 0;
}
