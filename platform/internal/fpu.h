// Inside the platform: the raw control and status registers of the two
// floating-point units of x86-64, and the bit layouts that the CRT's abstract
// control word and the exception records are built from.
#pragma once

#include <cstdint>

#if !defined(__x86_64__)
#error "the floating-point and structured-exception layers are written for x86-64"
#endif

namespace orva::fpu {

// MXCSR: six status flags (invalid, denormal, zero divide, overflow,
// underflow, precision) in bits 0-5, denormals-are-zero in bit 6, the six
// masks in bits 7-12, rounding in bits 13-14, flush-to-zero in bit 15.
constexpr uint32_t kMxcsrFlags = 0x003F;
constexpr uint32_t kMxcsrDaz = 0x0040;
constexpr uint32_t kMxcsrMaskShift = 7;
constexpr uint32_t kMxcsrMasks = 0x003F << kMxcsrMaskShift;
constexpr uint32_t kMxcsrRoundShift = 13;
constexpr uint32_t kMxcsrRound = 0x3 << kMxcsrRoundShift;
constexpr uint32_t kMxcsrFtz = 0x8000;
constexpr uint32_t kMxcsrControl = 0xFFC0;
constexpr uint32_t kMxcsrDefault = 0x1F80;  // all masked, nearest, no flushing

// x87 control word: the six masks in bits 0-5 (same order), precision in
// bits 8-9 (0 = 24, 2 = 53, 3 = 64 bits), rounding in bits 10-11.
// x87 status word: the six flags in bits 0-5, stack fault in bit 6.
constexpr uint16_t kX87Masks = 0x003F;
constexpr uint16_t kX87PrecisionShift = 8;
constexpr uint16_t kX87Precision = 0x3 << kX87PrecisionShift;
constexpr uint16_t kX87RoundShift = 10;
constexpr uint16_t kX87Round = 0x3 << kX87RoundShift;
constexpr uint16_t kX87Flags = 0x003F;
constexpr uint16_t kX87StackFault = 0x0040;
constexpr uint16_t kX87Default = 0x037F;  // all masked, 64 bits, nearest

// The six exceptions, as bits 0-5 of either unit, in the order the processor
// ranks them when several are pending.
enum : uint32_t {
    kInvalid = 0x01,
    kDenormal = 0x02,
    kZeroDivide = 0x04,
    kOverflow = 0x08,
    kUnderflow = 0x10,
    kInexact = 0x20,
};

inline uint32_t ReadMxcsr() {
    uint32_t value;
    __asm__ volatile("stmxcsr %0" : "=m"(value));
    return value;
}

inline void WriteMxcsr(uint32_t value) { __asm__ volatile("ldmxcsr %0" : : "m"(value)); }

inline uint16_t ReadX87Control() {
    uint16_t value;
    __asm__ volatile("fnstcw %0" : "=m"(value));
    return value;
}

inline void WriteX87Control(uint16_t value) { __asm__ volatile("fldcw %0" : : "m"(value)); }

inline uint16_t ReadX87Status() {
    uint16_t value;
    __asm__ volatile("fnstsw %0" : "=m"(value));
    return value;
}

inline void ClearX87Status() { __asm__ volatile("fnclex"); }

}  // namespace orva::fpu
