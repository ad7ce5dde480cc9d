// The names in a folder of the host, by descriptor: a folder that is swapped for a link in the middle of the
// work changes nothing for a listing that is open. The kernel's blocks are walked as they are, so a listing
// of any length costs one descriptor and one block, and the kind of most entries is known without asking.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

#include "runtime/owned_descriptor.h"

namespace kel::system {

// What the folder tells of an entry, itself and not its target; some file systems tell nothing.
enum class entry_kind : unsigned char { untold, file, folder, link, other };

struct directory_entry {
    const char *name = nullptr;  // terminated; until the next call of the listing
    std::size_t size = 0;        // bytes of the name
    entry_kind kind = entry_kind::untold;

    std::string_view view() const noexcept { return {name, size}; }
};

enum class listing_step : unsigned char { entry, end, failed };

// Every failure leaves the last error. For one thread at a time.
class directory {
public:
    // By a host path, through links. An open listing is closed first.
    bool open(const char *host_path);
    // An entry of the folder that the descriptor is; never through a link.
    bool open_below(int folder, const char *name);
    // What the descriptor is, which is taken over; its position decides where the listing begins.
    void take(owned_descriptor folder) noexcept;
    void close() noexcept;

    // The next entry, without "." and "..", in the order of the file system. An entry that is removed while
    // the listing is open is told or not; each other one is told once.
    listing_step next(directory_entry &entry);

    bool is_open() const noexcept { return static_cast<bool>(m_folder); }
    int descriptor() const noexcept { return m_folder.get(); }

private:
    bool opened(int fd, const char *host_path) noexcept;
    listing_step fill();

    owned_descriptor m_folder;
    std::unique_ptr<char[]> m_block;
    std::size_t m_at = 0, m_filled = 0;
};

}  // namespace kel::system
