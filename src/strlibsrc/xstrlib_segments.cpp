// Segments: ranges of characters, and sequences of them.
#include <kelstdmt/strlib.h>

#include <iostream>

#include "strlibsrc/xstrlib_text.h"

namespace {

constexpr const char *source = "strlibsrc/xstrlib";
constexpr dsXACtrl by_64{false, 64};

void print_segment(strSegment *segment) {
    strSegment unset;
    (segment ? segment : &unset)->Print();
}

}  // namespace

void strSegment::Print() {
    std::cout << "Segment: From " << getFrom() << " To " << getTo() << '\n';
}

strSegments::strSegments() : m_segments(&by_64) {}

strSegment **strSegments::find(int index) {
    if (index >= 0 && index < static_cast<int>(m_segments.GetSize())) return m_segments.GetDataPtr() + index;
    _Abort("strSegments: there is no segment of this index.", source, __LINE__);
    return nullptr;
}

strSegment *strSegments::get(int index) {
    strSegment **found = find(index);
    return found ? *found : nullptr;
}
strSegment *&strSegments::operator[](int index) {
    strSegment **found = find(index);
    return found ? *found : kel::detail::fallback_value<strSegment *>();
}
void strSegments::set(int index, strSegment *segment) {
    if (strSegment **found = find(index)) *found = segment;
}
int strSegments::getarraysize() {
    return static_cast<int>(m_segments.GetSize());
}
void strSegments::insert(int, strSegment *) {
    _Abort("strSegments::insert is not provided.", source, __LINE__);
}
void strSegments::insertseq(int, strSegments *) {
    _Abort("strSegments::insertseq is not provided.", source, __LINE__);
}
void strSegments::removerange(int, int) {
    _Abort("strSegments::removerange is not provided.", source, __LINE__);
}

void strSegments::append(strSegment *segment) {
    m_segments.Append(segment);
}
void strSegments::delallsegs() {
    for (strSegment *segment : m_segments)
        delete segment;
    m_segments.Resize(0);
}

void strSegments::checkConsistency() {
    constexpr const char *function = "strSegments::checkConsistency";
    const unsigned count = m_segments.GetSize();
    for (unsigned i = 0; i < count; ++i) {
        const int from = kel::detail::from_of(m_segments.GetDataPtr()[i]);
        const int to = kel::detail::to_of(m_segments.GetDataPtr()[i]);
        if (from != strUnsetPos && to != strUnsetPos && to < from) stHandleKnownError(stFromTo, function);
        if (i + 1 == count) break;
        const int next = kel::detail::from_of(m_segments.GetDataPtr()[i + 1]);
        if (to == strUnsetPos || next == strUnsetPos || next < to)
            stHandleKnownError(stIntersectSegm, function);
    }
}

void strSegments::Print() {
    std::cout << "Segments" << '\n';
    for (unsigned i = 0; i < m_segments.GetSize(); ++i) {
        std::cout << " Number " << i << ' ';
        print_segment(m_segments.GetDataPtr()[i]);
    }
}
