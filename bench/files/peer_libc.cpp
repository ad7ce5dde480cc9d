// The system's own tools and calls: cp, rm and readdir, and what nobody can be faster than.
#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>

#include "cases.h"
#include "work.h"

extern char **environ;

namespace bench {
namespace {

void run(std::vector<const char *> arguments) {
    arguments.push_back(nullptr);
    pid_t child = 0;
    if (posix_spawnp(&child, arguments[0], nullptr, nullptr, const_cast<char **>(arguments.data()),
                     environ) == 0)
        waitpid(child, nullptr, 0);
}

class Descriptor {
public:
    Descriptor(const std::string &path, int flags) : m_fd(open(path.c_str(), flags | O_CLOEXEC)) {}
    ~Descriptor() { close(m_fd); }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    int get() const { return m_fd; }

private:
    int m_fd;
};

class Update {
public:
    explicit Update(const std::string &path) : m_file(path, O_RDWR) {}
    void put(int value) {
        std::uint32_t word = __builtin_bswap32(static_cast<std::uint32_t>(value));
        benchmark::DoNotOptimize(pwrite(m_file.get(), &word, 4, monitor_place));
    }

private:
    Descriptor m_file;
};

class Follow {
public:
    explicit Follow(const std::string &path) : m_file(path, O_RDONLY) {}
    long long read_all() {
        struct stat node;
        fstat(m_file.get(), &node);
        auto size = static_cast<std::size_t>(node.st_size);
        auto bytes = std::make_unique_for_overwrite<char[]>(size);
        ssize_t got = pread(m_file.get(), bytes.get(), size, 0);
        return sum_of_records(bytes.get(), static_cast<std::size_t>(got));
    }

private:
    Descriptor m_file;
};

}  // namespace

void add_coreutils(Suite &suite) {
    add_tree(
        suite, Library::Coreutils, "cp -r, rm -r",
        [](const std::string &from, const std::string &to) {
            run({"cp", "-r", from.c_str(), to.c_str()});
        },
        [](const std::string &folder) {
            run({"rm", "-r", folder.c_str()});
        });
}

void add_libc(Suite &suite) {
    add_list(suite, Library::Libc, "readdir, fnmatch", [](const std::string &folder) {
        std::vector<std::string> names;
        std::unique_ptr<DIR, int (*)(DIR *)> listing(opendir(folder.c_str()), closedir);
        while (dirent *entry = readdir(listing.get()))
            if (fnmatch("*7.txt", entry->d_name, 0) == 0) names.push_back(entry->d_name);
        return names.size();
    });
}

void add_floor(Suite &suite) {
    suite.add("sum", Library::Floor, "read", [](benchmark::State &state) {
        run_once(state, [&]() -> const char * {
            constexpr std::size_t size = 1 << 18;
            auto block = std::make_unique<char[]>(size);
            Descriptor file(big_file(), O_RDONLY);
            std::size_t done = 0;
            wall_phase(state, "a MiB", big_file_mib, [&] {
                while (ssize_t got = read(file.get(), block.get(), size))
                    done += static_cast<std::size_t>(got);
            });
            return done == big_file_mib << 20 ? nullptr : "another size";
        });
    });
    add_update<Update>(suite, Library::Floor, "pwrite");
    add_follow<Follow>(suite, Library::Floor, "pread");
}

}  // namespace bench
