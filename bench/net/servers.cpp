#include "servers.h"

#include <charconv>

namespace bench {
namespace {

constexpr Serve servers[] = {
    ours_server, ours_loop,    ours_threads, ours_names, ours_names_journal, floor_loop, floor_threads,
#ifdef KELSTDMT_PEER_GIO
    glib_loop,   glib_threads,
#endif
#ifdef KELSTDMT_PEER_QT_NETWORK
    qt_loop,     qt_threads,
#endif
#ifdef KELSTDMT_PEER_POCO_NET
    poco_loop,   poco_threads,
#endif
#ifdef KELSTDMT_PEER_ASIO
    asio_loop,   asio_threads,
#endif
};
constexpr std::size_t server_count = sizeof servers / sizeof *servers;

std::string word_of(Serve serve, Work work) {
    std::size_t index = 0;
    while (index < server_count && servers[index] != serve)
        ++index;
    return std::to_string(index) + "," + std::to_string(static_cast<int>(work));
}

}  // namespace

bool serve_word(std::string_view word) {
    std::size_t index = server_count;
    int work = 0;
    const char *end = word.data() + word.size();
    const char *comma = std::from_chars(word.data(), end, index).ptr;
    if (comma == end || index >= server_count || std::from_chars(comma + 1, end, work).ptr != end)
        return false;
    servers[index](static_cast<Work>(work));
    return true;
}

ServerProcess::ServerProcess(Serve serve, Work work) : OwnProcess(word_of(serve, work)) {}

}  // namespace bench
