// Where every target's inputs come in.
#include "fuzz_target.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    veltrancord::fuzz::input_reader input({reinterpret_cast<const char*>(data), size});
    veltrancord::fuzz::try_input(input);
    return 0;
}
