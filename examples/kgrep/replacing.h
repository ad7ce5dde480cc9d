// Replaces in a file. The new text is written to a file beside the old one, which then takes its place in one
// step: whoever opens the file finds the old text or the new one, whole. Nothing is written before a line
// matches.
#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "options.h"
#include "searching.h"

// A file was left as it was, and why.
struct NotReplaced {
    std::string reason;
};

// Throws a NotReplaced from any of its functions.
class Replacer : public LineVisitor {
public:
    // When the path is a link, the file at its end is meant. It keeps its permissions.
    Replacer(const Options &options, Pattern &pattern, const std::string &path);
    ~Replacer() override;

    // Puts the new text in place; how many lines were changed.
    std::uint64_t Finish();

    bool OtherLines(const char *begin, const char *end) override;
    bool MatchingLine(const Line &line) override;
    bool BlockBegins(const Blocks &block) override;
    void BlockEnds() override {}

private:
    struct Close {
        void operator()(std::FILE *file) const { std::fclose(file); }
    };
    using File = std::unique_ptr<std::FILE, Close>;

    void Start();
    void CreateBeside();
    void CopyBeginning();
    void Write(const char *bytes, std::size_t count);

    const Options &m_options;
    Pattern &m_pattern;
    std::filesystem::path m_path, m_new_path;
    File m_new;
    std::string m_line;
    bool m_binary = false;
    std::uint64_t m_bytes = 0;  // told so far
    std::uint64_t m_lines = 0;
};
