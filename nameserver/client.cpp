#include "client.h"

#include <new>
#include <utility>

namespace kel::detail {

namespace {

constexpr std::size_t input_piece = 16 << 10, answer_piece = 64 << 10;
constexpr int requests_in_turn = 16;  // before the other connections have theirs
constexpr int nothing_yet = 997;

void clear(std::string &text, std::size_t &used) {
    constexpr std::size_t kept = 1 << 12;
    if (text.capacity() > kept)
        text = {};
    else
        text.clear();
    used = 0;
}

}  // namespace

class client::side : public awaited {
public:
    side(client &owner, int type)
        : awaited(new btkSelectEvent(owner.m_socket->GetHandle(), type)), m_owner(owner) {}
    void happened() override { m_owner.go_on(this == m_owner.m_input.get()); }

private:
    client &m_owner;
};

client::client(client_host &host, std::unique_ptr<btkStreamSocket> socket)
    : m_host(host), m_socket(std::move(socket)), m_dialog(host, *this) {
    enum { input, output };
    m_input = std::make_unique<side>(*this, input);
    m_output = std::make_unique<side>(*this, output);
}

client::~client() {
    if (m_awaited) m_host.loop().remove(*m_awaited);
}

void client::begin() {
    go_on(true);
}

bool client::await(side &wanted) {
    if (m_awaited == &wanted) return true;
    if (m_awaited) m_host.loop().remove(*std::exchange(m_awaited, nullptr));
    if (!m_host.loop().add(wanted)) return false;
    m_awaited = &wanted;
    return true;
}

// A connection for which there is no memory is one that breaks.
void client::go_on(bool may_read) {
    bool is_alive = false;
    try {
        is_alive = (!may_read || read()) && work();
    } catch (const std::bad_alloc &) {
    }
    if (!is_alive) m_host.drop(*this);
}

bool client::read() {
    char bytes[input_piece];
    const int got = m_socket->RecvNow(bytes, sizeof bytes);
    if (got < 0) return Error_GetLast() == nothing_yet;
    if (got == 0) return false;
    m_host.moved(*this);
    m_requests.assign(bytes, static_cast<std::size_t>(got));
    m_used = 0;
    return true;
}

bool client::work() {
    if (m_answers.empty()) gather();
    if (!send()) return false;
    if (!m_answers.empty() || m_dialog.has_answer()) return await(*m_output);
    if (m_dialog.is_over()) return false;
    // Requests that had no turn: the others come first, and there is room for output at once.
    if (!m_requests.empty()) return await(*m_output);
    return await(*m_input);
}

void client::gather() {
    for (int left = requests_in_turn; m_answers.size() < answer_piece;) {
        if (m_dialog.has_answer()) {
            m_dialog.take_answer(m_answers, answer_piece - m_answers.size());
        } else if (m_used < m_requests.size() && !m_dialog.is_over() && left-- > 0) {
            m_used += m_dialog.feed(std::string_view(m_requests).substr(m_used));
        } else {
            break;
        }
    }
    if (m_used == m_requests.size()) clear(m_requests, m_used);
}

bool client::send() {
    if (m_answers.empty()) return true;
    const int sent =
        m_socket->SendNow(m_answers.data() + m_sent, static_cast<unsigned>(m_answers.size() - m_sent));
    if (sent < 0) return false;
    if (sent > 0) m_host.moved(*this);
    m_sent += static_cast<std::size_t>(sent);
    if (m_sent == m_answers.size()) clear(m_answers, m_sent);
    return true;
}

}  // namespace kel::detail
