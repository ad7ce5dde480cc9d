#include "printing.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

constexpr const char *name_color = "35", *number_color = "32", *separator_color = "36", *match_color = "1;31";

}  // namespace

void Output::Write() {
    errno = 0;
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0)
        throw OutputFailed{errno};
    text.clear();
}

Printer::Printer(const Options &options, Pattern &pattern, Output &output, bool names, bool color)
    : m_options(options), m_pattern(pattern), m_output(output), m_names(names), m_color(color) {}

void Printer::BeginFile(const std::string &name, bool stream) {
    m_name = name;
    m_stream = stream;
    m_binary = m_tell_binary = false;
    m_selected = 0;
    m_number = 1;
}

std::uint64_t Printer::EndFile() {
    std::string &out = m_output.text;
    if (m_options.show == (m_selected > 0 ? Show::matching_files : Show::other_files)) {
        Colored(name_color, m_name);
        out += '\n';
    } else if (m_options.show == Show::counts) {
        if (m_names) {
            Colored(name_color, m_name);
            Colored(separator_color, ":");
        }
        out += std::to_string(m_selected) + '\n';
    } else if (m_tell_binary) {
        out += "kgrep: " + m_name + ": binary file matches\n";
    }
    m_output.WriteWhenLarge();
    return m_selected;
}

bool Printer::BlockBegins(const Blocks &block) {
    m_binary = block.IsBinary();
    m_numbered = block.begin();
    m_block_end = block.end();
    return m_selected < m_options.max_count;
}

void Printer::BlockEnds() {
    CountLines(m_block_end);
    if (m_stream && !m_output.text.empty()) m_output.Write();
}

bool Printer::MatchingLine(const Line &line) {
    return m_options.invert || Select(line);
}

bool Printer::OtherLines(const char *begin, const char *end) {
    if (!m_options.invert) return true;
    while (begin < end) {
        const void *line_end = std::memchr(begin, '\n', static_cast<std::size_t>(end - begin));
        const char *stop = line_end ? static_cast<const char *>(line_end) : end;
        if (!Select({begin, stop, nullptr, line_end != nullptr})) return false;
        begin = stop + 1;
    }
    return true;
}

// Whether more lines are wanted.
bool Printer::Select(const Line &line) {
    ++m_selected;
    bool enough = false;
    switch (m_options.show) {
        case Show::lines:
        case Show::matches:
            enough = !Show(line);
            break;
        case Show::counts:
            break;
        default:
            enough = !m_options.total;
    }
    return !enough && m_selected < m_options.max_count;
}

bool Printer::Show(const Line &line) {
    if (m_binary) {
        m_tell_binary = true;
        return m_options.total;
    }
    if (m_options.show == Show::matches)
        ShowMatches(line);
    else if (m_options.replacement)
        ShowReplaced(line);
    else
        ShowLine(line);
    m_output.WriteWhenLarge();
    return true;
}

void Printer::CountLines(const char *to) {
    if (!m_options.numbers || (m_options.show != Show::lines && m_options.show != Show::matches)) return;
    while (const void *end = std::memchr(m_numbered, '\n', static_cast<std::size_t>(to - m_numbered))) {
        ++m_number;
        m_numbered = static_cast<const char *>(end) + 1;
    }
}

void Printer::Prefix(const Line &line) {
    if (m_names) {
        Colored(name_color, m_name);
        Colored(separator_color, ":");
    }
    if (m_options.numbers) {
        CountLines(line.begin);
        Colored(number_color, std::to_string(m_number));
        Colored(separator_color, ":");
    }
}

void Printer::ShowLine(const Line &line) {
    Prefix(line);
    const char *shown = line.begin;
    if (m_color && !m_options.invert)
        m_pattern.EachMatch(line, [&](Span match) {
            m_output.text.append(shown, line.begin + match.begin);
            Colored(match_color, line.text().substr(match.begin, match.end - match.begin));
            shown = line.begin + match.end;
            return true;
        });
    m_output.text.append(shown, line.end);
    m_output.text += '\n';
}

void Printer::ShowMatches(const Line &line) {
    if (m_options.invert) return;
    m_pattern.EachMatch(line, [&](Span match) {
        if (match.begin == match.end) return !m_options.first_only;
        Prefix(line);
        if (m_options.replacement)
            m_pattern.Expand(*m_options.replacement, line, m_output.text);
        else
            Colored(match_color, line.text().substr(match.begin, match.end - match.begin));
        m_output.text += '\n';
        m_output.WriteWhenLarge();
        return !m_options.first_only;
    });
}

void Printer::ShowReplaced(const Line &line) {
    Prefix(line);
    AppendReplaced(m_pattern, m_options, line, m_output.text);
    m_output.text += '\n';
}

void Printer::Colored(const char *color, std::string_view text) {
    std::string &out = m_output.text;
    if (!m_color || text.empty()) {
        out += text;
        return;
    }
    out.append("\033[").append(color).append("m").append(text).append("\033[m");
}

void AppendReplaced(Pattern &pattern, const Options &options, const Line &line, std::string &out) {
    const char *copied = line.begin;
    pattern.EachMatch(line, [&](Span match) {
        out.append(copied, line.begin + match.begin);
        pattern.Expand(*options.replacement, line, out);
        copied = line.begin + match.end;
        return !options.first_only;
    });
    out.append(copied, line.end);
}
