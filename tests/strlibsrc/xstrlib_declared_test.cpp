// What the string library declares: segments, types and their descriptors, errors, and members of strings.

#include "services/observing.h"
#include "strlibsrc/text_model.h"

using namespace text_model;

namespace {

TEST(Segments, WhatIsNotThereIsReported) {
    internal_errors errors;
    strSegments list;
    EXPECT_TRUE(!list.get(0) && !list[-1]);
    list.set(64, nullptr);
    const std::string reports = errors.take();
    EXPECT_EQ(std::ranges::count(reports, ';'), 2) << reports;
}

TEST(Segments, ArePrinted) {
    strSegments list;
    strSegment segment(4, 7);
    segment.setFrom(segment.setTo(9) - 4);
    list.append(&segment);
    list.append(nullptr);
    testing::internal::CaptureStdout();
    list.Print();
    const std::string unset = std::to_string(strUnsetPos);
    EXPECT_EQ(
        testing::internal::GetCapturedStdout(),
        "Segments\n Number 0 Segment: From 5 To 9\n Number 1 Segment: From " + unset + " To " + unset + "\n");
}

TEST(Segments, ConsistencyIsChecked) {
    constexpr int unset = strUnsetPos;
    const std::string order = "From is greater than To", overlap = "Overlapping segments are found";
    const std::pair<std::vector<std::pair<int, int>>, std::string> rows[] = {
        {{{unset, 2}, {2, 3}, {5, unset}}, "none"},
        {{{3, 1}}, order},
        {{{0, 2}, {1, 3}}, overlap},
        {{{0, unset}, {1, 3}}, overlap},
        {{{0, 1}, {unset, 3}}, overlap}};
    setErrReport(true);
    for (const auto &[segments, error] : rows) {
        strSegments list;
        for (auto [from, to] : segments)
            list.append(new strSegment(from, to));
        setErrSeen("none");
        list.checkConsistency();
        EXPECT_EQ(getErrSeen(), error) << testing::PrintToString(segments);
        list.delallsegs();
    }
}

TEST(Errors, LeaveAsManyReplacementsAsThereAre) {
    setErrReport(true);
    strSegments list;
    list.append(nullptr);
    const std::unique_ptr<xstringsequence> texts(xstringsequence::create());
    EXPECT_EQ(shown(strSubstitute("abc", &list, texts.get())), "\"abc\"");
    EXPECT_STREQ(getErrSeen(), "The number of replacements does not match the number of segments");
    texts->append("x");
    texts->append("y");
    EXPECT_EQ(shown(strSubstitute("abc", &list, texts.get())), "\"x\"");
}

TEST(Types, AreDeclared) {
    strSegments list;
    strSegment segment(4, 7);
    list.append(&segment);
    xrttistruct *element = xrtti_get_p_strSegment();
    EXPECT_STREQ(element->getfieldname(0) + element->getfieldname(1), "FromTo");
    EXPECT_EQ(int(element->getfield(0, xany(&segment))) * 10 + int(element->getfield(1, xany(&segment))), 47);
    EXPECT_EQ(xrtti_get_p_strSegments()->getseqelem(0, xany(&list)), xany(&segment));
}

TEST(Members, ForwardTheirText) {
    const xstring text("one two two");
    int start = 0, end = 0;
    EXPECT_STREQ(text.Word(1, xstrNullStr) + text.Substring(4, 7) + text.Split(" ", strBefore, strLit),
                 "twotwoone");
    EXPECT_STREQ(text.Substitute("TWO", "2", strLitIC, 5, strUnsetPos), "one two 2");
    EXPECT_STREQ(text.SubstituteAll("two", "2", strLit, 5, strUnsetPos), "one two 2");
    EXPECT_STREQ(text.Substitute(4, 7, "2"), "one 2 two");
    EXPECT_TRUE(text.ExactMatch("T?O", strShellIC, 4, 7) && text.Cmp("ONE TWO TWO", 1) == 0);
    strSegment range(5, strUnsetPos);
    EXPECT_STREQ(strSubstitute(text, "two", "2", strLit, &range), "one two 2");
    EXPECT_STREQ(strLower("ONE"), "one");
    EXPECT_EQ(text.Schar("T", strBackward, strUnsetPos, strUnsetPos, 1), 8);
    EXPECT_TRUE(text.Match("t?o", start, end, strShell, 5, 11) && start == 8 && end == 11);
    EXPECT_TRUE(text.CmnPfxLen("ONLY", 1) == 2 && text.CmnSfxLen("too", 0) == 1);
}

}  // namespace
