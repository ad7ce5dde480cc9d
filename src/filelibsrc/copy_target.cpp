// Making beside, and putting into place.
#include "filelibsrc/copy_target.h"

#include <cstdio>
#include <string_view>
#include <utility>

#include "filelibsrc/remove.h"

namespace kel::detail {

using system::links;
using system::outcome;

namespace {

constexpr std::string_view ending = ".kel-copy";
constexpr int attempts = 16;

std::string hidden_by_chance() {
    char name[40];
    std::snprintf(name, sizeof name, ".%016llx%s", static_cast<unsigned long long>(btkRandomSeed()),
                  ending.data());
    return name;
}

std::string hidden_name_of(std::string_view name) {
    return std::string(".").append(name).append(ending);
}

std::string mark_name_of(std::string_view name) {
    return hidden_name_of(name).append("-mark");
}

// `make` gets a name that nobody has chosen before.
template <class Make>
outcome make_hidden(std::string &name, Make make) {
    for (int attempt = 0; attempt < attempts; ++attempt) {
        std::string chosen = hidden_by_chance();
        const outcome result = make(chosen.c_str());
        if (result == outcome::done) name = std::move(chosen);
        if (result != outcome::exists) return result;
    }
    return outcome::exists;
}

}  // namespace

new_entry::~new_entry() {
    if (m_hidden.empty() && !m_mark) return;
    const int reason = Error_GetLast();
    tree_path path(m_path);
    const bool is_gone =
        m_hidden.empty() ||
        tree_removal(tree_removal::permission::taken).remove(m_folder, m_hidden.c_str(), path) ==
            fsErrSuccess;
    if (m_mark && is_gone) system::remove_file(m_folder, mark_name_of(m_name).c_str());
    Error_SetLast(reason);
}

outcome new_entry::make_file(bool may_be_unnamed) {
    if (may_be_unnamed && system::make_unnamed(m_folder, m_made) == outcome::done) return outcome::done;
    return make_hidden(m_hidden, [&](const char *name) { return system::make_file(m_folder, name, m_made); });
}

outcome new_entry::make_link(const char *text) {
    return make_hidden(m_hidden, [&](const char *name) { return system::make_link(text, m_folder, name); });
}

outcome new_entry::make_folder() {
    const auto make = [&](const char *name) {
        return system::make_folder(m_folder, name, system::unfinished);
    };
    m_is_folder = true;
    m_hidden = hidden_name_of(m_name);
    outcome result = outcome::exists;
    if (claim()) result = make(m_hidden.c_str());
    if (result != outcome::done) result = make_hidden(m_hidden, make);
    if (result != outcome::done) {
        m_hidden.clear();
        return result;
    }
    return system::open_folder(m_folder, m_hidden.c_str(), links::seen, m_made);
}

// Whether the hidden name is this copy's. It is not while another copy is at work there, when it is too long,
// and when somebody else has made an entry of that name.
bool new_entry::claim() {
    const std::string mark = mark_name_of(m_name);
    system::status told, named;
    const outcome marked = system::open_source(m_folder, mark.c_str(), links::seen, m_mark, told);
    const bool is_new = marked == outcome::absent;
    if (is_new && (system::look(m_folder, m_hidden.c_str(), links::seen, named) != outcome::absent ||
                   system::make_file(m_folder, mark.c_str(), m_mark) != outcome::done ||
                   system::look(m_mark.get(), told) != outcome::done)) {
        m_mark.reset();
        return false;
    }
    // The lock is worth something only if the name still leads to what is locked: another copy that is done
    // takes its mark away. Where the host knows no locks, what is left behind stays.
    const auto is_held = [&] {
        const outcome held = system::hold(m_mark.get());
        return held == outcome::done || (is_new && held == outcome::unsupported);
    };
    const bool is_claimed = m_mark && system::is_mine(told) && is_held() &&
                            system::look(m_folder, mark.c_str(), links::seen, named) == outcome::done &&
                            named.who == told.who;
    tree_path path(m_path);
    if (is_claimed && !is_new)
        tree_removal(tree_removal::permission::taken).remove(m_folder, m_hidden.c_str(), path);
    if (!is_claimed) m_mark.reset();
    return is_claimed;
}

outcome new_entry::put(putting way) {
    if (!m_hidden.empty() && !m_is_folder && m_made) {
        const outcome closed = system::close_written(std::move(m_made));
        if (closed != outcome::done) return closed;
    }
    if (m_hidden.empty()) {
        const auto give_name = [&](const char *name) {
            return system::give_name(m_made.get(), m_folder, name);
        };
        const outcome named = way == putting::anew ? give_name(m_name) : make_hidden(m_hidden, give_name);
        m_cannot_be_named = named == outcome::unsupported;
        if (named != outcome::done || way == putting::anew) return named;
    }
    if (way == putting::instead) return system::exchange(m_folder, m_hidden.c_str(), m_name);
    const outcome result = way == putting::anew
                               ? system::rename_new(m_folder, m_hidden.c_str(), m_folder, m_name)
                               : system::rename_over(m_folder, m_hidden.c_str(), m_name);
    if (result == outcome::done) m_hidden.clear();
    return result;
}

fsErrorCode new_entry::remove_old(std::string &culprit) {
    tree_path path(m_path);
    const fsErrorCode code = tree_removal().remove(m_folder, m_hidden.c_str(), path);
    if (code == fsErrSuccess) {
        m_hidden.clear();
        return code;
    }
    // What is left of it gets its name back, where it can be seen.
    const int reason = Error_GetLast();
    culprit = path.text();
    system::exchange(m_folder, m_hidden.c_str(), m_name);
    Error_SetLast(reason);
    return code;
}

}  // namespace kel::detail
