// The exceptions of the remote shell.
#include <iterator>

#include <kelstdmt/rshlib_exceptions.h>

namespace {

// By the error.
constexpr const char *messages[] = {"Remote shell server is not active on remote host",
                                    "Name Server not found", "No authorization to connect to remote shell",
                                    "Protocol mismatch", "Remote process launching error"};

}  // namespace

rshXException *rshXException::Create(rshError error) {
    return kel::construct_with<rshXException>([&](void *at) { return ::new (at) rshXException(error); });
}
void rshXException::Throw(rshError error) {
    xthrow(Create(error));
}
xstring rshXException::getMsgImpl() const {
    const auto at = static_cast<unsigned>(m_error);
    return at < std::size(messages) ? messages[at] : "Undefined error";
}

rshXProcess::rshXProcess(rshError error, int create_error, const char *message)
    : rshXException(error), m_create_error(create_error), m_message(message) {}
rshXProcess *rshXProcess::Create(rshError error, int create_error, const char *message) {
    return kel::construct_with<rshXProcess>(
        [&](void *at) { return ::new (at) rshXProcess(error, create_error, message); });
}
void rshXProcess::Throw(rshError error, int create_error, const char *message) {
    xthrow(Create(error, create_error, message));
}
std::optional<pcCreateError> rshXProcess::getNamedError() const noexcept {
    if (m_create_error < 0 || m_create_error > pcBadProcessId) return std::nullopt;
    return getCreateError();
}
xstring rshXProcess::getMsgImpl() const {
    return m_create_error != 0 ? m_message : rshXException::getMsgImpl();
}

rshXServer *rshXServer::Create(rshError error) {
    return kel::construct_with<rshXServer>([&](void *at) { return ::new (at) rshXServer(error); });
}
void rshXServer::Throw(rshError error) {
    xthrow(Create(error));
}

rshXConnection *rshXConnection::Create(rshError error) {
    return kel::construct_with<rshXConnection>([&](void *at) { return ::new (at) rshXConnection(error); });
}
void rshXConnection::Throw(rshError error) {
    xthrow(Create(error));
}
