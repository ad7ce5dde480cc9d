#include "plain.h"

#include <unistd.h>

namespace bench {

PlainClient::PlainClient(int port, Later) : m_descriptor(connect_plainly(port)) {
    const char hello = 0;
    put(&hello, 1);
}

PlainClient::~PlainClient() {
    if (m_descriptor >= 0) close(m_descriptor);
}

void PlainClient::await_grant() {
    char grant = 0;
    if (!read_plainly(m_descriptor, &grant, 1) || grant != 1) throw Gone();
}

void PlainClient::ask_later(int value) {
    char bytes[4];
    put_int(bytes, value);
    put(bytes, 4);
}

void PlainClient::put(const char *bytes, std::size_t count) {
    if (!write_plainly(m_descriptor, bytes, count)) throw Gone();
}

int PlainClient::answer() {
    char bytes[4];
    if (!read_plainly(m_descriptor, bytes, 4)) throw Gone();
    return int_of(bytes);
}

}  // namespace bench
