// The roof: starts the roles, reads from /proc what they take, and judges. Two bounds: after the warm-up
// nobody takes more than what he took at most during it, and a little; and once the clients are gone, the
// servers hold as many descriptors and threads as before they came.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <memory>
#include <thread>
#include <vector>

#include "soak.h"

extern char **environ;

namespace soak {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr double more_memory = 1.1, more_descriptors = 1.25;  // than the peak of the warm-up, and besides:
constexpr long spare_kib = 4'096, spare_descriptors = 20;
constexpr double patience = 60;  // seconds until the servers must have let go
// Descriptors are judged by the lowest of so many looks, four in a second: a server that was kept from
// running takes in what has queued up, most of it reset by then, and lets go of it at once; a leak raises the
// lowest.
constexpr std::size_t looks = 20;

struct Taken {
    long kib = 0, descriptors = 0, threads = 0;
    void raise(const Taken &other) {
        kib = std::max(kib, other.kib);
        descriptors = std::max(descriptors, other.descriptors);
        threads = std::max(threads, other.threads);
    }
};

long entries(const std::string &folder) {
    std::error_code failed;
    fs::directory_iterator entry(folder, failed);
    return failed ? 0 : static_cast<long>(std::distance(begin(entry), end(entry)));
}

class Scratch {
public:
    Scratch() {
        std::string pattern = fs::temp_directory_path() / "kelstdmt-soak-XXXXXX";
        if (!mkdtemp(pattern.data())) throw std::runtime_error("no folder for the soak");
        m_path = pattern;
    }
    ~Scratch() {
        std::error_code ignored;
        fs::remove_all(m_path, ignored);
    }
    std::string path() const { return m_path; }

private:
    fs::path m_path;
};

// A role in its process, until this object goes.
class Role {
public:
    Role(std::string name, const std::string &self, const std::string &page, const std::string &extra)
        : m_name(std::move(name)) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
        const char *words[] = {self.c_str(), "--role", m_name.c_str(), page.c_str(), extra.c_str(), nullptr};
        const int failed =
            posix_spawn(&m_id, self.c_str(), &actions, nullptr, const_cast<char **>(words), environ);
        posix_spawn_file_actions_destroy(&actions);
        close(ends[1]);
        m_out.reset(fdopen(ends[0], "r"));
        if (failed || std::fscanf(m_out.get(), "%d", &m_port) != 1)
            throw std::runtime_error("the role " + m_name + " did not start");
    }
    ~Role() {
        if (!m_ended) kill(m_id, SIGKILL);
        if (!m_ended) waitpid(m_id, nullptr, 0);
    }
    Role(const Role &) = delete;
    Role &operator=(const Role &) = delete;

    const std::string &name() const { return m_name; }
    int port() const { return m_port; }
    bool has_ended() {
        if (!m_ended) m_ended = waitpid(m_id, &m_status, WNOHANG) == m_id;
        return m_ended;
    }
    bool ended_well() const { return m_ended && m_status == 0; }
    Taken taken() const {
        const std::string folder = "/proc/" + std::to_string(m_id);
        long pages = 0, resident = 0;
        std::unique_ptr<FILE, int (*)(FILE *)> file(std::fopen((folder + "/statm").c_str(), "r"),
                                                    std::fclose);
        if (!file || std::fscanf(file.get(), "%ld %ld", &pages, &resident) != 2) resident = 0;
        return {resident * (sysconf(_SC_PAGESIZE) / 1'024), entries(folder + "/fd"),
                entries(folder + "/task")};
    }

    // Of the last looks.
    long lowest_descriptors(long now) {
        m_descriptors.push_back(now);
        if (m_descriptors.size() > looks) m_descriptors.pop_front();
        return *std::min_element(m_descriptors.begin(), m_descriptors.end());
    }

    Taken at_first, peak;

private:
    std::deque<long> m_descriptors;
    std::string m_name;
    pid_t m_id = -1;
    int m_port = 0, m_status = 0;
    bool m_ended = false;
    std::unique_ptr<FILE, int (*)(FILE *)> m_out{nullptr, std::fclose};
};

class Watch {
public:
    Watch(const Options &options, const std::string &self) : m_options(options) {
        const std::string page = m_scratch.path() + "/page";
        m_page = &shared(page);
        setenv("KELSTDMT_SOAK_PAGE", page.c_str(), 1);
        setenv("KELSTDMT_REGISTRY", m_scratch.path().c_str(), 1);
        m_roles.push_back(std::make_unique<Role>("names", self, page, m_scratch.path()));
        setenv("ORVNMSPORT", std::to_string(m_roles[0]->port()).c_str(), 1);
        m_roles.push_back(std::make_unique<Role>("threads", self, page, ""));
        m_roles.push_back(std::make_unique<Role>("loop", self, page, ""));
        for (auto &role : m_roles)
            role->at_first = role->taken();
        m_roles.push_back(std::make_unique<Role>("clients", self, page, std::to_string(options.clients)));
    }

