// What a host needs so that others can run commands on it: a name server, and a remote-shell server that is
// registered there. Both run on threads of this process.
#pragma once

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include <kelstdmt/kelstdmt.h>
#include <kelstdmt/nameserver.h>

// What happens on the serving threads, line by line, until somebody wants to know.
class Journal {
public:
    void Write(const std::string &line);
    std::string Await();  // the next line

private:
    std::mutex m_lock;
    std::condition_variable m_written;
    std::deque<std::string> m_lines;
};

class Host {
public:
    // Relative working directories of clients are below the base directory. From here on the name server of
    // this machine is, for this process and its children, the one that is started here.
    explicit Host(const std::string &base_directory);
    ~Host();
    Host(const Host &) = delete;
    Host &operator=(const Host &) = delete;

    Journal &GetJournal() { return m_journal; }

private:
    class Requests;
    class Commands;

    Journal m_journal;
    std::unique_ptr<kel::name_server> m_names;
    std::unique_ptr<Requests> m_requests;
    std::unique_ptr<Commands> m_commands;
    std::unique_ptr<netServer> m_server;
    std::thread m_loop;
};
