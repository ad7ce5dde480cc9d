// What the string library declares: segments, types and their descriptors, errors, and members of strings.
#include <iostream>
#include <sstream>
#include <tuple>

#include "services/observing.h"
#include "strlibsrc/text_model.h"

using namespace text_model;

namespace {

TEST(Segments, WhatIsNotThereIsReported) {
    internal_errors errors;
    strSegments list;
    strSegment segment(1, 2);
    list.append(&segment);
    EXPECT_TRUE(!list.get(1) && !list[-1]);
    list.set(64, &segment);
    list.insert(0, &segment);
    list.insertseq(0, &list);
    list.removerange(0, 1);
    const std::string reports = errors.take();
    EXPECT_EQ(std::ranges::count(reports, ';'), 5) << reports;
    EXPECT_TRUE(list.getarraysize() == 1 && list.get(0) == &segment);
    list.append(nullptr);
    testing::internal::CaptureStdout();
    list.Print();
    std::cout.flush();
    EXPECT_EQ(
        testing::internal::GetCapturedStdout(),
        "Segments\n Number 0 Segment: From 1 To 2\n Number 1 Segment: From -2147483648 To -2147483648\n");
}

TEST(Segments, ConsistencyIsChecked) {
    constexpr int unset = strUnsetPos;
    const std::string order = "From is greater than To", overlap = "Overlapping segments are found";
    const std::pair<std::vector<std::pair<int, int>>, std::string> rows[] = {
        {{}, "none"},
        {{{unset, 2}, {2, 3}, {5, unset}}, "none"},
        {{{3, 1}}, order},
        {{{0, 2}, {1, 3}}, overlap},
        {{{0, unset}, {1, 3}}, overlap},
        {{{0, 1}, {unset, 3}}, overlap},
        {{{0, 2}, {1, 3}, {5, 4}}, order}};
    setErrReport(true);
    for (const auto &[segments, error] : rows) {
        const std::unique_ptr<strSegments> list(strSegments::create());
        for (auto [from, to] : segments)
            list->append(new strSegment(from, to));
        setErrSeen("none");
        list->checkConsistency();
        EXPECT_EQ(getErrSeen(), error) << testing::PrintToString(segments);
        list->delallsegs();
        EXPECT_EQ(list->getarraysize(), 0);
    }
    setErrReport(false);
}

TEST(Errors, EndTheProcessUnlessReported) {
    strSegments list;
    strSegment segment(3, 1);
    list.append(&segment);
    const std::unique_ptr<xstringsequence> none(xstringsequence::create());
    const auto text = [](const char *description, const char *function) {
        return std::string("^Exception: \"") + description + "\"\n\tin function \"" + function + "\"\n$";
    };
    constexpr const char *number = "The number of replacements does not match the number of segments";
    EXPECT_EXIT(strSubstitute("abc", &list, none.get()), testing::ExitedWithCode(1),
                text(number, "strSubstitute"));
    EXPECT_EXIT(list.checkConsistency(), testing::ExitedWithCode(1),
                text("From is greater than To", "strSegments::checkConsistency"));
    setErrReport(true);
    list.set(0, nullptr);
    EXPECT_EQ(shown(strSubstitute("abc", &list, none.get())), "\"abc\"");
    EXPECT_STREQ(getErrSeen(), number);
    none->append("x");
    none->append("y");
    EXPECT_EQ(shown(strSubstitute("abc", &list, none.get())), "\"x\"");
    setErrReport(false);
}

TEST(Errors, AreExceptionsOfTheirFunction) {
    const std::unique_ptr<strXNested> made(strXNested::Create("why", kel::construct<kelXFunc>("where")));
    EXPECT_EQ(made->getrtti(), strXNested::getclassrtti());
    std::ostringstream out;
    made->Print(out);
    EXPECT_EQ(out.str(), "Exception: \"why\"\n\tin function \"where\"\n");
    xthrowable *flight = flight_of([] { strXNested::Throw("thrown", kel::construct<kelXFunc>("where")); });
    EXPECT_STREQ(strXNested::cast(flight)->getDescription(), "thrown");
    xdelete(flight);
}

TEST(Types, AreDeclared) {
    std::string names;
    for (xrttienum *type :
         {xrtti_get_p_strMatchMode(), xrtti_get_p_strSplitMode(), xrtti_get_p_strScanDir()}) {
        names += type->getname().Str();
        for (int i = 0; i < type->getnenumvalues(); ++i)
            names += std::string(" ") + type->getenumvaluebyindex(i).Str();
        names += "\n";
    }
    EXPECT_EQ(
        names,
        "strlib::MatchMode strLit strLitIC strShell strShellIC strRegExp strRegExpIC\n"
        "strlib::SplitMode strBefore strBeforeAndIncl strAfter strInclAndAfter strMatchOnly strExclMatch\n"
        "strlib::ScanDir strForward strBackward\n");
    strSegments list;
    strSegment segment(4, 7);
    list.append(&segment);
    xrttistruct *element = xrtti_get_p_strSegment();
    EXPECT_STREQ(element->getfieldname(0) + element->getfieldname(1), "FromTo");
    EXPECT_EQ(int(element->getfield(0, xany(&segment))) * 10 + int(element->getfield(1, xany(&segment))), 47);
    xrttisequence *sequence = xrtti_get_p_strSegments();
    EXPECT_STREQ(element->getname() + " " + sequence->getname(), "strlib::Segment strlib::Segments");
    EXPECT_EQ(sequence->getseqtype(), element);
    EXPECT_EQ(sequence->getseqelem(0, xany(&list)), xany(&segment));
    EXPECT_FALSE(element->getisrefcount() || sequence->getisrefcount());

    names.clear();
    const auto add = [&]<class... X>(std::tuple<X *...>) {
        for (brtti *type : {static_cast<brtti *>(X::getclassrtti())...}) {
            EXPECT_TRUE(type->iskindof(xrtti_get_p_strXException()) && type->getnfields() == 0);
            names += type->gettypename().Str() + std::strlen("strlib::") + std::string(" ");
        }
    };
    add(std::tuple<strXReplMatch *, strXFromTo *, strXIntersectSegm *, strXNullArgRegExp *,
                   strXCorruptedRegExp *, strXCorruptedPointers *, strXRegExpTooBig *, strXOutofSpace *,
                   strXTooManyBrackets *, strXUnterminatedBrackets *, strXUnmatchedBrackets *,
                   strXJunkOnEnd *, strXOperEmpty *, strXNested *, strXInvalidRange *,
                   strXUnmatchedSqBrackets *, strXUnexpectedSymbol *, strXFollowsNothing *,
                   strXTrailingSymbol *, strXStringZeroLen *, strXDamagedMatchStr *, strXOther *>());
    EXPECT_EQ(names,
              "XReplMatch XFromTo XIntersectSegm XNullArgRegExp XCorruptedRegExp XCorruptedPointers "
              "XRegExpTooBig XOutofSpace XTooManyBrackets XUnterminatedBrackets XUnmatchedBrackets "
              "XJunkOnEnd XOperEmpty XNested XInvalidRange XUnmatchedSqBrackets XUnexpectedSymbol "
              "XFollowsNothing XTrailingSymbol XStringZeroLen XDamagedMatchStr XOther ");
}

TEST(Members, ForwardTheirText) {
    const xstring text("one two two");
    int start = 0, end = 0;
    EXPECT_STREQ(text.Word(1, xstrNullStr), "two");
    EXPECT_STREQ(text.Substring(4, 7), "two");
    EXPECT_STREQ(text.Split(" ", strAfter, strLit), "two two");
    EXPECT_STREQ(text.Substitute(0, 3, "1"), "1 two two");
    EXPECT_STREQ(text.Substitute("TWO", "2", strLitIC, 5, strUnsetPos), "one two 2");
    EXPECT_STREQ(text.SubstituteAll("two", "2", strLit, strUnsetPos, strUnsetPos), "one 2 2");
    EXPECT_EQ(text.Schar("T", strBackward, strUnsetPos, strUnsetPos, 1), 8);
    EXPECT_TRUE(text.Match("t?o", start, end, strShell, 5, 11));
    EXPECT_EQ(start * 100 + end, 811);
    EXPECT_TRUE(text.ExactMatch("two", strLit, 4, 7));
    EXPECT_EQ(text.Cmp("ONE TWO TWO", 1), 0);
    EXPECT_EQ(text.CmnPfxLen("ONLY", 1), 2);
    EXPECT_EQ(text.CmnSfxLen("too", 0), 1);
    EXPECT_TRUE(xstring().Word(0, xstrNullStr).IsNull());
}

}  // namespace
