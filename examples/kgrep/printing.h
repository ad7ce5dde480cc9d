// What kgrep prints: a visitor of lines that selects, counts and shows them.
#pragma once

#include <cstdint>
#include <string>

#include "options.h"
#include "searching.h"

// The standard output takes no more bytes.
struct OutputFailed {
    int error;  // errno
};

// The standard output with a buffer that is written when it is large, or when somebody may be waiting.
class Output {
public:
    std::string text;

    void WriteWhenLarge() {
        if (text.size() >= 1 << 16) Write();
    }
    void Write();  // throws an OutputFailed
};

class Printer : public LineVisitor {
public:
    Printer(const Options &options, Pattern &pattern, Output &output, bool names, bool color);

    void BeginFile(const std::string &name, bool stream);
    // Prints what stands at the end of a file; how many lines were selected.
    std::uint64_t EndFile();

    bool OtherLines(const char *begin, const char *end) override;
    bool MatchingLine(const Line &line) override;
    bool BlockBegins(const Blocks &block) override;
    void BlockEnds() override;

private:
    bool Select(const Line &line);
    bool Show(const Line &line);
    void ShowLine(const Line &line);
    void ShowMatches(const Line &line);
    void ShowReplaced(const Line &line);
    void CountLines(const char *to);
    void Prefix(const Line &line);
    void Colored(const char *color, std::string_view text);

    const Options &m_options;
    Pattern &m_pattern;
    Output &m_output;
    const bool m_names, m_color;

    std::string m_name;
    bool m_stream = false, m_binary = false, m_tell_binary = false;
    std::uint64_t m_selected = 0;
    std::uint64_t m_number = 1;  // of the line that begins at m_numbered
    const char *m_numbered = nullptr, *m_block_end = nullptr;
};

// The line with its matches replaced, all or the first.
void AppendReplaced(Pattern &pattern, const Options &options, const Line &line, std::string &out);
