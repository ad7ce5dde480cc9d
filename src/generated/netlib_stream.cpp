// The declared types of connections and addresses.
#include <kelstdmt/netlib_stream.h>

KEL_DEFINE_ENUM(netError, "netlib::Error", "netNameServiceProblem", "netInvalidAddress", "netServerNotFound",
                "netConnectionRefused")
KEL_DEFINE_STRUCT(netXException, "netlib::XException", kel::uncounted,
                  kel::field<&netXException::getError>("Error"), kel::field<&netXException::getMsg>("Msg"))
KEL_DEFINE_STRUCT(netAddress, "netlib::Address", kel::uncounted,
                  kel::field<&netAddress::getHostName>("HostName"),
                  kel::field<&netAddress::getPortN>("PortN"),
                  kel::field<&netAddress::getServerName>("ServerName"))
KEL_DEFINE_STRUCT(netSocketStream, "netlib::SocketStream", kel::uncounted)
