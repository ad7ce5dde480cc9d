// What a name server makes of the bytes of a peer: the input, cut into pieces where its first bytes say, goes
// into a dialog, and into a second one as a whole. Both must answer the same, whatever the pieces, and then
// hold no records.
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
    void shut_down() override {}
    bool is_local() override { return m_local; }

private:
    event_loop m_loop;
    registrar m_names{m_loop, [](const std::string &) {}};
    kel::name_record m_version;
    bool m_local;
};

struct Talk {
    explicit Talk(bool local) : server(local) {}
    // Answers are taken in pieces as well.
    void say(std::string_view bytes, std::size_t most) {
        while (!bytes.empty() && !talk.is_over()) {
            bytes.remove_prefix(talk.feed(bytes));
            while (talk.has_answer())
                talk.take_answer(said, most);
        }
    }
    Server server;
    dialog talk{server, server};
    std::string said;
};

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
    require(whole.said == pieces.said, "another answer to the same bytes in pieces");
    require(whole.server.records_held + pieces.server.records_held == 0, "records of answers are still held");
    return 0;
}
