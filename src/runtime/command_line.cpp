// Splitting a command line in one pass over its text. What is meant for a command interpreter is a text in a
// text: its quotes belong to the inner one, so there only the first and the last quote count.
#include "runtime/command_line.h"

#include <algorithm>
#include <string_view>

namespace kel::detail {

namespace {

constexpr std::string_view blanks = " \t";
constexpr std::string_view interpreters[] = {"sh",  "bash", "dash", "ash",  "ksh", "mksh",
                                             "zsh", "csh",  "tcsh", "fish", "cmd"};

class splitter {
public:
    splitter(std::string_view text, std::string &words) : m_left(text), m_words(words) {}

    bool skip_blanks() {
        m_left.remove_prefix(std::min(m_left.find_first_not_of(blanks), m_left.size()));
        return !m_left.empty();
    }
    // A path: backslashes separate its folders.
    void take_program() {
        for (bool quoted = false; !at_end(quoted);) {
            if (m_left[0] == '"')
                quoted = !quoted;
            else
                m_words += m_left[0];
            m_left.remove_prefix(1);
        }
    }
    void take_argument() {
        for (bool quoted = false; !at_end(quoted);) {
            const std::size_t slashes = std::min(m_left.find_first_not_of('\\'), m_left.size());
            const bool escapes = slashes < m_left.size() && m_left[slashes] == '"';
            m_words.append(escapes ? slashes / 2 : slashes, '\\');
            m_left.remove_prefix(slashes);
            if (m_left.empty() || (slashes > 0 && !escapes)) continue;
            const bool doubled = quoted && m_left.starts_with("\"\"");
            if (m_left[0] != '"' || slashes % 2 == 1) {
                m_words += m_left[0];
            } else if (doubled) {
                m_words += '"';
                m_left.remove_prefix(1);
            } else {
                quoted = !quoted;
            }
            m_left.remove_prefix(1);
        }
    }
    // All that is left, or what stands between its quotes. What follows the last one may be arguments.
    void take_inner_text() {
        if (m_left[0] != '"') {
            m_words += m_left;
            m_left = {};
            return;
        }
        const std::size_t quote = m_left.rfind('"'), last = quote > 0 ? quote : m_left.size();
        m_words += m_left.substr(1, last - 1);
        m_left.remove_prefix(std::min(last + 1, m_left.size()));
        take_argument();
    }

private:
    bool at_end(bool quoted) const {
        return m_left.empty() || (!quoted && blanks.find(m_left[0]) != blanks.npos);
    }

    std::string_view m_left;
    std::string &m_words;
};

std::string_view name_of(std::string_view program) {
    return program.substr(program.find_last_of("/\\:") + 1);
}

bool is_interpreter(std::string_view program, const char *user_shell) {
    std::string name(name_of(program));
    if (user_shell && !name.empty() && name == name_of(user_shell)) return true;
    std::transform(name.begin(), name.end(), name.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; });
    if (name.ends_with(".exe")) name.resize(name.size() - 4);
    return std::find(std::begin(interpreters), std::end(interpreters), name) != std::end(interpreters);
}

// A slash begins a switch of one letter, such as /c and /t:0a, or else the path of a script.
bool is_option(std::string_view word) {
    if (word.starts_with('/')) return word.size() == 2 || (word.size() > 2 && word[2] == ':');
    return word.size() > 1 && (word[0] == '-' || word[0] == '+') && word != "--";
}
// -c, also among other letters (-lc), /c and /C.
bool announces_inner_text(std::string_view option) {
    if (option == "/c" || option == "/C") return true;
    return option.starts_with('-') && !option.starts_with("--") && option.find('c') != option.npos;
}
// Such as "-o pipefail" and "+O extglob".
bool has_value(std::string_view option) {
    if (option == "--rcfile" || option == "--init-file") return true;
    return option[0] != '/' && option[1] != '-' && (option.ends_with('o') || option.ends_with('O'));
}

}  // namespace

command_line::command_line(const char *text, const char *user_shell) {
    std::vector<std::size_t> begins;
    splitter split(text, m_words);
    // Behind an interpreter, options are looked through for the one that a text follows.
    enum { program, option, value, inner_text, argument } expected = program;
    while (split.skip_blanks()) {
        begins.push_back(m_words.size());
        if (expected == program)
            split.take_program();
        else if (expected == inner_text)
            split.take_inner_text();
        else
            split.take_argument();
        const std::string_view word = std::string_view(m_words).substr(begins.back());
        if (expected == program)
            expected = is_interpreter(word, user_shell) ? option : argument;
        else if (expected == value)
            expected = option;
        else if (expected != option || !is_option(word))
            expected = argument;
        else
            expected = announces_inner_text(word) ? inner_text : has_value(word) ? value : option;
        m_words += '\0';
    }
    m_arguments.reserve(begins.size() + 1);
    for (std::size_t begin : begins)
        m_arguments.push_back(m_words.data() + begin);
    m_arguments.push_back(nullptr);
}

}  // namespace kel::detail
