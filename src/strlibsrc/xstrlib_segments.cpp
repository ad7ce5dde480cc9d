// Segments: ranges of characters, and sequences of them.
#include <kelstdmt/strlib.h>

#include <iostream>

namespace {

constexpr const char *source = "strlibsrc/xstrlib";
constexpr dsXACtrl by_64{false, 64};

}  // namespace

void strSegment::Print() {
    std::cout << "Segment: From " << m_from << " To " << m_to << '\n';
}

strSegments::strSegments() : m_segments(&by_64) {}

strSegment *strSegments::get(int index) {
    return m_segments.GetDataPtr()[index];
}
strSegment *&strSegments::operator[](int index) {
    return m_segments.GetDataPtr()[index];
}
void strSegments::set(int index, strSegment *segment) {
    m_segments.GetDataPtr()[index] = segment;
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
    for (unsigned i = 0; i < m_segments.GetSize(); ++i) {
        strSegment &segment = *m_segments.GetDataPtr()[i];
        const int from = segment.getFrom(), to = segment.getTo();
        if (from != strUnsetPos && to != strUnsetPos && to < from) stHandleKnownError(stFromTo, function);
        if (i + 1 == m_segments.GetSize()) break;
        const int next = m_segments.GetDataPtr()[i + 1]->getFrom();
        if (to == strUnsetPos || next == strUnsetPos || next < to)
            stHandleKnownError(stIntersectSegm, function);
    }
}

void strSegments::Print() {
    std::cout << "Segments\n";
    for (unsigned i = 0; i < m_segments.GetSize(); ++i) {
        std::cout << " Number " << i << ' ';
        m_segments.GetDataPtr()[i]->Print();
    }
}
