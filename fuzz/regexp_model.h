// A plain model of the search: it walks from node to node and goes back when a way fails, as slowly and as
// simply as can be. Whoever uses it gives it small texts; it gives up after a number of steps.
#pragma once

#include <kelstdmt/regexp.h>

#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace regexp_model {

struct release {
    void operator()(regexp *program) const { std::free(program); }
};
using program_holder = std::unique_ptr<regexp, release>;

struct answer {
    bool found = false;
    const char *groupStart[10] = {};
    const char *groupEnd[10] = {};
};

class matcher {
public:
    matcher(const regexp &program, const char *begin, const char *end)
        : m_program(program), m_begin(begin), m_end(end) {}

    std::optional<answer> search() { return search(m_begin); }
    // For a match that begins at `from` or later. Nothing when the program is damaged or the steps did not
    // suffice.
    std::optional<answer> search(const char *from) {
        const std::size_t must = static_cast<std::size_t>(m_program.mustText ? m_program.mustLength : 0);
        if (must > 0 &&
            std::string(from, m_end).find(std::string(m_program.mustText, must)) == std::string::npos)
            return answer{};
        for (const char *at = from;; at += bytes(at)) {
            m_answer = {};
            if (m_program.anchored && at != m_begin) return answer{};
            if (std::string_view(at, static_cast<std::size_t>(m_end - at)).starts_with(m_program.firstChar)) {
                m_answer.found = walk(1, at);
                if (m_gave_up) return std::nullopt;
                m_answer.groupStart[0] = at;
                m_answer.groupEnd[0] = m_last;
                if (m_answer.found) return m_answer;
            }
            if (at == m_end) return answer{};
        }
    }

private:
    unsigned byte(unsigned offset) {
        if (offset >= m_program.programSize) m_gave_up = true;
        return m_gave_up ? 0 : static_cast<unsigned char>(m_program.program[offset]);
    }
    unsigned next(unsigned node) {
        const unsigned distance = byte(node + 1) << 8 | byte(node + 2);
        if (distance == 0) m_gave_up = true;
        return byte(node) == REOP_BACK ? node - distance : node + distance;
    }
    std::string operand(unsigned node) {
        std::string text;
        for (unsigned at = node + 3; byte(at) != 0; ++at)
            text += static_cast<char>(byte(at));
        return text;
    }

    // Of the character at `at`: its bytes, and whether it is one.
    std::size_t bytes(const char *at, bool *valid = nullptr) const {
        std::mbstate_t state{};
        const auto left = static_cast<std::size_t>(m_end - at);
        const std::size_t used = MB_CUR_MAX == 1 || left == 0 ? 1 : std::mbrlen(at, left, &state);
        const bool good = used > 0 && used <= left;
        if (valid) *valid = good;
        return good ? used : 1;
    }
    // Bytes of the character at `at` when a node that takes one character takes it, else 0.
    std::size_t takes(unsigned node, const char *at) {
        if (at == m_end) return 0;
        bool valid = false;
        const std::size_t length = bytes(at, &valid);
        const std::string character(at, length);
        const std::string text = byte(node) == REOP_ANY ? "" : operand(node);
        switch (byte(node)) {
            case REOP_ANY:
                return length;
            case REOP_ANYOF:
                return valid && text.find(character) != std::string::npos ? length : 0;
            case REOP_ANYBUT:
                return valid && text.find(character) != std::string::npos ? 0 : length;
            case REOP_EXACTLY:
                return valid && text.compare(0, length, character) == 0 ? length : 0;
            default:
                m_gave_up = true;
                return 0;
        }
    }

    bool walk(unsigned node, const char *at) {
        while (!m_gave_up) {
            if (++m_steps > 100000 || m_depth > 2000) m_gave_up = true;
            const unsigned code = byte(node);
            if (code == REOP_END) return m_last = at, true;
            if (code == REOP_BRANCH) {
                if (byte(next(node)) != REOP_BRANCH) {
                    node += 3;
                    continue;
                }
                for (; byte(node) == REOP_BRANCH && !m_gave_up; node = next(node))
                    if (deeper(node + 3, at)) return true;
                return false;
            }
            const unsigned then = next(node);
            if (code == REOP_BOL && at != m_begin) return false;
            if (code == REOP_EOL && at != m_end) return false;
            if (code == REOP_EXACTLY) {
                const std::string text = operand(node);
                if (text.empty() && at != m_end) return false;
                for (std::size_t done = 0; done < text.size();) {
                    bool valid = false;
                    const std::size_t length = bytes(at, &valid);
                    if (!valid || text.compare(done, length, at, length) != 0) return false;
                    done += length;
                    at += length;
                }
            } else if (code == REOP_STAR || code == REOP_PLUS) {
                return repeat(node, then, at);
            } else if (code == REOP_ANY || code == REOP_ANYOF || code == REOP_ANYBUT) {
                const std::size_t length = takes(node, at);
                if (length == 0) return false;
                at += length;
            } else if (const char **const place = group_place(code)) {
                if (!deeper(then, at)) return false;
                if (!*place) *place = at;
                return true;
            } else if (code != REOP_BOL && code != REOP_EOL && code != REOP_NOTHING && code != REOP_BACK) {
                m_gave_up = true;
            }
            node = then;
        }
        return false;
    }
    bool repeat(unsigned node, unsigned then, const char *at) {
        std::string lengths;
        while (const std::size_t length = takes(node + 3, at)) {
            lengths += static_cast<char>(length);
            at += length;
        }
        while (lengths.size() >= (byte(node) == REOP_PLUS ? 1 : 0) && !m_gave_up) {
            if (deeper(then, at)) return true;
            if (lengths.empty()) break;
            at -= lengths.back();
            lengths.pop_back();
        }
        return false;
    }
    bool deeper(unsigned node, const char *at) {
        ++m_depth;
        const bool found = walk(node, at);
        --m_depth;
        return found && !m_gave_up;
    }
    const char **group_place(unsigned code) {
        const unsigned group = code % 10;
        if (group == 0 || code < REOP_OPEN || code > REOP_CLOSE + 9) return nullptr;
        return &(code < REOP_CLOSE ? m_answer.groupStart : m_answer.groupEnd)[group];
    }

    const regexp &m_program;
    const char *m_begin, *m_end, *m_last = nullptr;
    answer m_answer;
    int m_steps = 0, m_depth = 0;
    bool m_gave_up = false;
};

// What differs between the groups in the program, after a search that gave `found`, and those of the model.
inline std::string difference(const regexp &program, bool found, const answer &expected, const char *begin) {
    const auto place = [&](const char *at) { return at ? std::to_string(at - begin) : std::string("-"); };
    if (found != expected.found) return found ? "found, expected none" : "not found";
    std::string result;
    for (int group = 0; group < 10; ++group) {
        const std::string is = place(program.groupStart[group]) + ".." + place(program.groupEnd[group]);
        const std::string should = place(expected.groupStart[group]) + ".." + place(expected.groupEnd[group]);
        if (is != should)
            result += "group " + std::to_string(group) + " is " + is + ", expected " + should + "; ";
    }
    return result;
}

}  // namespace regexp_model
