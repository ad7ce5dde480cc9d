// The command line: a table of options, each with what it does to the record of options. Letters may be
// bundled (-io), a value may stand in the same word or in the next one, -- ends the options.
#include "options.h"

#include <charconv>
#include <string_view>

namespace {

constexpr const char *usage = R"(Usage: kgrep [OPTION]... PATTERN [FILE]...

Prints the lines of files, of all files in folders, or of the standard input (no FILE, or -) that match.

The pattern is
  -E, --regexp            a regular expression: ^ $ . [set] [^set] ( ) | * + ? \c   (this if nothing is said)
  -F, --literal           plain text
  -S, --shell             a shell pattern: * any run of characters, ? any one; it may match anywhere
  -i, --ignore-case       upper and lower case are the same
  -x, --line              the whole line must match
  -v, --invert            the lines that do not match
  -e, --pattern=PATTERN   for a pattern that begins with -

What is printed
  -o, --only-matching     only what matched, each match on a line
  -c, --count             for each file the number of lines
      --total             at the end the number of lines in all files
  -l, --files             only the names of files with such lines
  -L, --other-files       only the names of files without
  -q, --quiet             nothing
  -m, --max-count=NUMBER  at most so many lines of a file
  -h, --no-names          no file names
  -H, --names             file names, also for the standard input alone
  -N, --no-numbers        no line numbers
      --color=WHEN        marks matches: always, never, auto (on a terminal)
      --progress          tells on standard error how far the search is

Replacing
  -s, --substitute=TEXT   prints matching lines with every match replaced. For regular expressions TEXT is a
                          template: & is the match, \1 to \9 are its groups, \& and \\ the plain characters
      --first             only the first match of a line; also with -o
      --in-place          changes the files and prints nothing; a file is replaced as a whole or not at all

Which files of a folder
      --include=SHELL     only those whose names match the shell pattern; may be given several times
      --exclude=SHELL     none whose names match

Folders are searched with all that is below them; symbolic links in them are not followed.

      --help              prints this
      --version           prints the version

Exit code: 0 when a line was found, 1 when none was, 2 for an error, also when others were found.
)";

void SetColor(Options &options, std::string_view value) {
    if (value == "always")
        options.color = Color::always;
    else if (value == "never")
        options.color = Color::never;
    else if (value == "auto")
        options.color = Color::automatic;
    else
        options.mistake = "--color is always, never or auto";
}

void SetMaxCount(Options &options, std::string_view value) {
    const char *end = value.data() + value.size();
    auto [stop, error] = std::from_chars(value.data(), end, options.max_count);
    if (error != std::errc() || stop != end) options.mistake = "--max-count needs a number";
}

void SetPattern(Options &options, std::string_view value) {
    options.pattern = value;
    options.has_pattern = true;
}

struct Option {
    char letter;  // 0: none
    std::string_view name;
    bool has_value;
    void (*apply)(Options &options, std::string_view value);
};

// The mode and the case are two options of one enumeration, where a mode without case follows that with it.
void SetMode(Options &options, strMatchMode mode) {
    options.mode = static_cast<strMatchMode>(mode | (options.mode & 1));
}

using O = Options;
using Value = std::string_view;

