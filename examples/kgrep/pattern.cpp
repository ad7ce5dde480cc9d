#include "pattern.h"

#include <cctype>
#include <cstring>

namespace {

// The literal texts that a match cannot do without are nodes on the way from the first node to the last one.
// A branch that has no other beside it is a part of that way. The longest one is good for finding lines.
const char *NodeBehind(const char *node) {
    int distance = static_cast<unsigned char>(node[1]) * 256 + static_cast<unsigned char>(node[2]);
    return distance > 0 && *node != REOP_BACK ? node + distance : nullptr;
}

constexpr int operand = 3;  // bytes behind the beginning of a node

std::string RequiredText(const regexp &program) {
    std::string best;
    for (const char *node = program.program + 1, *behind; node; node = behind) {
        behind = NodeBehind(node);
        if (*node == REOP_BRANCH && behind && *behind != REOP_BRANCH)
            behind = node + operand;
        else if (*node == REOP_BRANCH)
            while (behind && *behind == REOP_BRANCH)
                behind = NodeBehind(behind);
        else if (*node == REOP_EXACTLY && std::strlen(node + operand) > best.size())
            best = node + operand;
    }
    return best;
}

// A pattern that is the same for a line, where `.` and sets with ^ do not take a line end.
std::string KeptInLine(const char *pattern) {
    std::string result;
    for (xmbchar at(pattern); *at.position;) {
        const char *begin = at.position;
        at.Next();
        if (*begin == '.') {
            result += "[^\n]";
            continue;
        }
        const bool set = *begin == '[', inverted = set && *at.position == '^';
        if (inverted || (*begin == '\\' && *at.position)) at.Next();
        if (set && (*at.position == ']' || *at.position == '-')) at.Next();
        while (set && *at.position && *at.position != ']')
            at.Next();
        result.append(begin, static_cast<const char *>(at.position));
        // Before a - at the end, which is plain there. The closing bracket comes next.
        if (inverted) result.insert(result.size() - (result.back() == '-'), 1, '\n');
    }
    return result;
}

// Whether a match in many lines is the match in one of them: nothing takes a line end or asks where a line
// ends.
bool StaysInLine(const regexp &program) {
    const char *node = program.program + 1, *end = program.program + program.programSize;
    while (node < end) {
        switch (*node) {
            case REOP_BOL:
            case REOP_EOL:
            case REOP_ANY:
                return false;
            case REOP_ANYOF:
            case REOP_ANYBUT:
            case REOP_EXACTLY:
                if ((*node == REOP_ANYBUT) != (std::strchr(node + operand, '\n') != nullptr)) return false;
                node += std::strlen(node + operand) + 1;
        }
        node += operand;
    }
    return true;
}

// Of a shell pattern.
std::string LongestPlainRun(std::string_view pattern) {
    std::string_view best;
    while (!pattern.empty()) {
        std::size_t length = std::min(pattern.find_first_of("*?"), pattern.size());
        if (length > best.size()) best = pattern.substr(0, length);
        pattern.remove_prefix(std::min(length + 1, pattern.size()));
    }
    return std::string(best);
}

}  // namespace

Pattern::Pattern(const std::string &pattern, strMatchMode mode, bool whole_line)
    : m_mode(mode), m_whole_line(whole_line), m_pattern(pattern.c_str()) {
    // As xstrbase::ToUpper.
    for (int byte = 0; byte < 256; ++byte)
        m_folding[byte] = static_cast<char>(std::toupper(byte));
    if (mode & 1) m_pattern = m_pattern.ToUpper();
    switch (mode & ~1) {
        case strLit:
            m_required = m_pattern.Str();
            break;
        case strShell:
            m_required = LongestPlainRun(kel::view(m_pattern));
            break;
        default:
            const kel::pattern_error error = kel::check_pattern(m_pattern);
            if (error.code != stSuccess) throw BadPattern{pattern, error.message, error.position};
            m_program.reset(regcomp(KeptInLine(m_pattern).c_str()));
            if (!m_program) m_program.reset(regcomp(m_pattern));
            if (!m_program) throw BadPattern{pattern, getErrSeen(), 0};
            m_required = RequiredText(*m_program);
            m_stays_in_line = StaysInLine(*m_program);
    }
}

