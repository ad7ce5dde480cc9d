// kel completion bash: a completion script, made from the tree of commands itself.
//
// The script is a table of the commands (their words, their arguments, what their options take) and one
// function that walks it. Keys of the registry are asked of the program when they are needed.
#include <iostream>
#include <string>

#include "command.h"

namespace tool {

namespace {

// What the function knows to complete: file, key, a list of words, or nothing.
std::string Kind(const std::string &argument) {
    if (argument.starts_with("FILE") || argument.starts_with("FROM")) return "file";
    return argument == "KEY" ? "key" : "none";
}

// The words of "TEXT:{new,expand,ignore}"; else the kind.
std::string OptionKind(const CLI::Option &option) {
    std::string type = option.get_type_name();
    std::size_t begin = type.find('{'), end = type.find('}');
    if (begin == std::string::npos || end == std::string::npos) return Kind(type);
    std::string words = type.substr(begin + 1, end - begin - 1);
    for (char &c : words)
        if (c == ',') c = ' ';
    return words;
}

// One row for each command, each command's options, and each option that takes something.
void WriteRows(const CLI::App &command, const std::string &names) {
    std::string words, arguments;
    for (const CLI::App *sub : command.get_subcommands([](const CLI::App *) { return true; }))
        words += sub->get_name() + ' ';
    for (const CLI::Option *option : command.get_options()) {
        if (option->get_positional()) {
            bool many = option->get_expected_max() > 1;
            arguments += Kind(option->get_name(true)) + (many ? "... " : " ");
            continue;
        }
        for (const std::string &name : option->get_lnames()) {
            words += "--" + name + ' ';
            if (option->get_type_size_max() > 0 && option->get_expected_max() > 0)
                std::cout << "        \"" << names << " --" << name << "\") echo \"" << OptionKind(*option)
                          << "\" ;;\n";
        }
        for (const std::string &name : option->get_snames())
            if (option->get_type_size_max() > 0 && option->get_expected_max() > 0)
                std::cout << "        \"" << names << " -" << name << "\") echo \"" << OptionKind(*option)
                          << "\" ;;\n";
    }
    std::cout << "        \"" << names << "\") echo \"" << words << "\" ;;\n"
              << "        \"" << names << " :\") echo \"" << arguments << "\" ;;\n";
    for (const CLI::App *sub : command.get_subcommands([](const CLI::App *) { return true; }))
        WriteRows(*sub, names + ' ' + sub->get_name());
}

constexpr const char *head = R"(# Completion of the program kel for bash, written by `kel completion bash`.

_kel_table() {
    case "$1" in
)";

constexpr const char *tail = R"bash(    esac
}

# The keys below the one that $cur names so far, written with slashes.
_kel_keys() {
    local parent='' name
    [[ $cur == */* ]] && parent=${cur%/*}
    compopt -o nospace -o filenames 2>/dev/null
    while IFS= read -r name; do
        [[ $name == *\\ ]] || continue
        name=${parent:+$parent/}${name%\\}/
        [[ $name == "$cur"* ]] && COMPREPLY+=("$name")
    done < <("$program" reg ls $layer -- "$parent" 2>/dev/null)
}

_kel_complete_as() {
    local name
    case "$1" in
        none | '') ;;
        key) _kel_keys ;;
        file)
            compopt -o filenames 2>/dev/null
            while IFS= read -r name; do COMPREPLY+=("$name"); done < <(compgen -f -- "$cur")
            ;;
        *) COMPREPLY=($(compgen -W "$1" -- "$cur")) ;;
    esac
}

_kel() {
    local program=${COMP_WORDS[0]} cur=${COMP_WORDS[COMP_CWORD]} command=kel layer='' taken='' word kind i
    local plain=0 only_arguments=''
    COMPREPLY=()
    for ((i = 1; i < COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        [[ $word == = ]] && continue
        if [[ $taken ]]; then
            taken=''
        elif [[ ! $only_arguments && $word == -- ]]; then
            only_arguments=yes
        elif [[ ! $only_arguments && $word == -* ]]; then
            [[ $word == --machine ]] && layer=--machine
            taken=$(_kel_table "$command $word")
        elif [[ ! $only_arguments && " $(_kel_table "$command") " == *" $word "* ]]; then
            command+=" $word"
        else
            plain=$((plain + 1))
        fi
    done
    if [[ $taken ]]; then
        _kel_complete_as "$taken"
    elif [[ ! $only_arguments && $cur == -* ]]; then
        _kel_complete_as "$(_kel_table "$command")"
    else
        i=0
        for kind in $(_kel_table "$command :"); do
            if ((i == plain)) || [[ $kind == *... ]]; then
                _kel_complete_as "${kind%...}"
                return
            fi
            i=$((i + 1))
        done
        ((plain)) || COMPREPLY=($(compgen -W "$(_kel_table "$command")" -X '-*' -- "$cur"))
    fi
    return 0
}

complete -F _kel kel
)bash";

struct Nothing {};

ExitCode WriteBash(const Nothing &) {
    std::cout << head;
    WriteRows(WholeProgram(), "kel");
    std::cout << tail;
    return done;
}

void AddCommands(CLI::App &group) {
    group.require_subcommand(1);
    group.footer("In ~/.bashrc:  source <(kel completion bash)");
    AddCommand(group, "bash", "Print the completion script for bash", WriteBash);
}

const Group group("completion", "Print a script that completes command lines in a shell", AddCommands);

}  // namespace

}  // namespace tool