constexpr Option table[] = {
    {'E', "regexp", false, [](O &o, Value) { SetMode(o, strRegExp); }},
    {'F', "literal", false, [](O &o, Value) { SetMode(o, strLit); }},
    {'S', "shell", false, [](O &o, Value) { SetMode(o, strShell); }},
    {'i', "ignore-case", false, [](O &o, Value) { o.mode = static_cast<strMatchMode>(o.mode | 1); }},
    {'x', "line", false, [](O &o, Value) { o.whole_line = true; }},
    {'v', "invert", false, [](O &o, Value) { o.invert = true; }},
    {'e', "pattern", true, SetPattern},
    {'o', "only-matching", false, [](O &o, Value) { o.show = Show::matches; }},
    {'c', "count", false, [](O &o, Value) { o.show = Show::counts; }},
    {0, "total", false, [](O &o, Value) { o.total = true; }},
    {'l', "files", false, [](O &o, Value) { o.show = Show::matching_files; }},
    {'L', "other-files", false, [](O &o, Value) { o.show = Show::other_files; }},
    {'q', "quiet", false, [](O &o, Value) { o.show = Show::nothing; }},
    {'m', "max-count", true, SetMaxCount},
    {'h', "no-names", false, [](O &o, Value) { o.names = false; }},
    {'H', "names", false, [](O &o, Value) { o.names = true; }},
    {'n', "numbers", false, [](O &o, Value) { o.numbers = true; }},
    {'N', "no-numbers", false, [](O &o, Value) { o.numbers = false; }},
    {'r', "recursive", false, [](O &, Value) {}},  // as always
    {0, "color", true, SetColor},
    {0, "progress", false, [](O &o, Value) { o.progress = true; }},
    {'s', "substitute", true, [](O &o, Value value) { o.replacement = value; }},
    {0, "first", false, [](O &o, Value) { o.first_only = true; }},
    {0, "in-place", false, [](O &o, Value) { o.in_place = true; }},
    {0, "include", true, [](O &o, Value value) { o.include.emplace_back(value); }},
    {0, "exclude", true, [](O &o, Value value) { o.exclude.emplace_back(value); }},
    {0, "help", false, [](O &o, Value) { o.told = usage; }},
    {0, "version", false, [](O &o, Value) { o.told = "kgrep " KELSTDMT_VERSION "\n"; }},
};

class Parser {
public:
    Parser(int count, char **arguments) : m_words(arguments + 1, arguments + count) {}

    Options Parse() {
        for (; m_next < m_words.size() && m_options.mistake.empty(); ++m_next) {
            std::string_view word = m_words[m_next];
            if (m_only_files || word == "-" || !word.starts_with('-'))
                m_options.files.emplace_back(word);
            else if (word == "--")
                m_only_files = true;
            else if (word.starts_with("--"))
                Long(word.substr(2));
            else
                Letters(word.substr(1));
        }
        Finish();
        return std::move(m_options);
    }

private:
    void Long(std::string_view word) {
        std::size_t equals = word.find('=');
        std::string_view name = word.substr(0, equals);
        for (const Option &option : table) {
            if (option.name != name) continue;
            if (!option.has_value && equals != word.npos)
                Mistake("--", name, " takes no value");
            else if (!option.has_value)
                option.apply(m_options, {});
            else if (equals != word.npos)
                option.apply(m_options, word.substr(equals + 1));
            else
                Next(option, "--", name);
            return;
        }
        Mistake("there is no option --", name);
    }

    void Letters(std::string_view letters) {
        for (; !letters.empty() && m_options.mistake.empty(); letters.remove_prefix(1)) {
            const Option *found = nullptr;
            for (const Option &option : table)
                if (option.letter == letters[0]) found = &option;
            std::string_view value = letters.substr(1);
            if (!found) return Mistake("there is no option -", letters.substr(0, 1));
            if (found->has_value)
                return value.empty() ? Next(*found, "-", letters) : found->apply(m_options, value);
            found->apply(m_options, {});
        }
    }

    void Next(const Option &option, std::string_view dashes, std::string_view name) {
        if (++m_next < m_words.size())
            option.apply(m_options, m_words[m_next]);
        else
            Mistake(dashes, name, " needs a value");
    }

    void Finish() {
        Options &o = m_options;
        if (o.told || !o.mistake.empty()) return;
        if (!o.has_pattern && o.files.empty()) return Mistake("there is no pattern");
        if (!o.has_pattern) {
            o.pattern = std::move(o.files.front());
            o.files.erase(o.files.begin());
        }
        if (o.replacement && o.invert) return Mistake("lines that do not match have nothing to replace");
        if (o.in_place && !o.replacement) return Mistake("--in-place needs --substitute");
        if (o.in_place && o.files.empty()) return Mistake("--in-place needs files");
        if (o.files.empty()) o.files.emplace_back("-");
    }

    template <class... Part>
    void Mistake(const Part &...parts) {
        m_options.mistake = (std::string() + ... + std::string(parts));
    }

    std::vector<std::string_view> m_words;
    std::size_t m_next = 0;
    bool m_only_files = false;
    Options m_options;
};

}  // namespace

Options ParseOptions(int count, char **arguments) {
    return Parser(count, arguments).Parse();
}
