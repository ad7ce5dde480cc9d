// Descriptors of the core's own types, module kellib.
#include <kelstdmt/declare.h>
#include <kelstdmt/xbasic.h>

KEL_DEFINE_STRUCT(kelXArgs, "kellib::XArgs", kel::counted)
KEL_DEFINE_STRUCT(kelXFunc, "kellib::XFunc", kel::counted, kel::field<&kelXFunc::getName>("Name"),
                  kel::field<&kelXFunc::getArgs>("Args"))

KEL_DEFINE_STRUCT(kelXException, "kellib::XException", kel::counted,
                  kel::field<&kelXException::getDescription>("Description"))
KEL_DEFINE_STRUCT(kelXExternFunc, "kellib::XExternFunc", kel::counted,
                  kel::field<&kelXExternFunc::getFunc>("Func"))
// The index stays out of the list.
KEL_DEFINE_STRUCT(kelXInvalidFieldIndex, "kellib::XInvalidFieldIndex", kel::counted,
                  kel::field<&kelXInvalidFieldIndex::getTypeName>("TypeName"))

KEL_DEFINE_EXCEPTION(kelXNoField, "kellib::XNoField", kel::counted)
KEL_DEFINE_EXCEPTION(kelXUnknownType, "kellib::XUnknownType", kel::counted)
KEL_DEFINE_EXCEPTION(kelXTypeMismatch, "kellib::XTypeMismatch", kel::counted)
KEL_DEFINE_EXCEPTION(kelXUninitDispMethod, "kellib::XUninitDispMethod", kel::counted)
KEL_DEFINE_EXCEPTION(kelXNotClassType, "kellib::XNotClassType", kel::counted)
KEL_DEFINE_EXCEPTION(kelXNotEnumType, "kellib::XNotEnumType", kel::counted)
KEL_DEFINE_EXCEPTION(kelXInvalidEnumIndex, "kellib::XInvalidEnumIndex", kel::counted)
KEL_DEFINE_EXCEPTION(kelXNotStructType, "kellib::XNotStructType", kel::counted)
KEL_DEFINE_EXCEPTION(kelXInvalidParentIndex, "kellib::XInvalidParentIndex", kel::counted)
KEL_DEFINE_EXCEPTION(kelXNotArrayType, "kellib::XNotArrayType", kel::counted)
KEL_DEFINE_EXCEPTION(kelXInvalidArrayDimIndex, "kellib::XInvalidArrayDimIndex", kel::counted)
KEL_DEFINE_EXCEPTION(kelXInvalidArrayIndex, "kellib::XInvalidArrayIndex", kel::counted)
KEL_DEFINE_EXCEPTION(kelXNotSequenceType, "kellib::XNotSequenceType", kel::counted)
KEL_DEFINE_EXCEPTION(kelXInvalidSeqIndex, "kellib::XInvalidSeqIndex", kel::counted)
KEL_DEFINE_EXCEPTION(kelXNotDictionaryType, "kellib::XNotDictionaryType", kel::counted)
KEL_DEFINE_EXCEPTION(kelXInvalidDictIndex, "kellib::XInvalidDictIndex", kel::counted)
KEL_DEFINE_EXCEPTION(kelXNotUnionType, "kellib::XNotUnionType", kel::counted)
KEL_DEFINE_EXCEPTION(kelXInvalidUnionIndex, "kellib::XInvalidUnionIndex", kel::counted)
KEL_DEFINE_EXCEPTION(kelXInvalidUnionDiscr, "kellib::XInvalidUnionDiscr", kel::counted)
KEL_DEFINE_EXCEPTION(kelXCannotCloneRTTI, "kellib::XCannotCloneRTTI", kel::counted)
KEL_DEFINE_EXCEPTION(kelXNegativeIndex, "kellib::XNegativeIndex", kel::counted)
KEL_DEFINE_EXCEPTION(kelXNotInitialized, "kellib::XNotInitialized", kel::counted)
KEL_DEFINE_EXCEPTION(kelXRefCountable, "kellib::XRefCountable", kel::counted)
KEL_DEFINE_EXCEPTION(kelXNativeException, "kellib::XNativeException", kel::counted)
KEL_DEFINE_EXCEPTION(kelXConnectionClosed, "kellib::XConnectionClosed", kel::counted)

KEL_DEFINE_SEQUENCE(xintsequence, "intseq", kel::counted)
KEL_DEFINE_SEQUENCE(xboolsequence, "boolseq", kel::counted)
KEL_DEFINE_SEQUENCE(xrealsequence, "realseq", kel::counted)
KEL_DEFINE_SEQUENCE(xstringsequence, "stringseq", kel::counted)
KEL_DEFINE_DICTIONARY(xintdictionary, "xintdictionary", kel::counted)
KEL_DEFINE_DICTIONARY(xbooldictionary, "xbooldictionary", kel::counted)
KEL_DEFINE_DICTIONARY(xrealdictionary, "xrealdictionary", kel::counted)
KEL_DEFINE_DICTIONARY(xstringdictionary, "xstringdictionary", kel::counted)
