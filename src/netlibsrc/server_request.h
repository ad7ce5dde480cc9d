// An asynchronous request: the thread that runs OnAsyncRequest on a connection.
#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <utility>

#include <kelstdmt/netlib_server.h>
#include <kelstdmt/netlib_thread.h>

class netAsyncRequest : public netThread {
public:
    // Whom it asks is settled here, in the thread of the loop.
    netAsyncRequest(netBaseServer &server, std::unique_ptr<netSocketStream> stream,
                    std::uint64_t number) noexcept
        : m_server(server),
          m_callback(server.m_on_async_request),
          m_stream(std::move(stream)),
          m_number(number) {}
    netAsyncRequest(const netAsyncRequest &) = delete;
    netAsyncRequest &operator=(const netAsyncRequest &) = delete;

    void SendStop() noexcept;       // signals the thread to stop, once
    netServerLoopAction Collect();  // waits for the end, and answers whether the loop ends too
    std::uint64_t Number() const noexcept { return m_number; }  // in the order in which they were started

    std::list<netAsyncRequest>::iterator place;  // in the loop's list

protected:
    int OnStart() override;
    void OnPostStart() override;
    void AtFork(bool child) override;

private:
    netBaseServer &m_server;
    netBaseServer_OnAsyncRequest_cb *m_callback;
    std::unique_ptr<netSocketStream> m_stream;  // the callback's once the thread runs
    std::uint64_t m_number;
    bool m_stop_sent = true;
    std::unique_ptr<btkEvent> m_exit_event;
};
