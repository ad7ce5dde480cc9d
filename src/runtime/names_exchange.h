// The requests that a name server takes, made once for the plain functions and the client module, which tell
// an outcome each in its own way.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <kelstdmt/vumrt_names.h>

namespace kel::system {

struct name_outcome {
    int code = 0;    // a name_status, or what else a name server has answered
    int origin = 0;  // 1: the name server reported it, 0: its client found it

    bool is_success() const noexcept { return code == 0; }
};

// A name server as it is asked: each request is a connection of its own.
class asked_name_server {
public:
    asked_name_server(std::string host, bool local) : m_host(std::move(host)), m_local(local) {}

    name_outcome ping();
    name_outcome add(const name_record &record);
    name_outcome remove(const name_record &wanted, int &count);
    // Finds all that the name server has told, or none.
    name_outcome query(const name_record &wanted, std::vector<name_record> &found);
    name_outcome version(name_record &answer);
    name_outcome shutdown();

    const std::string &host() const noexcept { return m_host; }
    bool is_local() const noexcept { return m_local; }
    int port() const noexcept { return m_port; }  // of the last request; 0 before the first

private:
    class exchange;
    name_outcome fails(name_status code) const;

    std::string m_host;
    bool m_local;
    int m_port = 0;
};

// The process of a record, as callers tell it: 1 stands for this one.
unsigned associated_process(unsigned told);

}  // namespace kel::system