const char *Pattern::Candidate(const char *at, const char *end) {
    if (!m_required.empty()) return std::strstr(at, m_required.c_str());
    if (!m_stays_in_line) return at;
    return kel::search(*m_program, {at, end}) ? m_program->groupStart[0] : nullptr;
}

std::optional<Span> Pattern::First(const Line &line) {
    return m_whole_line ? Whole(line) : Search(line, 0);
}

std::optional<Span> Pattern::Next(const Line &line, const Span &last) {
    if (m_whole_line) return std::nullopt;
    std::size_t from = last.end;
    if (last.begin == last.end) {
        if (from == line.size()) return std::nullopt;
        xmbchar at(line.searched + from);
        at.Next();
        from = static_cast<std::size_t>(at.position - line.searched);
    }
    return Search(line, from);
}

std::optional<Span> Pattern::Whole(const Line &line) {
    const Span all{0, line.size()};
    if (!m_program) {
        auto mode = static_cast<strMatchMode>(m_mode & ~1);
        return strExactMatchLitShell(line.searched, m_pattern, mode) ? std::optional(all) : std::nullopt;
    }
    // What strExactMatchRegExp does, with a pattern that is compiled already.
    std::optional<Span> match = Search(line, 0);
    return match && match->begin == 0 && match->end == all.end ? match : std::nullopt;
}

std::optional<Span> Pattern::Search(const Line &line, std::size_t from) {
    switch (m_mode & ~1) {
        case strLit: {  // as strMatchLit, with the place in bytes
            const char *found = std::strstr(line.searched + from, m_required.c_str());
            if (!found) return std::nullopt;
            const auto begin = static_cast<std::size_t>(found - line.searched);
            return Span{begin, begin + m_required.size()};
        }
        case strShell:
            return SearchShell(line, from);
        default:
            return SearchProgram(line, from);
    }
}

std::optional<Span> Pattern::SearchProgram(const Line &line, std::size_t from) {
    const std::string_view text(line.searched, line.size());
    if (!kel::search(*m_program, text, from)) return std::nullopt;
    return Span{static_cast<std::size_t>(m_program->groupStart[0] - line.searched),
                static_cast<std::size_t>(m_program->groupEnd[0] - line.searched)};
}

std::optional<Span> Pattern::SearchShell(const Line &line, std::size_t from) {
    char *text = line.searched + from;
    // The first match of a part of the line is that of the line. So a line of many matches is not gone over
    // for each of them.
    for (unsigned characters = 256;; characters *= 4) {
        char *part_end = const_cast<char *>(stringAfterCHars(text, characters));
        const bool is_all = *part_end == 0;
        EndedText part(part_end);
        int start = 0, end = 0;
        if (strMatchShell(text, m_pattern, start, end)) {
            const char *begin = stringAfterCHars(text, static_cast<unsigned>(start));
            const char *behind = stringAfterCHars(begin, static_cast<unsigned>(end - start));
            return Span{static_cast<std::size_t>(begin - line.searched),
                        static_cast<std::size_t>(behind - line.searched)};
        }
        if (is_all) return std::nullopt;
    }
}

void Pattern::Expand(const std::string &replacement, const Line &line, std::string &out) {
    if (!m_program) {
        out += replacement;
        return;
    }
    // The groups of the text itself are wanted, not those of the upper-cased one.
    for (int group = 0; group < 10; ++group) {
        const char *&begin = m_program->groupStart[group], *&end = m_program->groupEnd[group];
        if (begin) begin = line.begin + (begin - line.searched);
        if (end) end = line.begin + (end - line.searched);
    }
    out += kel::view(kel::expand(*m_program, replacement.c_str()));
}
