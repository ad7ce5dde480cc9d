// Making beside, and putting into place.
#include "filelibsrc/copy_target.h"

#include <cstdio>
#include <string_view>
#include <utility>

#include "filelibsrc/remove.h"

namespace kel::detail {

using system::links;
using system::outcome;
using system::owned_descriptor;

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
    if (m_hidden.empty()) return;
    const int reason = Error_GetLast();
    tree_path path(m_path);
    tree_removal(tree_removal::permission::taken).remove(m_folder, m_hidden.c_str(), path);
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
    outcome result = make(m_hidden.c_str());
    if (result == outcome::exists) {
        remove_left_behind();
        result = make(m_hidden.c_str());
    }
    if (result == outcome::done && claim()) return result;
    m_hidden.clear();  // another copy is at work there, or the name is too long with what is added
    result = make_hidden(m_hidden, make);
    if (result != outcome::done) return result;
    return system::open_folder(m_folder, m_hidden.c_str(), links::seen, m_made);
}

// A lock is worth something only if the name still leads to what is locked: its maker may have put it into
// place in the meantime.
bool new_entry::leads_to(const owned_descriptor &folder, system::status &told) const {
    system::status named;
    return system::look(folder.get(), told) == outcome::done &&
           system::look(m_folder, m_hidden.c_str(), links::seen, named) == outcome::done &&
           named.who == told.who;
}

bool new_entry::claim() {
    system::status told;
    if (system::open_folder(m_folder, m_hidden.c_str(), links::seen, m_made) == outcome::done &&
        system::hold(m_made.get()) != outcome::exists && leads_to(m_made, told))
        return true;
    m_made.reset();
    return false;
}

// Folders of others, and those that are not marked, are not even locked.
void new_entry::remove_left_behind() {
    owned_descriptor left;
    system::status told;
    const auto is_left = [&] {
        return leads_to(left, told) && system::is_mine(told) &&
               (told.mode & system::folder_permissions) == system::unfinished;
    };
    if (system::open_folder(m_folder, m_hidden.c_str(), links::seen, left) != outcome::done || !is_left() ||
        system::hold(left.get()) != outcome::done || !is_left())
        return;
    tree_path path(m_path);
    tree_removal(tree_removal::permission::taken).remove(m_folder, m_hidden.c_str(), path);
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
    owned_descriptor old;
    system::status told;
    // From here on the next copy goes on if this process is killed.
    const bool is_marked =
        system::open_folder(m_folder, m_hidden.c_str(), links::seen, old) == outcome::done &&
        leads_to(old, told) && system::hold(old.get()) == outcome::done &&
        system::set_mode(old.get(), system::unfinished) == outcome::done;
    tree_path path(m_path);
    const fsErrorCode code = tree_removal().remove(m_folder, m_hidden.c_str(), path);
    if (code == fsErrSuccess) {
        m_hidden.clear();
        return code;
    }
    // What is left of it gets its name back, where it can be seen.
    const int reason = Error_GetLast();
    culprit = path.text();
    if (is_marked)
        system::set_mode(old.get(), told.mode & (system::folder_permissions | system::lent_rights));
    system::exchange(m_folder, m_hidden.c_str(), m_name);
    Error_SetLast(reason);
    return code;
}

}  // namespace kel::detail
