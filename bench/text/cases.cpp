#include "cases.h"

namespace bench {

Section expressions_section() {
    const auto light = Cost::Light, heavy = Cost::Heavy;
    const std::vector<std::string> line = {"a line"};
    return {"Regular expressions",
            {Library::Ours, Library::Re2, Library::Pcre, Library::PcreJit, Library::Std, Library::Glib,
             Library::Qt, Library::Libc},
            {
                {"compile/simple", "compile error: [0-9]+", light},
                {"compile/medium", "compile an address with 4 groups", light},
                {"compile/large", "compile 150 words and a mail address", light},
                {"end/ascii/literal", "end of 10 MB: a literal", heavy},
                {"end/ascii/class", "end of 10 MB: [0-9]+", heavy},
                {"end/ascii/word", "end of 10 MB: [a-z]+[0-9]", heavy},
                {"end/ascii/alternation", "end of 10 MB: 1 of 3 words", heavy},
                {"end/ascii/required", "end of 10 MB: [a-z]+@[a-z]+", heavy},
                {"end/ascii/case", "end of 10 MB: a literal, any case", heavy},
                {"end/utf8/literal", "end of 10 MB of UTF-8: a literal", heavy},
                {"end/utf8/class", "end of 10 MB of UTF-8: [0-9]+", heavy},
                {"end/utf8/word", "end of 10 MB of UTF-8: [a-z]+[0-9]", heavy},
                {"end/utf8/alternation", "end of 10 MB of UTF-8: 1 of 3 words", heavy},
                {"end/utf8/required", "end of 10 MB of UTF-8: [a-z]+@[a-z]+", heavy},
                {"end/utf8/case", "end of 10 MB of UTF-8: a literal, any case", heavy},
                {"explode/choice", "(a|a)*b behind 25 a", heavy},
                {"explode/choice-long", "(a|a)*b behind 1,000,000 a", heavy},
                {"explode/nested", "(x+x+)+y behind 25 x", heavy},
                {"explode/nested-long", "(x+x+)+y behind 1,000,000 x", heavy},
                {"explode/loop", "(a|b)* on 50 MB", heavy},
                {"lines/words", "1,000,000 lines of a log: 1 of 3 words", heavy, false, line},
                {"lines/class", "1,000,000 lines of a log: took [0-9]+ ms", heavy, false, line},
                {"lines/groups", "1,000,000 lines of a log: 5 groups", heavy, false, line},
                {"lines/template", "100,000 lines of a log: 5 groups, a template", heavy, false, line},
                {"lines/given", "100,000 lines, the pattern given each time", heavy, false, line},
                {"all/expression", "all matches of [a-z]+ing in 10 MB", heavy},
            }};
}

Section shell_section() {
    const auto heavy = Cost::Heavy;
    const std::vector<std::string> name = {"a name"};
    return {"Shell patterns",
            {Library::Ours, Library::Re2, Library::Pcre, Library::PcreJit, Library::Glib, Library::Qt,
             Library::Libc},
            {
                {"shell/suffix", "100,000 names: *.txt", heavy, false, name},
                {"shell/middle", "100,000 names: lib*-?*.so*", heavy, false, name},
                {"shell/stars", "100,000 names: *a*e*o*", heavy, false, name},
                {"shell/case", "100,000 names: *.TXT, any case", heavy, false, name},
                {"shell/search", "100,000 names: find re*o?t", heavy, false, name},
                {"shell/explode", "*a*a*a*a*a*a*a*a*b on 60 a", heavy},
            }};
}

Section texts_section() {
    const auto heavy = Cost::Heavy;
    const std::vector<std::string> name = {"a name"}, line = {"a line"};
    return {"Texts",
            {Library::Ours, Library::Std, Library::Glib, Library::Qt, Library::Libc},
            {
                {"find/ascii", "a literal at the end of 10 MB", heavy},
                {"find/utf8", "a literal at the end of 10 MB of UTF-8", heavy},
                {"find/names", "a literal in 100,000 names", heavy, false, name},
                {"same/case", "the same in any case, 100,000 names", heavy, false, name},
                {"split/words", "split 10 MB into words", heavy},
                {"split/utf8", "split 10 MB of UTF-8 into words", heavy},
                {"split/nth", "word 5 of 1,000,000 lines", heavy, false, line},
                {"split/last", "the last word of 10 MB by its number", heavy},
                {"all/literal", "all places of a literal in 10 MB", heavy},
                {"replace/ascii", "replace a word in 10 MB", heavy},
                {"replace/utf8", "replace a word in 10 MB of UTF-8", heavy},
                {"replace/all", "replace a word in 10 MB by a mode", heavy},
                {"replace/segments", "replace 10,000 segments of 10 MB", heavy},
                {"cut/utf8", "cut out the middle third of 10 MB of UTF-8", heavy},
                {"length/ascii", "characters of 10 MB", heavy},
                {"length/utf8", "characters of 10 MB of UTF-8", heavy},
                {"upper/ascii", "upper case of 10 MB", heavy},
            }};
}

}  // namespace bench
