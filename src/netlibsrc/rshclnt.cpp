// The remote-shell server of a host, found by its name.
#include <kelstdmt/kel.h>
#include <kelstdmt/netlib_server.h>
#include <kelstdmt/rshlib.h>

#include "netlibsrc/names.h"

using kel::detail::name_server_connection;

namespace {

constexpr double patience = 30;  // seconds

std::unique_ptr<netSocketStream> connect(const char *host, const char *user) {
    const name_server_connection names(getNameServer(kel::is_text(host) ? xstring(host) : xstring()));
    if (!names) rshXConnection::Throw(rshNoNameService);
    rshError error = rshNoDaemon;
    try {
        const std::unique_ptr<netAddress> address(netAddress::Create(kel::remote_shell_name(user), host));
        if (netSocketStream *stream = netServer::Connect(address.get(), patience))
            return std::unique_ptr<netSocketStream>(stream);
    } catch (xthrowable *thrown) {
        kel::caught caught(thrown);
        const auto *refusal = caught.as<netXException>();
        if (!refusal) caught.rethrow();
        if (refusal->getError() == netConnectionRefused) error = rshNoPermission;
    }
    rshXConnection::Throw(error);
}

}  // namespace

xstring kel::remote_shell_name(const char *user) {
    const xstring name("kelrshd");
    return kel::is_text(user) && *user ? name + "-" + user : name;
}

rshConnection::rshConnection(std::unique_ptr<netSocketStream> stream, const char *host, const char *user)
    : m_stream(std::move(stream)),
      m_user(kel::is_text(user) ? user : ""),
      m_host(kel::is_text(host) ? host : "") {}

rshConnection::~rshConnection() = default;

rshConnection *rshConnection::Create(const char *host, const char *user) {
    auto stream = connect(host, user);
    return kel::construct_with<rshConnection>(
        [&](void *at) { return ::new (at) rshConnection(std::move(stream), host, user); });
}

rshProcess *rshConnection::CreateProcessA(const char *command, const char *working_directory, ioStream *in,
                                          ioStream *out, ioStream *err, unsigned char use_shell) {
    if (m_used) rshXProcess::Throw(rshProtocolMismatch, 0, "");
    m_used = true;
    return rshProcess::Create(m_stream.get(), command, working_directory, in, out, err, use_shell, true);
}
