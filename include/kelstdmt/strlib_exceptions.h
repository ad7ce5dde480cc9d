// The exceptions of the string library, one for each error code of regexp.h. The library throws none of them:
// an error is recorded or ends the process, as stHandleKnownError says there.
#pragma once

#include <kelstdmt/declare.h>
#include <kelstdmt/export.h>
#include <kelstdmt/xexception.h>

KEL_DECLARE_STRUCT(strXException)
class KELSTDMT_API strXException : public kelXExternFunc {
    KEL_CLASS(strXException, kelXExternFunc)
public:
    using kelXExternFunc::kelXExternFunc;
};

// A description and the function in which the error arose. Create gives an object that the caller deletes;
// one that is thrown is deleted by who catches it, with xdelete.
#define STR_EXCEPTION(T)                                                          \
    KEL_DECLARE_STRUCT(T)                                                         \
    class KELSTDMT_API T : public strXException {                                 \
        KEL_CLASS(T, strXException)                                               \
    public:                                                                       \
        using strXException::strXException;                                       \
        static T *Create(const char *description, kelXFunc *func) {               \
            return kel::construct<T>(description, func);                          \
        }                                                                         \
        [[noreturn]] static void Throw(const char *description, kelXFunc *func) { \
            xthrow(Create(description, func));                                    \
        }                                                                         \
    };

STR_EXCEPTION(strXReplMatch)
STR_EXCEPTION(strXFromTo)
STR_EXCEPTION(strXIntersectSegm)
STR_EXCEPTION(strXNullArgRegExp)
STR_EXCEPTION(strXCorruptedRegExp)
STR_EXCEPTION(strXCorruptedPointers)
STR_EXCEPTION(strXRegExpTooBig)
STR_EXCEPTION(strXOutofSpace)
STR_EXCEPTION(strXTooManyBrackets)
STR_EXCEPTION(strXUnterminatedBrackets)
STR_EXCEPTION(strXUnmatchedBrackets)
STR_EXCEPTION(strXJunkOnEnd)
STR_EXCEPTION(strXOperEmpty)
STR_EXCEPTION(strXNested)
STR_EXCEPTION(strXInvalidRange)
STR_EXCEPTION(strXUnmatchedSqBrackets)
STR_EXCEPTION(strXUnexpectedSymbol)
STR_EXCEPTION(strXFollowsNothing)
STR_EXCEPTION(strXTrailingSymbol)
STR_EXCEPTION(strXStringZeroLen)
STR_EXCEPTION(strXDamagedMatchStr)
STR_EXCEPTION(strXOther)

#undef STR_EXCEPTION
