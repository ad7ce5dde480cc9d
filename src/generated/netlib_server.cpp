// The declared types of socket servers.
#include <kelstdmt/netlib_server.h>

KEL_DEFINE_ENUM(netServerLoopAction, "netlib::ServerLoopAction", "netServerContinue", "netServerTerminate",
                "netSpawnAsyncServer")

KEL_DEFINE_STRUCT(netEvent, "netlib::Event", kel::uncounted, kel::field<&netEvent::getServer>("Server"))
KEL_DEFINE_STRUCT(netBaseServer, "netlib::BaseServer", kel::uncounted,
                  kel::field<&netBaseServer::getPortN>("PortN"),
                  kel::field<&netBaseServer::getServerName>("ServerName"),
                  kel::field<&netBaseServer::getTimeSlice>("TimeSlice"))
KEL_DEFINE_STRUCT(netServer, "netlib::Server", kel::uncounted, kel::field<&netServer::getVersion>("Version"))

KEL_DEFINE_STRUCT(netBaseServer_OnRequest_cb, "netlib::BaseServer_OnRequest_cb", kel::uncounted)
KEL_DEFINE_STRUCT(netBaseServer_OnAsyncRequest_cb, "netlib::BaseServer_OnAsyncRequest_cb", kel::uncounted)
KEL_DEFINE_STRUCT(netBaseServer_OnIdle_cb, "netlib::BaseServer_OnIdle_cb", kel::uncounted)
