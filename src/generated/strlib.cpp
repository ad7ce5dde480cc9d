// The declared types of the string library.
#include <kelstdmt/strlib.h>

KEL_DEFINE_ENUM(strMatchMode, "strlib::MatchMode", "strLit", "strLitIC", "strShell", "strShellIC",
                "strRegExp", "strRegExpIC")
KEL_DEFINE_ENUM(strSplitMode, "strlib::SplitMode", "strBefore", "strBeforeAndIncl", "strAfter",
                "strInclAndAfter", "strMatchOnly", "strExclMatch")
KEL_DEFINE_ENUM(strScanDir, "strlib::ScanDir", "strForward", "strBackward")

KEL_DEFINE_STRUCT(strSegment, "strlib::Segment", kel::uncounted, kel::field<&strSegment::getFrom>("From"),
                  kel::field<&strSegment::getTo>("To"))
KEL_DEFINE_SEQUENCE(strSegments, "strlib::Segments", kel::uncounted)

KEL_DEFINE_STRUCT(strXException, "strlib::XException", kel::uncounted)
KEL_DEFINE_STRUCT(strXReplMatch, "strlib::XReplMatch", kel::uncounted)
KEL_DEFINE_STRUCT(strXFromTo, "strlib::XFromTo", kel::uncounted)
KEL_DEFINE_STRUCT(strXIntersectSegm, "strlib::XIntersectSegm", kel::uncounted)
KEL_DEFINE_STRUCT(strXNullArgRegExp, "strlib::XNullArgRegExp", kel::uncounted)
KEL_DEFINE_STRUCT(strXCorruptedRegExp, "strlib::XCorruptedRegExp", kel::uncounted)
KEL_DEFINE_STRUCT(strXCorruptedPointers, "strlib::XCorruptedPointers", kel::uncounted)
KEL_DEFINE_STRUCT(strXRegExpTooBig, "strlib::XRegExpTooBig", kel::uncounted)
KEL_DEFINE_STRUCT(strXOutofSpace, "strlib::XOutofSpace", kel::uncounted)
KEL_DEFINE_STRUCT(strXTooManyBrackets, "strlib::XTooManyBrackets", kel::uncounted)
KEL_DEFINE_STRUCT(strXUnterminatedBrackets, "strlib::XUnterminatedBrackets", kel::uncounted)
KEL_DEFINE_STRUCT(strXUnmatchedBrackets, "strlib::XUnmatchedBrackets", kel::uncounted)
KEL_DEFINE_STRUCT(strXJunkOnEnd, "strlib::XJunkOnEnd", kel::uncounted)
KEL_DEFINE_STRUCT(strXOperEmpty, "strlib::XOperEmpty", kel::uncounted)
KEL_DEFINE_STRUCT(strXNested, "strlib::XNested", kel::uncounted)
KEL_DEFINE_STRUCT(strXInvalidRange, "strlib::XInvalidRange", kel::uncounted)
KEL_DEFINE_STRUCT(strXUnmatchedSqBrackets, "strlib::XUnmatchedSqBrackets", kel::uncounted)
KEL_DEFINE_STRUCT(strXUnexpectedSymbol, "strlib::XUnexpectedSymbol", kel::uncounted)
KEL_DEFINE_STRUCT(strXFollowsNothing, "strlib::XFollowsNothing", kel::uncounted)
KEL_DEFINE_STRUCT(strXTrailingSymbol, "strlib::XTrailingSymbol", kel::uncounted)
KEL_DEFINE_STRUCT(strXStringZeroLen, "strlib::XStringZeroLen", kel::uncounted)
KEL_DEFINE_STRUCT(strXDamagedMatchStr, "strlib::XDamagedMatchStr", kel::uncounted)
KEL_DEFINE_STRUCT(strXOther, "strlib::XOther", kel::uncounted)
