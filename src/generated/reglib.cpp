// The declared types of the registry.
#include <kelstdmt/reglib.h>

KEL_DEFINE_STRUCT(regKey, "reglib::Key", kel::uncounted)
KEL_DEFINE_STRUCT(regRegistry, "reglib::Registry", kel::uncounted)

KEL_DEFINE_EXCEPTION(regXNameInvalid, "reglib::XNameInvalid", kel::uncounted)
KEL_DEFINE_EXCEPTION(regXKeyClosed, "reglib::XKeyClosed", kel::uncounted)
KEL_DEFINE_EXCEPTION(regXAccess, "reglib::XAccess", kel::uncounted)
