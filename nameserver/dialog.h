// What is said on one connection, without the connection: bytes go in as they come, in pieces of any size,
// and answers come out in pieces as there is room for them. Requests are served one after the other.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <kelstdmt/vumrt_names.h>

#include "registrar.h"

namespace kel::detail {

// What all dialogs of a server share.
class dialog_host {
public:
    virtual ~dialog_host() = default;
    virtual registrar &names() = 0;
    virtual const name_record &version() const = 0;
    virtual void shut_down() = 0;

    std::size_t records_held = 0;  // of the answers that are under way
};

class dialog {
public:
    class other_side {
    public:
        virtual bool is_local() = 0;

    protected:
        ~other_side() = default;
    };

    dialog(dialog_host &host, other_side &peer) noexcept : m_host(host), m_peer(peer) {}
    ~dialog() { let_go(); }
    dialog(const dialog &) = delete;
    dialog &operator=(const dialog &) = delete;

    // Uses bytes up to the end of a request and answers how many: none while there is an answer to be taken.
    std::size_t feed(std::string_view bytes);
    bool has_answer() const noexcept { return !m_answer.empty() || m_next < m_records.size(); }
    // Appends what comes next of the answer, some `most` bytes.
    void take_answer(std::string &to, std::size_t most);
    // No more than the present answer: the request made no sense.
    bool is_over() const noexcept { return m_step == step::over; }

    bool holds_records() const noexcept { return !m_records.empty(); }

private:
    enum class step { greeting, code, record, over };

    std::size_t take_greeting(std::string_view bytes);
    std::size_t take_code(std::string_view bytes);
    std::size_t take_record(std::string_view bytes);
    void serve(name_request request, const name_record &record);
    void answer(name_status status) { m_answer += static_cast<char>(status); }
    void refuse();
    void let_go() noexcept;

    dialog_host &m_host;
    other_side &m_peer;
    step m_step = step::greeting;
    std::string m_greeting;
    name_request m_request{};
    name_record_reader m_reader;
    std::string m_answer;
    record_refs m_records;  // behind m_answer, from m_next on
    std::size_t m_next = 0;
};

}  // namespace kel::detail
