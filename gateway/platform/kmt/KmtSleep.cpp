#include <chrono>
#include <thread>

#include "kmt.h"

void KMT_Sleep(int ms) {
    if (ms > 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(ms));
    }
}
