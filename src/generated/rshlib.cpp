// The declared types of the remote shell.
#include <kelstdmt/rshlib.h>

KEL_DEFINE_ENUM(rshError, "rshlib::Error", "rshNoDaemon", "rshNoNameService", "rshNoPermission",
                "rshProtocolMismatch", "rshDaemonError")
KEL_DEFINE_STRUCT(rshXException, "rshlib::XException", kel::uncounted,
                  kel::field<&rshXException::getError>("Error"), kel::field<&rshXException::getMsg>("Msg"))
KEL_DEFINE_STRUCT(rshXProcess, "rshlib::XProcess", kel::uncounted,
                  kel::field<&rshXProcess::getNamedError>("CreateError"))
KEL_DEFINE_STRUCT(rshXServer, "rshlib::XServer", kel::uncounted)
KEL_DEFINE_STRUCT(rshXConnection, "rshlib::XConnection", kel::uncounted)

KEL_DEFINE_STRUCT(rshProcess, "rshlib::Process", kel::uncounted, kel::field<&rshProcess::getStdin>("Stdin"),
                  kel::field<&rshProcess::getStdout>("Stdout"), kel::field<&rshProcess::getStderr>("Stderr"))
KEL_DEFINE_STRUCT(rshEvent, "rshlib::Event", kel::uncounted, kel::field<&rshEvent::getProcess>("Process"))
KEL_DEFINE_STRUCT(rshServer, "rshlib::Server", kel::uncounted)
KEL_DEFINE_STRUCT(rshServerEvent, "rshlib::ServerEvent", kel::uncounted,
                  kel::field<&rshServerEvent::getServer>("Server"))
KEL_DEFINE_STRUCT(rshConnection, "rshlib::Connection", kel::uncounted,
                  kel::field<&rshConnection::getUser>("User"), kel::field<&rshConnection::getHost>("Host"))
