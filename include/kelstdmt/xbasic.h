// The basic containers: counted sequences and text-keyed dictionaries of int, bool, real and string, which
// the C interface also knows. create() gives a new one with count 0: put it in an xrchandle.
#pragma once

#include <kelstdmt/declare.h>
#include <kelstdmt/xstring.h>

KEL_SEQUENCE(xintsequence, xint)
KEL_SEQUENCE(xboolsequence, xbool)
KEL_SEQUENCE(xrealsequence, xreal)
KEL_SEQUENCE(xstringsequence, xstring)

KEL_DICTIONARY(xintdictionary, xint)
KEL_DICTIONARY(xbooldictionary, xbool)
KEL_DICTIONARY(xrealdictionary, xreal)
KEL_DICTIONARY(xstringdictionary, xstring)
