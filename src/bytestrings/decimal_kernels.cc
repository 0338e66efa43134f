// Which kernels this processor can run. They need no more than what is asked for here.
#include "bytestrings/decimal_kernels.h"

namespace kvf {

#if defined(__x86_64__)

namespace {

// Each processor that can run one of them can run those behind it.
constexpr DecimalKernel KERNELS[] = {{"vbmi2", printDecimalVbmi2, parseDecimalVbmi2},
                                     {"avx2", printDecimalAvx2, parseDecimalAvx2}};

bool hasAvx2() { return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("popcnt"); }

bool hasVbmi2() {
  return hasAvx2() && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
         __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vbmi") &&
         __builtin_cpu_supports("avx512vbmi2");
}

}  // namespace

std::span<const DecimalKernel> usableKernels() {
  const std::span<const DecimalKernel> all = KERNELS;
  if (hasVbmi2()) return all;
  return all.last(hasAvx2() ? 1 : 0);
}

#else

std::span<const DecimalKernel> usableKernels() { return {}; }

#endif

}  // namespace kvf
