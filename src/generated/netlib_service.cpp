// The declared types of services.
#include <kelstdmt/netlib_service.h>

KEL_DEFINE_STRUCT(netService_DoService_cb, "netlib::Service_DoService_cb", kel::uncounted)
KEL_DEFINE_STRUCT(netService, "netlib::Service", kel::uncounted)
