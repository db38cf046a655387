// A record whose last field ends exactly where its heap block ends, so that AddressSanitizer
// reports the first byte read or written past that field (the struct's own tail padding would
// otherwise hide it).
#pragma once

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace zqfuzz {

template <class Record>
class GuardedRecord {
public:
    // lastFieldEnd: offsetof(Record, lastField) + sizeof(lastField).
    explicit GuardedRecord(std::size_t lastFieldEnd) : block_(static_cast<Record*>(std::calloc(1, lastFieldEnd))) {
        if (!block_) {
            std::abort();
        }
    }
    Record& operator*() const { return *block_; }
    Record* operator->() const { return block_.get(); }

private:
    struct Free {
        void operator()(Record* record) const { std::free(record); }
    };
    std::unique_ptr<Record, Free> block_;
};

// Fills field with text; a text as long as the field leaves it without a NUL, as a host may.
template <std::size_t N>
void fillField(char (&field)[N], const char* text, std::size_t length) {
    std::memset(field, 0, N);
    std::memcpy(field, text, length < N ? length : N);
}

}  // namespace zqfuzz
