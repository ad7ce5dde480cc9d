// The declared types of the system module.
#include <kelstdmt/syslib.h>

KEL_DEFINE_STRUCT(sysXException, "syslib::XException", kel::uncounted)
KEL_DEFINE_STRUCT(sysXCantGetHostName, "syslib::XCantGetHostName", kel::uncounted)
KEL_DEFINE_STRUCT(sysXCantGetUserName, "syslib::XCantGetUserName", kel::uncounted)
KEL_DEFINE_STRUCT(sysXCantPutEnv, "syslib::XCantPutEnv", kel::uncounted,
                  kel::field<&sysXCantPutEnv::getVar>("Var"))
