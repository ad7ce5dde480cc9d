// Entries of folders by the descriptor of the folder: looked at, made, removed, renamed. What a path says may
// change while a tree is worked on; a folder that is open stays the folder it is, and a name in it is only
// followed through a link where `links::followed` says so.
//
// What a caller decides by is an outcome; whatever is not `done` leaves the last error.
#pragma once

#include <string>

#include "runtime/nodes.h"
#include "runtime/owned_descriptor.h"

namespace kel::system {

constexpr int here = -100;  // in place of a folder: the process's current one

enum class outcome : unsigned char {
    done,
    absent,       // the entry, or a folder on the way to it
    exists,       // what was to be made
    folder,       // where a file is asked for
    no_folder,    // where a folder is asked for; also a link that is not to be followed
    not_empty,    //
    elsewhere,    // on another file system
    unsupported,  // by this file system or this host
    failed
};
enum class links : unsigned char { seen, followed };

struct identity {
    unsigned long long device = 0, node = 0;
    friend bool operator==(const identity &, const identity &) = default;
};

struct instant {
    long long seconds = 0;
    long nanoseconds = 0;
    friend bool operator==(const instant &, const instant &) = default;
};

struct status {
    identity who;
    unsigned mode = 0;  // kind and permission bits
    unsigned long long names = 1;
    unsigned owner = 0, group = 0;
    long long size = 0, stored = 0;  // bytes
    instant modified;

    unsigned kind() const noexcept { return mode & kind_bits; }
};

outcome look(int folder, const char *name, links way, status &told) noexcept;
outcome look(int file, status &told) noexcept;

// A folder to work in: its entries can be reached and made, not listed, so that reading it need not be
// allowed. Of an empty name: the folder itself.
outcome reach_folder(int folder, const char *name, links way, owned_descriptor &opened);
// The same for all that a folder is good for; it must be readable.
outcome open_folder(int folder, const char *name, links way, owned_descriptor &opened);
// `mode` is narrowed by the process's mask.
outcome make_folder(int folder, const char *name, unsigned mode) noexcept;
outcome make_link(const char *text, int folder, const char *name) noexcept;
outcome read_link(int folder, const char *name, std::string &text);
outcome remove_file(int folder, const char *name) noexcept;
outcome remove_folder(int folder, const char *name) noexcept;  // an empty one

// Never over another entry.
outcome rename_new(int from_folder, const char *from, int to_folder, const char *to) noexcept;
// Over what is there, unless one of the two is a folder.
outcome rename_over(int folder, const char *from, const char *to) noexcept;
// Each gets the other's name. Where the file system cannot do that at once, it takes three steps, and after
// a failure both are as before.
outcome exchange(int folder, const char *one, const char *other) noexcept;

// Whether the folder is this one or stands below it.
bool stands_in(int folder, const identity &above);
// The host path without links; empty, with the last error, when there is no such node.
std::string real_path(const char *host_path);

// The node is this process's as long as the descriptor is open; `exists` when it is another's.
outcome hold(int node) noexcept;
bool is_mine(const status &told) noexcept;  // belongs to the user who the process runs for

// Bits of permission that can be given to a copy, without those that lend the owner's rights.
constexpr unsigned file_permissions = 0777, folder_permissions = 01777, lent_rights = 06000;

outcome set_mode(int node, unsigned mode) noexcept;
// Mode of a folder that is being filled or cleared away: for its maker alone.
constexpr unsigned unfinished = 0700;

// Permission and time of a node that is finished; `owner` gives it to the owner of `from` as far as this
// process may, with the rights that are lent by it and with the attributes of `source`, which `from` tells
// of.
enum class keeping : unsigned char { plain, owner };
outcome finish(int node, const status &from, keeping kept, int source);
outcome finish_link(int folder, const char *name, const status &from) noexcept;

}  // namespace kel::system
