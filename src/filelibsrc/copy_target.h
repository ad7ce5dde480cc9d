// A file, folder or link that is made beside its place and put there when it is whole. Until then its name is
// a hidden one, or, for a file, none at all; what is not put is taken away again.
//
// The hidden name of a folder goes by the final one. From before it is made until after it is gone, a mark
// stands beside it: an empty file that its copy holds locked. So the next copy to the same place knows what a
// killed one has left, whether that is new or what was there before, and removes it.
#pragma once

#include <string>

#include "filelibsrc/trees.h"
#include "runtime/copy.h"

namespace kel::detail {

enum class putting : unsigned char {
    anew,    // nothing may be there
    over,    // a file or a link goes
    instead  // whatever was there is under the hidden name then, and goes with this object or by remove_old
};

class new_entry {
public:
    // In the folder, which must stay open; the path is what failures of the cleaning would concern.
    new_entry(int folder, const char *name, const std::string &path)
        : m_folder(folder), m_name(name), m_path(path) {}
    ~new_entry();
    new_entry(const new_entry &) = delete;
    new_entry &operator=(const new_entry &) = delete;

    // The descriptor is this object's. A file without a name costs less, but not every host can name it
    // later.
    system::outcome make_file(bool may_be_unnamed);
    system::outcome make_folder();
    system::outcome make_link(const char *text);
    int descriptor() const noexcept { return m_made.get(); }

    system::outcome put(putting way);
    bool cannot_be_named() const noexcept { return m_cannot_be_named; }  // which `put` found out
    // After `instead`: what was there before, removed whole.
    fsErrorCode remove_old(std::string &culprit);

private:
    bool claim();

    int m_folder;
    const char *m_name;
    const std::string m_path;
    std::string m_hidden;  // empty: there is nothing under such a name
    system::owned_descriptor m_made;
    system::owned_descriptor m_mark;  // of a folder with the name that goes by the final one
    bool m_is_folder = false, m_cannot_be_named = false;
};

}  // namespace kel::detail
