// All values of a monitor file together. Slots that lie near each other come with one large read, and all of
// it once more when a write under way is done, which shows the values that were caught half written; those,
// and texts that are longer than most, are then read one by one.
#include <algorithm>
#include <cstring>
#include <string>

#include <kelstdmt/monlib.h>

#include "monlibsrc/record.h"

using namespace kel::monitor;

namespace {

constexpr unsigned block_size = 32768;
constexpr long long short_text = 512;  // longer ones are read by themselves
constexpr long long widest_gap = 4096;

bool same(const char *bytes, const char *again, std::size_t count) {
    return std::memcmp(bytes, again, count) == 0;
}

}  // namespace

std::vector<xany> monFile::Values() {
    std::vector<xany> values;
    values.reserve(m_in_order.size());
    auto blocks = std::make_unique_for_overwrite<char[]>(2 * block_size);
    char *bytes = blocks.get(), *again = bytes + block_size;
    for (std::size_t first = 0, next = 0; first < m_in_order.size(); first = next) {
        const long long from = m_in_order[first]->m_slot;
        long long to = from;
        for (; next < m_in_order.size(); ++next) {
            const monParam &parameter = *m_in_order[next];
            long long end = parameter.m_slot + std::min(parameter.m_slot_size, short_text);
            if (parameter.m_slot < to || parameter.m_slot > to + widest_gap || end > from + block_size) break;
            to = end;
        }
        auto count = static_cast<unsigned>(to - from);
        long long got = m_stream->ReadAt(from, bytes, count);
        m_stream->AwaitWrite();
        got = std::min<long long>(got, m_stream->ReadAt(from, again, count));
        for (std::size_t i = first; i < next; ++i) {
            monParam &parameter = *m_in_order[i];
            const long long at = parameter.m_slot - from;
            values.push_back(parameter.FromBytes(bytes + at, again + at, got - at));
            if (values.back().isuninit()) values.back() = parameter.lookupfield("Value");
        }
    }
    return values;
}

xany monIntParam::FromBytes(const char *bytes, const char *again, long long count) const {
    return count >= 4 && same(bytes, again, 4) ? xany(get_int(bytes)) : xany();
}
xany monBoolParam::FromBytes(const char *bytes, const char *, long long count) const {
    return count >= 4 ? xany(static_cast<xbool>(bytes[3])) : xany();
}
xany monRealParam::FromBytes(const char *bytes, const char *again, long long count) const {
    return count >= 8 && same(bytes, again, 8) ? xany(get_real(bytes)) : xany();
}
xany monStringParam::FromBytes(const char *bytes, const char *again, long long count) const {
    int length = count >= 4 ? get_int(bytes) : -1;
    if (length < 0 || length > m_size || length + 4LL > count) return {};
    auto size = static_cast<std::size_t>(length);
    return same(bytes, again, 4 + size) ? xany(std::string(bytes + 4, size).c_str()) : xany();
}
