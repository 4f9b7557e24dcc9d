// The libFuzzer program of the target FUZZ_TARGET.

#include <cstddef>
#include <cstdint>

#include "targets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  nebulark::FUZZ_TARGET({reinterpret_cast<const char*>(data), size});
  return 0;
}
