// The content of one file into another, by descriptor and by the shortest way that the host offers.
//
// A new file has no name until its content is whole, where the file system can do that: who is killed in the
// middle leaves nothing behind.
#pragma once

#include <functional>
#include <limits>
#include <memory>

#include "runtime/tree.h"

namespace kel::system {

// A plain file to read from; anything else is refused without waiting, with the last error 50 unless it is
// a folder or a link that is not to be followed.
outcome open_source(int folder, const char *name, links way, owned_descriptor &opened, status &told);
// To be written by its maker alone.
outcome make_file(int folder, const char *name, owned_descriptor &made);
outcome make_unnamed(int folder, owned_descriptor &made);
// The name must be free.
outcome give_name(int file, int folder, const char *name) noexcept;
// What the descriptor alone can know: late failures of what was written.
outcome close_written(owned_descriptor file) noexcept;
// Waits until it is on the disk: a file, or all that was written to the file system of a folder.
outcome settle(int node, bool with_all);

// Knows which ways have turned out to be closed, so it is kept for many files. For one thread.
class content_copier {
public:
    enum class side : unsigned char { none, source, target };
    content_copier();

    using observer = std::function<void(long long bytes)>;  // told the bytes of each step

    // From the start to the size that is told, or to the end of a file that is shorter or tells no size; the
    // target is empty. Holes stay holes. Answers which side failed, with the last error.
    side copy(int source, const status &told, int target, const observer *watcher);

private:
    enum class step_way : unsigned char { in_kernel, by_pages, by_memory };
    struct job {
        int source, target;
        const observer *watcher;
        long long at, goal;
        bool is_sought = false;  // by_pages writes where the descriptor stands
    };

    side copy_sparse(job &work, long long size);
    side copy_stretch(job &work);
    // Bytes moved; 0 at the end of the source, -1 for a failure of a side, with errno.
    long long step(job &work, side &failed);
    long long step_by_memory(job &work, std::size_t count, side &failed);

    // Beyond this size the system would end the process with a signal.
    long long m_limit = std::numeric_limits<long long>::max();
    step_way m_way = step_way::in_kernel;
    std::unique_ptr<char[]> m_memory;
};

}  // namespace kel::system
