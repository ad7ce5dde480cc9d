// Values in network order; see length_prefixed.h.
#include "length_prefixed.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
    static encoders::XDR encoder;
    fuzz_encoding(encoder, EncodedInput(bytes, size), true, 4);
    return 0;
}
