// rpcbind, the other service that tells the port of a program on a host: its names are numbers.
#ifdef KELSTDMT_PEER_TIRPC
#include <arpa/inet.h>
#include <rpc/rpc.h>
#include <unistd.h>
//
#include <rpc/pmap_clnt.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "work.h"

namespace bench {
namespace {

constexpr unsigned long first_number = 0x2F000000, version = 1;

// Its port cannot be chosen, so one that runs already is in the way.
class RpcbindNames : public Names {
public:
    RpcbindNames() {
        if (geteuid() != 0) throw std::runtime_error("cannot: needs root");
        if (answers()) throw std::runtime_error("cannot: one runs");
        m_process = std::make_unique<OtherProcess>("rpcbind -f 2>/dev/null");
        if (!await([&] { return answers() || !m_process->is_running(); }) || !m_process->is_running())
            throw std::runtime_error("cannot: no start");
        m_address.sin_family = AF_INET;
        m_address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        m_address.sin_port = htons(111);
    }
    void put(const std::string &name, int port) override {
        if (!pmap_set(number_of(name), version, IPPROTO_TCP, static_cast<unsigned short>(port)))
            throw std::runtime_error("pmap_set refused");
    }
    int find(const std::string &name) override {
        return pmap_getport(&m_address, number_of(name), version, IPPROTO_TCP);
    }

private:
    static bool answers() {
        try {
            close(connect_plainly(111));
            return true;
        } catch (const Gone &) {
            return false;
        }
    }
    static unsigned long number_of(const std::string &name) {
        return first_number + std::strtoul(name.c_str() + name.rfind(' '), nullptr, 10);
    }

    std::unique_ptr<OtherProcess> m_process;
    sockaddr_in m_address = {};
};

}  // namespace

void add_rpcbind(Suite &suite) {
    add_names(suite, "names", Library::Rpcbind, "rpcbind", [] { return std::make_unique<RpcbindNames>(); });
}

}  // namespace bench
#endif
