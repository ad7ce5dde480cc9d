#include "searching.h"

#include <cstring>
#include <string_view>

namespace {

std::size_t LineBegin(const char *text, std::size_t from, std::size_t at) {
    std::size_t end_before = std::string_view(text + from, at - from).rfind('\n');
    return end_before == std::string_view::npos ? from : from + end_before + 1;
}

bool VisitBlock(Blocks &block, Pattern &pattern, LineVisitor &visitor) {
    const char *text = block.begin();
    char *searched = block.searched();
    const auto size = static_cast<std::size_t>(block.end() - text);
    std::size_t told = 0;  // all before this
    for (std::size_t at = 0; at < size;) {
        const char *candidate = pattern.Candidate(searched + at, searched + size);
        if (!candidate) break;
        std::size_t begin = LineBegin(searched, at, static_cast<std::size_t>(candidate - searched));
        if (begin == size) break;  // behind the last line end
        const void *line_end = std::memchr(searched + begin, '\n', size - begin);
        std::size_t end =
            line_end ? static_cast<std::size_t>(static_cast<const char *>(line_end) - searched) : size;
        at = std::min(end + 1, size);
        EndedText ended(searched + end);
        Line line{text + begin, text + end, searched + begin, line_end != nullptr};
        if (!pattern.Matches(line)) continue;
        if (told < begin && !visitor.OtherLines(text + told, text + begin)) return false;
        told = at;
        if (!visitor.MatchingLine(line)) return false;
    }
    return told == size || visitor.OtherLines(text + told, text + size);
}

}  // namespace

void VisitLines(Input &input, Blocks &blocks, Pattern &pattern, LineVisitor &visitor) {
    blocks.Begin(input, pattern.Folding());
    bool going_on = true;
    while (going_on && blocks.Next()) {
        going_on = visitor.BlockBegins(blocks) && VisitBlock(blocks, pattern, visitor);
        visitor.BlockEnds();
    }
}