    int run() {
        const double warm = std::clamp(m_options.seconds / 5, 3.0, 300.0);
        std::printf(
            "warm-up: %.0f s; then memory may be %.0f %% of its peak and %ld KiB, descriptors %.0f %% and "
            "%ld\n",
            warm, more_memory * 100, spare_kib, more_descriptors * 100, spare_descriptors);
        head();
        const auto begin = Clock::now();
        auto seconds = [&] { return std::chrono::duration<double>(Clock::now() - begin).count(); };
        double next = std::min(m_options.every, m_options.seconds);
        while (m_right && seconds() < m_options.seconds) {
            std::this_thread::sleep_for(std::chrono::milliseconds(250));
            look(seconds() < warm);
            if (seconds() < next) continue;
            report(seconds());
            next += m_options.every;
        }
        report(seconds());
        settle();
        for (int i = 0; i < Failures; ++i)
            judge(m_page->counts[static_cast<std::size_t>(i)] > 0,
                  std::string("nothing was done of: ") + counter_names[i]);
        judge(m_page->counts[Failures] == 0, "operations failed");
        std::printf(m_right ? "flat\n" : "NOT flat\n");
        return m_right ? 0 : 1;
    }

private:
    void judge(bool right, const std::string &what) {
        if (right) return;
        m_right = false;
        std::printf("WRONG: %s\n", what.c_str());
    }

    void look(bool warming) {
        for (auto &role : m_roles) {
            judge(!role->has_ended(), role->name() + " has ended");
            const Taken now = role->taken();
            if (warming) {
                role->peak.raise(now);
                continue;
            }
            const long kib = static_cast<long>(static_cast<double>(role->peak.kib) * more_memory) + spare_kib;
            const long descriptors =
                static_cast<long>(static_cast<double>(role->peak.descriptors) * more_descriptors) +
                spare_descriptors;
            judge(now.kib <= kib, role->name() + ": " + std::to_string(now.kib) + " KiB, the bound is " +
                                      std::to_string(kib));
            const long lowest = role->lowest_descriptors(now.descriptors);
            judge(lowest <= descriptors, role->name() + ": " + std::to_string(lowest) +
                                             " descriptors and more for seconds, the bound is " +
                                             std::to_string(descriptors));
        }
    }

    void head() const {
        std::printf("seconds");
        for (const char *name : counter_names)
            std::printf(" %9s", name);
        for (auto &role : m_roles)
            std::printf("  %8s KiB fds", role->name().c_str());
        std::printf("\n");
    }
    void report(double seconds) const {
        std::printf("%7.0f", seconds);
        for (const auto &count : m_page->counts)
            std::printf(" %9lld", count.load());
        for (auto &role : m_roles) {
            const Taken now = role->taken();
            std::printf("  %12ld %3ld", now.kib, now.descriptors);
        }
        std::printf("\n");
        std::fflush(stdout);
    }

    // The clients let go of everything; then the servers must too.
    void settle() {
        const auto begin = Clock::now();
        m_page->stop = true;
        Role &clients = *m_roles.back();
        judge(await([&] { return clients.has_ended(); }) && clients.ended_well(),
              "the clients did not end well");
        for (std::size_t i = 0; i + 1 < m_roles.size(); ++i) {
            Role &role = *m_roles[i];
            const bool settled = await([&] {
                const Taken now = role.taken();
                return now.descriptors <= role.at_first.descriptors && now.threads <= role.at_first.threads;
            });
            const Taken now = role.taken();
            judge(settled, role.name() + " holds " + std::to_string(now.descriptors) + " descriptors and " +
                               std::to_string(now.threads) + " threads, at first " +
                               std::to_string(role.at_first.descriptors) + " and " +
                               std::to_string(role.at_first.threads));
        }
        std::printf("all let go within %.1f s\n",
                    std::chrono::duration<double>(Clock::now() - begin).count());
    }
    template <class Condition>
    static bool await(Condition condition) {
        const auto end = Clock::now() + std::chrono::duration<double>(patience);
        while (!condition()) {
            if (Clock::now() > end) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return true;
    }

    Options m_options;
    Scratch m_scratch;
    Shared *m_page;
    std::vector<std::unique_ptr<Role>> m_roles;
    bool m_right = true;
};

}  // namespace

Shared &shared(const std::string &path) {
    const int descriptor = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (descriptor < 0 || ftruncate(descriptor, sizeof(Shared)) != 0)
        throw std::runtime_error("no page: " + path);
    void *page = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    close(descriptor);
    if (page == MAP_FAILED) throw std::runtime_error("no page: " + path);
    return *static_cast<Shared *>(page);
}

void fail(Shared &page, const std::string &what) {
    if (page.counts[Failures]++ < 20) std::fprintf(stderr, "failed: %s\n", what.c_str());
}

int watch(const Options &options, const std::string &self) {
    try {
        return Watch(options, self).run();
    } catch (const std::exception &error) {
        std::fprintf(stderr, "soak: %s\n", error.what());
        return 2;
    }
}

}  // namespace soak
