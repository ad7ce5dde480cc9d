// The string library: finding, matching, splitting and replacing in texts, by six modes.
//
// Positions and lengths are characters of the current locale, from 0; a range from, to covers the characters
// from index `from` up to, not including, index `to`, clipped to the text. strUnsetPos as `from` is the
// beginning, as `to` the end; any other negative position is the beginning too. A byte that begins no valid
// character counts as one character, here as in every walk over a text, and no walk passes the terminator.
//
// A range is cut out first and then matched, so ^ and $ are its ends; positions that come back count from the
// beginning of the whole text. Modes that ignore case compare the upper-cased bytes of both
// (xstrbase::ToUpper).
//
// A text given as xstrNullStr (or a null pointer) gives a null result unless a function says otherwise; a
// replacement given so counts as empty; a pattern given so matches nothing, and is error 4 as an expression.
// strMatchAll always gives a sequence, maybe an empty one. An enum argument equal to the number of
// enumerators is the first one. A null segment is the whole text.
//
// Errors are reported through stHandleKnownError (regexp.h); with the report mode on a function goes on with
// what it has. A result that no memory can hold is std::bad_alloc. The functions keep no state that threads
// could share but that mode. doc/text.md has examples.
//
// Who owns results: strings are values. A new xstringsequence has count 0: put it in an xrchandle. A new
// strSegment or strSegments is the caller's to delete; strSegments::delallsegs deletes what a sequence holds.
#pragma once

#include <kelstdmt/declare.h>
#include <kelstdmt/dsarray.h>
#include <kelstdmt/export.h>
#include <kelstdmt/regexp.h>
#include <kelstdmt/strlib_exceptions.h>
#include <kelstdmt/xbasic.h>
#include <kelstdmt/xobject.h>
#include <kelstdmt/xstring.h>

// Literal text, shell pattern (* any run of characters, ? any one; there is no escape), regular expression;
// each also ignoring case.
enum strMatchMode : int { strLit, strLitIC, strShell, strShellIC, strRegExp, strRegExpIC };
KEL_DECLARE_ENUM(strMatchMode)

// Which part of the text, seen from the match.
enum strSplitMode : int {
    strBefore,
    strBeforeAndIncl,
    strAfter,
    strInclAndAfter,
    strMatchOnly,
    strExclMatch
};
KEL_DECLARE_ENUM(strSplitMode)

enum strScanDir : int { strForward, strBackward };
KEL_DECLARE_ENUM(strScanDir)

KEL_DECLARE_STRUCT(strSegment)
class KELSTDMT_API strSegment : public xobject {
    KEL_CLASS(strSegment, xobject)
public:
    strSegment() noexcept = default;
    strSegment(int from, int to) noexcept : m_from(from), m_to(to) {}

    virtual int getFrom() { return m_from; }
    virtual int setFrom(int from) { return m_from = from; }
    virtual int getTo() { return m_to; }
    virtual int setTo(int to) { return m_to = to; }

    // "Segment: From ", the number, " To ", the number and a line end, on the standard output.
    void Print();

private:
    int m_from = strUnsetPos;
    int m_to = strUnsetPos;
};

// Pointers in order; destroying the sequence does not delete the segments.
KEL_DECLARE(xrttisequence, strSegments)
class KELSTDMT_API strSegments : public xobject {
    KEL_CLASS(strSegments, xobject)
public:
    using value_type = strSegment *;

    strSegments();
    static strSegments *create() { return kel::construct<strSegments>(); }

    // An index that is not there is an internal error: null, a place that is forgotten, nothing set. A
    // segment may be null; it has unset positions.
    virtual strSegment *get(int index);
    virtual strSegment *&operator[](int index);
    virtual void set(int index, strSegment *segment);
    virtual int getarraysize();
    // Not provided: each reports an internal error.
    virtual void insert(int index, strSegment *segment);
    virtual void insertseq(int index, strSegments *other);
    virtual void removerange(int from, int to);

