#include "dialog.h"

#include <algorithm>

namespace kel::detail {

std::size_t dialog::feed(std::string_view bytes) {
    std::size_t used = 0;
    while (used < bytes.size() && !has_answer() && m_step != step::over) {
        const std::string_view rest = bytes.substr(used);
        switch (m_step) {
            case step::greeting:
                used += take_greeting(rest);
                break;
            case step::code:
                used += take_code(rest);
                break;
            default:
                used += take_record(rest);
        }
    }
    return used;
}

void dialog::take_answer(std::string &to, std::size_t most) {
    to += m_answer;
    m_answer.clear();
    const std::size_t end = to.size() + most;
    while (m_next < m_records.size() && to.size() < end)
        to += m_records[m_next++]->bytes;
    if (m_next == m_records.size()) let_go();
}

void dialog::let_go() noexcept {
    m_host.records_held -= m_records.size();
    m_records = {};
    m_next = 0;
}

// Requests -------------------------------------------------------------------------------------

std::size_t dialog::take_greeting(std::string_view bytes) {
    constexpr std::size_t int_size = 4;
    const std::size_t used = std::min(bytes.size(), int_size - m_greeting.size());
    m_greeting += bytes.substr(0, used);
    if (m_greeting.size() == int_size) {
        m_step = int_at(m_greeting.data()) == name_service_greeting ? step::code : step::over;
        m_greeting.clear();
    }
    return used;
}

std::size_t dialog::take_code(std::string_view bytes) {
    m_request = static_cast<name_request>(bytes[0]);
    switch (m_request) {
        case name_request::add:
        case name_request::remove:
        case name_request::query:
            m_step = step::record;
            break;
        case name_request::ping:
        case name_request::shutdown:
        case name_request::version:
            m_step = step::greeting;
            serve(m_request, {});
            break;
        default:
            refuse();
    }
    return 1;
}

std::size_t dialog::take_record(std::string_view bytes) {
    const std::size_t used = m_reader.feed(bytes.data(), bytes.size());
    if (m_reader.is_malformed()) {
        refuse();
    } else if (m_reader.is_whole()) {
        m_step = step::greeting;
        serve(m_request, m_reader.take());
    }
    return used;
}

void dialog::refuse() {
    answer(name_status::not_recognized);
    m_step = step::over;
}

void dialog::serve(name_request request, const name_record &record) {
    switch (request) {
        case name_request::add:
            answer(m_host.names().add(record, m_peer.is_local()));
            break;
        case name_request::remove: {
            const auto [status, count] = m_host.names().remove(record, m_peer.is_local());
            answer(status);
            append_int(m_answer, count);
            break;
        }
        case name_request::query:
            m_records = m_host.names().find(record);
            m_host.records_held += m_records.size();
            answer(name_status::success);
            append_int(m_answer, static_cast<int>(m_records.size()));
            break;
        case name_request::version:
            answer(name_status::success);
            append_record(m_answer, m_host.version());
            break;
        case name_request::shutdown:
            if (m_peer.is_local()) m_host.shut_down();
            answer(m_peer.is_local() ? name_status::success : name_status::not_authorized);
            break;
        default:
            answer(name_status::success);
    }
}

}  // namespace kel::detail
