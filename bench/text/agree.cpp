#include "agree.h"

#include <map>

namespace bench {

const char *agree(const std::string &row, const Digest &found) {
    static std::map<std::string, std::uint64_t> known;
    return known.try_emplace(row, found.value()).first->second == found.value()
               ? nullptr
               : "finds other things than the library that ran first";
}

}  // namespace bench
