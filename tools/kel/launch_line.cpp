// Most words need no more than quotes. The launcher has two peculiarities, both of which are got round by
// letting the program env start the command, which takes all its arguments alike:
//
// What follows the -c of a command interpreter is one text from its first quote to the last one of the whole
// line, with nothing escaped in it; so no word behind it can be quoted. Which programs are interpreters the
// other machine decides, by its variable SHELL too. And a program that is named by a relative path is looked
// for in the launcher's own folder, where people mean the folder that the command runs in.
#include "launch_line.h"

#include <algorithm>
#include <string_view>

#include "failure.h"

namespace tool {

namespace {

// A program is a path, whose backslashes stand for themselves.
std::string QuotedProgram(const std::string &word) {
    return word.find_first_of(" \t") == word.npos ? word : '"' + word + '"';
}

bool IsPlain(std::string_view word) {
    return !word.empty() && word.find_first_of(" \t\"") == word.npos;
}

std::string Quoted(std::string_view word) {
    std::string quoted = "\"";
    std::size_t backslashes = 0;
    for (char c : word) {
        if (c == '"') quoted.append(backslashes + 1, '\\');
        backslashes = c == '\\' ? backslashes + 1 : 0;
        quoted += c;
    }
    return quoted.append(backslashes, '\\') + '"';
}

std::string Argument(const std::string &word) {
    return IsPlain(word) ? word : Quoted(word);
}

std::string NameOf(const std::string &program) {
    std::string name = program.substr(program.find_last_of("/\\:") + 1);
    std::transform(name.begin(), name.end(), name.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; });
    return name.ends_with(".exe") ? name.substr(0, name.size() - 4) : name;
}

bool IsInterpreter(const std::string &program) {
    static constexpr std::string_view known[] = {"sh",  "bash", "dash", "ash",  "ksh", "mksh",
                                                 "zsh", "csh",  "tcsh", "fish", "cmd"};
    return std::find(std::begin(known), std::end(known), NameOf(program)) != std::end(known);
}

// Where the text for an interpreter stands, if the program is one; 0: there is none.
std::size_t PlaceOfText(const std::vector<std::string> &words) {
    for (std::size_t i = 1; i + 1 < words.size(); ++i) {
        const std::string &option = words[i];
        if (option.size() < 2 || std::string_view("-+/").find(option[0]) == std::string_view::npos ||
            option == "--")
            return 0;
        const bool is_short = option[0] == '-' && option[1] != '-';
        if (option == "/c" || option == "/C" || (is_short && option.find('c') != option.npos)) return i + 1;
        const bool has_value =
            option[0] != '/' && option[1] != '-' && (option.ends_with('o') || option.ends_with('O'));
        if (has_value) ++i;
    }
    return 0;
}

std::string Joined(std::string line, const std::vector<std::string> &words, std::size_t text,
                   const std::string &quoted_text) {
    for (std::size_t i = 1; i < words.size(); ++i)
        line += ' ' + (text > 0 && i == text ? quoted_text : Argument(words[i]));
    return line;
}

}  // namespace

std::string LaunchLine(const std::vector<std::string> &words) {
    const std::string &program = words.front();
    if (program.empty()) throw Misuse("the command is empty");
    if (program.find('"') != program.npos) throw Misuse("a program's name cannot hold a quote: " + program);

    const std::size_t text = PlaceOfText(words);
    const std::string as_argument = text > 0 ? Quoted(words[text]) : "";
    std::string plain = Joined(QuotedProgram(program), words, text, as_argument);
    bool needs_help = program[0] != '/' && program[1] != ':' && program.find('/') != program.npos;
    if (text > 0 && !needs_help) {
        const bool nothing_quoted_follows =
            std::all_of(words.begin() + static_cast<std::ptrdiff_t>(text) + 1, words.end(), IsPlain);
        std::string for_interpreter = Joined(QuotedProgram(program), words, text, '"' + words[text] + '"');
        if (nothing_quoted_follows && IsInterpreter(program)) return for_interpreter;
        needs_help = !nothing_quoted_follows || for_interpreter != plain;
    }
    if (!needs_help) return plain;
    // These env would take for a variable, or an option of its own.
    if (program[0] != '-' && program.find('=') == program.npos)
        return Joined("env " + Argument(program), words, text, as_argument);
    if (text > 0) throw Misuse("not to be started with such arguments: " + program);
    return plain;
}

}  // namespace tool