    void append(strSegment *segment);
    // Deletes each segment, which must be in here once, and empties the sequence.
    void delallsegs();
    // Error 2 for a segment whose end is before its beginning; error 3 for one that begins before the one
    // before it ends, or whose place among the others is unset. Segments may touch.
    void checkConsistency();
    // On the standard output: a line "Segments", then " Number ", the index, a blank and each segment's
    // Print.
    void Print();

private:
    strSegment **find(int index);  // reports what is not there, and answers null

    dsXArray<strSegment *> m_segments;
};

// Comparison and measurement ------------------------------------------------------------------------------

KELSTDMT_API int strLen(const char *text);
// -1, 0 or 1 as the comparison of strings (xstring.h). Ignoring case: what strcoll, the locale's collation,
// answers for both texts with every byte in lower case (xstrbase::ToLower), which may be any number. The null
// string is less than all else.
KELSTDMT_API int strCmp(const char *a, const char *b, unsigned char ignorecase = 0);
// Characters at the beginning, or the end, that are equal, and characters of both texts; 0 for no text.
// Ignoring case, of the upper-cased texts.
KELSTDMT_API int strCmnPfxLen(const char *a, const char *b, unsigned char ignorecase = 0);
KELSTDMT_API int strCmnSfxLen(const char *a, const char *b, unsigned char ignorecase = 0);
KELSTDMT_API xstring strLower(const char *text);
KELSTDMT_API xstring strUpper(const char *text);

// Pieces --------------------------------------------------------------------------------------------------

// The empty text for a range that covers nothing (also `to` below `from`), the null string for an empty text.
KELSTDMT_API xstring strSubstring(const char *text, int from, int to);
KELSTDMT_API xstring strSubstring(const char *text, strSegment *segment);
// Word n, from 0: a run of separators ends a word. Separators xstrNullStr: blank, tab, vertical tab,
// backspace. Other separators are whole characters; without any the text is one word. A text that begins or
// ends with separators has an empty word there. Beyond the last word, and for a negative n: the null string.
KELSTDMT_API xstring strWord(const char *text, int n, const char *separators = xstrNullStr);
// All words in one walk; none of a null text.
KELSTDMT_API xstringsequence *strExplode(const char *text, const char *separators = xstrNullStr);
// One behind the other; null strings count as empty. No texts at all: the null string.
KELSTDMT_API xstring strConcat(xstringsequence *texts);
// strSubstring for each segment, in order.
KELSTDMT_API xstringsequence *strAllSubstrings(const char *text, strSegments *segments);
// The first, or scanning backwards the last, character in the range whose bytes occur in `chars`; else
// strUnsetPos. The range lies between both positions, whichever is lower; backwards, `from` unset is the end
// and `to` unset the beginning.
KELSTDMT_API int strChar(const char *text, const char *chars, strScanDir direction, int from, int to,
                         unsigned char ignorecase = 0);
KELSTDMT_API int strChar(const char *text, const char *chars, strScanDir direction, strSegment *range,
                         unsigned char ignorecase = 0);

// Matching ------------------------------------------------------------------------------------------------

// The first match in the range: leftmost; a shell pattern then takes the shortest, an expression its first.
KELSTDMT_API bool strMatch(const char *text, const char *pattern, int &start, int &end, strMatchMode mode,
                           int from = strUnsetPos, int to = strUnsetPos);
KELSTDMT_API bool strMatch(const char *text, const char *pattern, int &start, int &end, strMatchMode mode,
                           strSegment *range);
// The same as a new segment; null without a match.
KELSTDMT_API strSegment *strMatch(const char *text, const char *pattern, strMatchMode mode,
                                  int from = strUnsetPos, int to = strUnsetPos);
KELSTDMT_API strSegment *strMatch(const char *text, const char *pattern, strMatchMode mode,
                                  strSegment *range);
// Successive matches, each sought from one character behind the end of the match before.
KELSTDMT_API strSegments *strMatchAll(const char *text, const char *pattern, strMatchMode mode,
                                      int from = strUnsetPos, int to = strUnsetPos);
