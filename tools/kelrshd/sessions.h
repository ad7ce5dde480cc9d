// The connections of a remote-shell server: each on its thread, not more commands at a time than the limit,
// and a log of who ran what and how it ended.
#pragma once

#include <atomic>
#include <string>

#include <kelstdmt/netlib_server.h>
#include <kelstdmt/rshlib.h>

#include "log.h"

class sessions final : public netBaseServer_OnRequest_cb, public netBaseServer_OnAsyncRequest_cb {
public:
    // The base folder is "" or absolute.
    sessions(int limit, std::string base_folder, service::log_writer &log)
        : m_limit(limit), m_base_folder(std::move(base_folder)), m_log(log) {}

    netServerLoopAction OnRequest(netBaseServer *, netSocketStream *stream) override;
    netServerLoopAction OnAsyncRequest(netBaseServer *, netSocketStream *stream, evtEvent *stop) override;
    void refused(const std::string &peer, const std::string &reason);

private:
    kel::remote_shell_options options_for(const std::string &peer, class place_of_command &place,
                                          bool &has_asked);

    // Connections beyond the limit, which are told so or have not said yet what they want.
    static constexpr int most_refused = 64;

    int m_limit;
    std::string m_base_folder;
    service::log_writer &m_log;
    std::atomic<int> m_connections{0}, m_commands{0};
};
