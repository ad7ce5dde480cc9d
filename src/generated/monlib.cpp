// The declared types of monitor files. A file owns its parameters, and its caller the file.
#include <kelstdmt/monlib.h>

KEL_DEFINE_STRUCT(monParam, "monlib::Param", kel::uncounted, kel::field<&monParam::getName>("Name"))
KEL_DEFINE_STRUCT(monIntParam, "monlib::IntParam", kel::uncounted,
                  kel::field<&monIntParam::getValue>("Value"))
KEL_DEFINE_STRUCT(monBoolParam, "monlib::BoolParam", kel::uncounted,
                  kel::field<&monBoolParam::getValue>("Value"))
KEL_DEFINE_STRUCT(monRealParam, "monlib::RealParam", kel::uncounted,
                  kel::field<&monRealParam::getValue>("Value"))
KEL_DEFINE_STRUCT(monStringParam, "monlib::StringParam", kel::uncounted,
                  kel::field<&monStringParam::getValue>("Value"),
                  kel::field<&monStringParam::getSize>("Size"))
KEL_DEFINE_DICTIONARY(monParamDict, "monlib::ParamDict", kel::uncounted)
KEL_DEFINE_STRUCT(monFile, "monlib::File", kel::uncounted, kel::field<&monFile::getTitle>("Title"),
                  kel::field<&monFile::getParams>("Params"))
