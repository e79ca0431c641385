// For loops that wait for another processor to change a word in the next moment.
#pragma once

namespace qx {

// Tells the processor that this turn of the loop was in vain.
inline void SpinPause() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__) || defined(__arm__)
    __asm__ __volatile__("yield");
#endif
}

}  // namespace qx
