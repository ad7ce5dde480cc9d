// The members of strings that are functions of the string library.
#include <kelstdmt/strlib.h>

xstring xstrbase::Word(int n, const char *separators) const {
    return strWord(Str(), n, separators);
}
xstring xstrbase::Substring(int from, int to) const {
    return strSubstring(Str(), from, to);
}
xstring xstrbase::Split(const char *pattern, strSplitMode split, strMatchMode mode) const {
    return strSplit(Str(), pattern, split, mode);
}
xstring xstrbase::Substitute(int from, int to, const char *replacement) const {
    return strSubstitute(Str(), from, to, replacement);
}
xstring xstrbase::Substitute(const char *pattern, const char *replacement, strMatchMode mode, int from,
                             int to) const {
    return strSubstitute(Str(), pattern, replacement, mode, from, to);
}
xstring xstrbase::SubstituteAll(const char *pattern, const char *replacement, strMatchMode mode, int from,
                                int to) const {
    return strSubstituteAll(Str(), pattern, replacement, mode, from, to);
}
int xstrbase::Schar(const char *chars, strScanDir direction, int from, int to,
                    unsigned char ignorecase) const {
    return strChar(Str(), chars, direction, from, to, ignorecase);
}
bool xstrbase::Match(const char *pattern, int &start, int &end, strMatchMode mode, int from, int to) const {
    return strMatch(Str(), pattern, start, end, mode, from, to);
}
bool xstrbase::ExactMatch(const char *pattern, strMatchMode mode, int from, int to) const {
    return strExactMatch(Str(), pattern, mode, from, to);
}
int xstrbase::Cmp(const char *other, unsigned char ignorecase) const {
    return strCmp(Str(), other, ignorecase);
}
int xstrbase::CmnPfxLen(const char *other, unsigned char ignorecase) const {
    return strCmnPfxLen(Str(), other, ignorecase);
}
int xstrbase::CmnSfxLen(const char *other, unsigned char ignorecase) const {
    return strCmnSfxLen(Str(), other, ignorecase);
}
