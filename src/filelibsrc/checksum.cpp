// The checksum of a file: its stretches of data are read, and its holes only count.
#include <algorithm>
#include <limits>
#include <memory>
#include <string>

#include <kelstdmt/filelib_nodes.h>
#include <kelstdmt/vumrt_stream.h>

#include "filelibsrc/byte_sums.h"
#include "filelibsrc/path_checks.h"
#include "filelibsrc/progress.h"
#include "runtime/nodes.h"

using kel::detail::checked_path;
using kel::detail::throw_last;
using kel::system::file_demand;
using kel::system::open_file;

namespace {

// Within the second cache of most processors, so that what the system has copied there is still there when it
// is looked at.
struct alignas(64) block {
    unsigned char bytes[256 * 1024];
};

class checksum {
public:
    checksum(const std::string &path, const kel::file_observer *observer)
        : m_path(path), m_progress(observer), m_block(std::make_unique_for_overwrite<block>()) {}

    int of_file() {
        open_file opened =
            kel::system::open_to_read(btkHostPath(m_path.c_str()).c_str(), file_demand::stored);
        if (!opened.file) fail();
        const int file = opened.file.get();
        if (opened.is_plain() && opened.told.stored < opened.told.size) add_stretches(file);
        add(file, std::numeric_limits<long long>::max());
        if (!kel::system::close_file(std::move(opened.file))) fail();
        m_progress.finish(m_path.c_str(), 1, m_sums.bytes());
        return static_cast<int>(m_sums.value());
    }

private:
    // Over the holes, which only count. Ends where the file does, or where the host cannot tell what follows.
    void add_stretches(int file) {
        kel::system::stretch data{};
        long long at = 0, got = 0;
        while (kel::system::next_data(file, at, data)) {
            m_sums.skip(data.from - at);
            if (!kel::system::seek(file, kel::system::seek_from::start, data.from)) fail();
            got = add(file, data.to - data.from);
            at = data.from + got;
            if (got == 0) break;
        }
        if (!kel::system::seek(file, kel::system::seek_from::start, at)) fail();
    }

    // Answers how many bytes there were before the end of the file.
    long long add(int file, long long limit) {
        long long done = 0;
        while (done < limit) {
            const auto part = static_cast<std::size_t>(std::min<long long>(sizeof(block), limit - done));
            const long long got = kel::system::read_bytes(file, m_block->bytes, part);
            if (got < 0) fail();
            if (got == 0) break;
            m_sums.add(m_block->bytes, static_cast<std::size_t>(got));
            m_progress.tell(m_path.c_str(), 0, m_sums.bytes());
            done += got;
        }
        return done;
    }

    [[noreturn]] void fail() const { throw_last("fsCalculateCheckSum", m_path); }

    const std::string &m_path;
    kel::detail::progress m_progress;
    std::unique_ptr<block> m_block;
    kel::detail::byte_sums m_sums;
};

int checksum_of(const char *path, const kel::file_observer *observer) {
    const std::string checked = checked_path(path, "fsCalculateCheckSum");
    return checksum(checked, observer).of_file();
}

}  // namespace

int fsCalculateCheckSum(const char *path) {
    return checksum_of(path, nullptr);
}

int kel::calculate_check_sum(const char *path, const file_observer &observer) {
    return checksum_of(path, &observer);
}
