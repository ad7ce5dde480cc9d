// Values in the machine's own form; see length_prefixed.h.
#include "length_prefixed.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
    static encoders::Binary encoder;
    fuzz_encoding(encoder, EncodedInput(bytes, size), false, 1);
    return 0;
}
