// What a name server makes of the bytes of a peer: the input, cut into pieces where its first bytes say, goes
// into a dialog, and into a second one as a whole. Both must answer the same, whatever the pieces, and the
// records that are stored must be those that a query for all tells.
#include <cstdint>
#include <string>
#include <string_view>

#include "dialog.h"
#include "peer.h"

namespace {

using namespace kel::detail;

using peer::require;

class Server : public dialog_host, public dialog::other_side {
public:
    explicit Server(bool local) : m_local(local) { m_version.set("Version", "fuzz"); }
    registrar &names() override { return m_names; }
    const kel::name_record &version() const override { return m_version; }
    void shut_down() override { m_is_down = true; }
    bool is_local() override { return m_local; }

private:
    event_loop m_loop;
    registrar m_names{m_loop, [](const std::string &) {}};
    kel::name_record m_version;
    bool m_local;
    bool m_is_down = false;
};

class Talk {
public:
    explicit Talk(bool local) : m_server(local), m_dialog(m_server, m_server) {}

    // Answers are taken in pieces as well.
    void say(std::string_view bytes, std::size_t most) {
        while (!bytes.empty() && !m_dialog.is_over()) {
            bytes.remove_prefix(m_dialog.feed(bytes));
            while (m_dialog.has_answer())
                m_dialog.take_answer(m_said, most);
        }
    }
    const std::string &said() const { return m_said; }
    Server &server() { return m_server; }

private:
    Server m_server;
    dialog m_dialog;
    std::string m_said;
};

// A query for all, decoded with the reader of clients.
void check_store(Talk &talk) {
    const std::size_t before = talk.said().size();
    dialog other(talk.server(), talk.server());
    std::string query, answer;
    kel::append_int(query, kel::name_service_greeting);
    query += static_cast<char>(kel::name_request::query);
    kel::append_record(query, {});
    require(other.feed(query) == query.size(), "a query was not taken whole");
    while (other.has_answer())
        other.take_answer(answer, 1);
    require(talk.said().size() == before && answer.size() >= 5 && answer[0] == 0, "a query was refused");
    std::string_view rest = answer;
    int left = kel::int_at(rest.data() + 1);
    rest.remove_prefix(5);
    for (; left > 0; --left) {
        kel::name_record_reader reader;
        rest.remove_prefix(reader.feed(rest.data(), rest.size()));
        require(reader.is_whole(), "a stored record is malformed");
        require(reader.take().process == 0 || talk.server().is_local(), "a record of nobody here");
    }
    require(rest.empty(), "bytes behind the answer");
    require(talk.server().records_held == 0, "records of answers are still held");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
    if (size < 2) return 0;
    const bool local = bytes[0] & 1;
    std::uint32_t chance = bytes[0] * 256u + bytes[1];
    const std::string_view input(reinterpret_cast<const char *>(bytes) + 2, size - 2);
    Talk whole(local), pieces(local);
    whole.say(input, SIZE_MAX / 2);
    for (std::size_t at = 0; at < input.size();) {
        chance = chance * 1103515245u + 12345u;
        const std::size_t count = chance % 4 ? 1 + (chance >> 16) % 7 : 1 + (chance >> 16) % 300;
        pieces.say(input.substr(at, count), 1 + (chance >> 20) % 100);
        at += count;
    }
    require(whole.said() == pieces.said(), "another answer to the same bytes in pieces");
    check_store(whole);
    check_store(pieces);
    return 0;
}
