// regexp_driver LOCALE: the engine as a program for regexp_interop.py; compiles, searches and expands what it
// reads.
//
// Standard input holds patterns, texts and templates, three texts with a NUL behind each. For every three,
// standard output gets numbers with blanks between them: the error code of the pattern or 0; then, if there
// is a match, its start and end in characters and start and end of the groups 0 to 9 in bytes, -1 for a group
// that took no part. A tab, the expansion and a NUL follow.
#include <clocale>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <string>

#include <kelstdmt/regexp.h>
#include <kelstdmt/xstring.h>

static void search(const std::string &pattern, const std::string &text, const std::string &format) {
    std::cout << kel::check_pattern(pattern.c_str()).code;
    std::string expansion;
    regexp *program = regcomp(pattern.c_str());
    int start = 0, end = 0;
    if (program && regexec(program, text.c_str(), start, end)) {
        std::cout << ' ' << start << ' ' << end;
        for (int group = 0; group < 10; group++) {
            for (const char *at : {program->groupStart[group], program->groupEnd[group]})
                std::cout << ' ' << (at ? at - text.c_str() : -1);
        }
        expansion = kel::expand(*program, format.c_str());
    }
    std::cout << '\t' << expansion << '\0';
    std::free(program);
}

int main(int argc, char **argv) {
    if (argc != 2 || !std::setlocale(LC_ALL, argv[1])) return 1;
    setErrReport(true);
    std::ios::sync_with_stdio(false);
    std::string pattern, text, format;
    while (std::getline(std::cin, pattern, '\0') && std::getline(std::cin, text, '\0') &&
           std::getline(std::cin, format, '\0'))
        search(pattern, text, format);
}
