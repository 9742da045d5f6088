// Where every target's inputs come in.
#include "fuzz_target.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    veltrancord::fuzz::try_input(
        veltrancord::fuzz::input_reader({reinterpret_cast<const char*>(data), size}));
    return 0;
}
