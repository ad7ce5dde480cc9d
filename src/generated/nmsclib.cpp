// The declared types of the name-server client. Records and arrays belong to whoever made or was given them.
#include <kelstdmt/nmsclib.h>

KEL_DEFINE_STRUCT(nmsRecord, "nmsclib::Record", kel::uncounted, kel::field<&nmsRecord::getFields>("Fields"))
KEL_DEFINE_SEQUENCE(nmsRecordArray, "nmsclib::RecordArray", kel::uncounted)
KEL_DEFINE_STRUCT(nmsServerProxy, "nmsclib::ServerProxy", kel::uncounted)

KEL_DEFINE_STRUCT(nmsXException, "nmsclib::XException", kel::uncounted)
KEL_DEFINE_STRUCT(nmsXCantConnectLocal, "nmsclib::XCantConnectLocal", kel::uncounted)
KEL_DEFINE_STRUCT(nmsXCantConnectByName, "nmsclib::XCantConnectByName", kel::uncounted,
                  kel::field<&nmsXCantConnectByName::getServerName>("ServerName"))
KEL_DEFINE_STRUCT(nmsXCantRegisterRecord, "nmsclib::XCantRegisterRecord", kel::uncounted,
                  kel::field<&nmsXCantRegisterRecord::getRecord>("Record"))
KEL_DEFINE_STRUCT(nmsXCantDelete, "nmsclib::XCantDelete", kel::uncounted,
                  kel::field<&nmsXCantDelete::getTemplate>("Template"))
KEL_DEFINE_STRUCT(nmsXCantQuery, "nmsclib::XCantQuery", kel::uncounted,
                  kel::field<&nmsXCantQuery::getTemplate>("Template"))
KEL_DEFINE_STRUCT(nmsXCantShutdown, "nmsclib::XCantShutdown", kel::uncounted)
KEL_DEFINE_STRUCT(nmsXCantGetVersion, "nmsclib::XCantGetVersion", kel::uncounted)
