// Calls of the C interface that the input chooses: functions of all families with objects, keys and indexes
// that are right and wrong, against vectors and maps.
#include "c_families.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    // A key that is no text is reported, each time.
    static const btkAbortHandler before = btkSetAbortHandler([](const char *, const char *, int) {});
    static_cast<void>(before);
    c_families::drive(data, size);
    return 0;
}
