// Which kernels this processor can run. They need no more than what is asked for here.
#include "bytestrings/decimal_kernels.h"

namespace kvf {

#if defined(__x86_64__)

namespace {

// Each processor that can run one of them can run those behind it.
constexpr DecimalKernel KERNELS[] = {{"vbmi2", printDecimalVbmi2, parseDecimalVbmi2},
                                     {"avx2", printDecimalAvx2, parseDecimalAvx2}};

// Reckoned without a branch, so that every processor takes the one way that there is, and each test
// of it says something about all of them.
unsigned hasAvx2() {
  return unsigned{__builtin_cpu_supports("avx2") != 0} &
         unsigned{__builtin_cpu_supports("popcnt") != 0};
}

unsigned hasVbmi2() {
  return hasAvx2() & unsigned{__builtin_cpu_supports("avx512f") != 0} &
         unsigned{__builtin_cpu_supports("avx512bw") != 0} &
         unsigned{__builtin_cpu_supports("avx512vl") != 0} &
         unsigned{__builtin_cpu_supports("avx512vbmi") != 0} &
         unsigned{__builtin_cpu_supports("avx512vbmi2") != 0};
}

// Each kernel, and in front of them what there is where none can run.
constexpr const DecimalKernel* FASTEST[] = {nullptr, &KERNELS[1], &KERNELS[0]};

}  // namespace

std::span<const DecimalKernel> usableKernels() {
  return std::span<const DecimalKernel>(KERNELS).last(hasAvx2() + hasVbmi2());
}

const DecimalKernel* fastestKernel() { return FASTEST[usableKernels().size()]; }

#else

std::span<const DecimalKernel> usableKernels() { return {}; }

const DecimalKernel* fastestKernel() { return nullptr; }

#endif

}  // namespace kvf