KELSTDMT_API strSegments *strMatchAll(const char *text, const char *pattern, strMatchMode mode,
                                      strSegment *range);
// Whether the whole range matches.
KELSTDMT_API bool strExactMatch(const char *text, const char *pattern, strMatchMode mode,
                                int from = strUnsetPos, int to = strUnsetPos);
KELSTDMT_API bool strExactMatch(const char *text, const char *pattern, strMatchMode mode, strSegment *range);
// The workers of single modes, over whole texts and with case.
KELSTDMT_API bool strMatchLit(const char *text, const char *pattern, int &start, int &end);
KELSTDMT_API bool strMatchShell(const char *text, const char *pattern, int &start, int &end);
KELSTDMT_API bool strMatchRegExp(const char *text, const char *pattern, int &start, int &end);
KELSTDMT_API bool strExactMatchLitShell(const char *text, const char *pattern, strMatchMode mode);
KELSTDMT_API bool strExactMatchRegExp(const char *text, const char *pattern);

// Splitting and substitution ------------------------------------------------------------------------------

// Around the first match. The null string when the pattern does not match, or a piece is one of an empty
// text.
KELSTDMT_API xstring strSplit(const char *text, const char *pattern, strSplitMode split, strMatchMode mode);
// The characters before `from`, the replacement, the characters from `to` on: with `to` below `from` those
// between them are there twice. So also below.
KELSTDMT_API xstring strSubstitute(const char *text, int from, int to, const char *replacement);
KELSTDMT_API xstring strSubstitute(const char *text, strSegment *range, const char *replacement);
// The first match in the range; a copy of the text without one.
KELSTDMT_API xstring strSubstitute(const char *text, const char *pattern, const char *replacement,
                                   strMatchMode mode, int from = strUnsetPos, int to = strUnsetPos);
KELSTDMT_API xstring strSubstitute(const char *text, const char *pattern, const char *replacement,
                                   strMatchMode mode, strSegment *range);
// When the pattern matches in the range by the mode, every occurrence there of the pattern as plain text, by
// the next function with a count of 0.
KELSTDMT_API xstring strSubstituteAll(const char *text, const char *pattern, const char *replacement,
                                      strMatchMode mode, int from = strUnsetPos, int to = strUnsetPos);
KELSTDMT_API xstring strSubstituteAll(const char *text, const char *pattern, const char *replacement,
                                      strMatchMode mode, strSegment *range);
// At most `count` occurrences of plain text from left to right; at most 1,000,000 for 0 or less. The bytes
// decide, not the characters. The empty pattern occurs before every character and at the end.
KELSTDMT_API xstring strSubstitute(const char *text, const char *pattern, const char *replacement, int count);
// Every segment, from the last to the first, each in the text as the others have left it: the order and
// overlaps matter, positions beyond the end are the end. Sorted ones cost least, for a change costs what lies
// between it and the one before. The second form checks them first (error 1 for another number of
// replacements, checkConsistency), and then replaces as many as there are replacements for.
KELSTDMT_API xstring strSubstitute(const char *text, strSegments *segments, const char *replacement);
KELSTDMT_API xstring strSubstitute(const char *text, strSegments *segments, xstringsequence *replacements);

// Helpers for lines of settings: single bytes -------------------------------------------------------------

// Removes every c in place; whether there was one.
KELSTDMT_API bool StrPress(char *text, char c);
// A copy without blanks and tabs, to be freed with operator delete; null when the text has none.
KELSTDMT_API char *StrPress(const char *text);
// Removes blanks and tabs.
KELSTDMT_API void StrPress(xstring &text);
// Around the first separator, cut at its byte. A piece without characters is the null string. False, and
// nothing set, when the text is empty or lacks the separator; the text may be that of an output.
KELSTDMT_API bool StrSplit(const char *text, char separator, xstring &before, xstring &after);
KELSTDMT_API xstring StrSplitBefore(const char *text, char separator);
KELSTDMT_API xstring StrSplitAfter(const char *text, char separator);
