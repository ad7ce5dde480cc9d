// What the file library needs of single nodes of the host. Paths are host paths, and links are followed
// unless something else is said. Failures leave the last error.
#pragma once

#include <cstddef>

#include "runtime/owned_descriptor.h"

namespace kel::system {

struct node {
    unsigned mode = 0;       // kind and permission bits, as the host keeps them
    long long size = 0;      // bytes
    long long stored = 0;    // bytes that take up room on the disk
    long long modified = 0;  // whole seconds since the epoch
};
constexpr unsigned kind_bits = 0xF000, folder_kind = 0x4000, file_kind = 0x8000, link_kind = 0xA000;

bool query(const char *host_path, node &told) noexcept;
bool query(int file, node &told) noexcept;
// For this user, on the file system of the node, which must exist; negative on failure.
double available_bytes(const char *host_path) noexcept;

// What a caller can work with. What is stored lies on a disk and has an end; anything else may also be a FIFO
// or a terminal, for which opening waits as usual. Others give the last error 50; a folder gives 5.
enum class file_demand : unsigned char { any, stored };

struct open_file {
    owned_descriptor file;  // empty when it could not be opened
    node told;              // as it was when it was opened

    bool is_plain() const noexcept { return (told.mode & kind_bits) == file_kind; }
};
// For reading from start to end; the system reads ahead.
open_file open_to_read(const char *host_path, file_demand demand);
// Makes the file when there is none; leaves what is in it.
open_file open_to_write(const char *host_path, file_demand demand);
// A new empty file that only its owner may use; never through a link. The last error is 80 when the name is
// taken.
owned_descriptor make_file(const char *host_path);
bool close_file(owned_descriptor file) noexcept;

// Of plain files that are shared in this way, many may be read at a time, but one that is written is not
// opened a second time: error 32. Hosts that have no such locks refuse nothing. Ends with the second call, or
// with the last copy of the descriptor.
bool take_share(int file, bool to_write) noexcept;
void give_back_share(int file) noexcept;

// Answers how many bytes were moved; fewer than asked are the end of what there is to read at the time, or a
// failure. -1: failed, nothing was read.
long long read_bytes(int file, void *to, std::size_t count);
// For a plain file; others raise the signal of pipes here.
std::size_t write_bytes(int file, const void *from, std::size_t count);
// For others.
std::size_t write_stream(int file, const void *from, std::size_t count);

enum class seek_from : unsigned char { start, current, end };
bool seek(int file, seek_from from, long long offset) noexcept;

// The next stretch of data at or behind a position of a sparse file; what is between reads as zeros. Where no
// data follows, both are the size. The position of the file may have moved.
struct stretch {
    long long from, to;
};
bool next_data(int file, long long position, stretch &found) noexcept;

// From one size to a larger one: with zeros that have their room on the disk. On failure the size is as
// before.
bool grow_file(int file, long long from, long long to);

}  // namespace kel::system
