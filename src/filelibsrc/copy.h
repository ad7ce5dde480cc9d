// Copies of files and trees.
//
// A tree that has no counterpart yet is made whole under a hidden name and put into place at the end: inside
// it nothing has to be asked and no file renamed, and who looks sees all of it or nothing. Where folders are
// merged, each file or folder that is new there is made in this way.
#pragma once

#include <deque>
#include <string>

#include "filelibsrc/copy_target.h"
#include "filelibsrc/progress.h"
#include "filelibsrc/trees.h"
#include "runtime/copy.h"
#include "runtime/directory.h"

#include <kelstdmt/filelib_trees.h>

namespace kel::detail {

class tree_copy {
public:
    tree_copy(std::string from, std::string to, fsSoftLinkCopyMode link_mode, const file_observer *observer);

    fsErrorCode copy(fsRecursiveCopyMode mode, bool with_parents);
    // For a move to another file system: a link is copied as one, owner and attributes are kept, nothing is
    // replaced, and when it is done the copy is on the disk.
    fsErrorCode copy_to_move();

    // After a failure, the path that it concerns.
    const std::string &culprit() const noexcept { return m_culprit; }

private:
    // How something comes to its place.
    enum class arrival : unsigned char {
        in_fresh,  // below a folder that this copy has made, so that nothing is in the way
        anew,
        over,     // another file or link
        instead,  // of anything
        merged,   // into another folder
        asked     // by what is there
    };
    struct target {
        int folder;
        const char *name;
        arrival way;
    };
    struct source {
        int folder;
        const char *name;
        system::links way;
    };
    struct level {
        system::directory listing;
        system::status told;
    };

    fsErrorCode check_source(const std::string &host, fsRecursiveCopyMode mode, const std::string &to_host,
                             system::status &told);
    fsErrorCode choose_arrival(const place &to, fsRecursiveCopyMode mode, const std::string &from_host,
                               const system::status &told, arrival &way);
    fsErrorCode resolve(target &to, bool is_folder);
    fsErrorCode copy_entry(const source &from, system::entry_kind kind, target to, std::size_t depth);
    fsErrorCode copy_file(const source &from, target to);
    fsErrorCode fill_file(int from, const system::status &told, int to);
    fsErrorCode copy_link(const source &from, target to, std::size_t depth);
    fsErrorCode copy_link_itself(const source &from, target to);
    fsErrorCode copy_folder(const source &from, target to, std::size_t depth);
    fsErrorCode copy_entries(int to, arrival way, std::size_t depth);
    fsErrorCode open_level(const source &from, std::size_t depth);
    fsErrorCode finish_folder(int to, std::size_t depth);
    fsErrorCode put(new_entry &made, arrival way);
    fsErrorCode refuse_kind();
    fsErrorCode refuse_circle(const std::string &where);

    fsErrorCode fail(const tree_path &where) { return fail(last_code(), where); }
    fsErrorCode fail(fsErrorCode code, const tree_path &where);

    tree_path m_from, m_to;
    const std::string m_top_to;
    std::string m_culprit;
    const fsSoftLinkCopyMode m_link_mode;
    system::keeping m_kept = system::keeping::plain;
    bool m_may_be_unnamed = true;
    std::deque<level> m_levels;
    system::identity m_top_folder;  // what is copied into, once it is there
    system::content_copier m_copier;
    system::content_copier::observer m_watcher;
    progress m_progress;
    double m_files = 0, m_bytes = 0;
};

}  // namespace kel::detail
