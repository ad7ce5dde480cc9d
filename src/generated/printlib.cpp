// The declared types of the print module.
#include <kelstdmt/printlib.h>

KEL_DEFINE_STRUCT(printData, "printlib::Data", kel::uncounted,
                  kel::field<&printData::getQuoteString>("QuoteString"),
                  kel::field<&printData::getDepth>("Depth"),
                  kel::field<&printData::getIsRecursive>("IsRecursive"),
                  kel::optional_field<&printData::getIndent>("Indent"))
