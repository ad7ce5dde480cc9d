#include "memory.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <deque>
#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>
#include <thread>
#include <vector>

namespace bench {
namespace {

std::size_t private_bytes(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/smaps_rollup");
    std::size_t kibibytes = 0;
    for (std::string word; file >> word;)
        if (word == "Private_Dirty:") file >> kibibytes;
    return kibibytes * 1'024;
}

struct Process {
    pid_t parent;
    std::string name;
};

// "7 (name) S 1 ...": the name may hold anything.
Process process_of(const std::filesystem::path &folder) {
    std::ifstream file(folder / "stat");
    std::string text;
    std::getline(file, text);
    const std::size_t open = text.find('('), close = text.rfind(')');
    if (open == std::string::npos || close == std::string::npos || text.size() < close + 4) return {0, ""};
    return {std::atoi(text.c_str() + close + 4), text.substr(open + 1, close - open - 1)};
}

// Of the process and all below it, but for the commands.
double bytes_of_side(pid_t root) {
    std::map<pid_t, Process> processes;
    for (const auto &entry : std::filesystem::directory_iterator("/proc"))
        if (const pid_t id = std::atoi(entry.path().filename().c_str()))
            processes[id] = process_of(entry.path());
    auto is_below = [&](pid_t id) {
        for (std::size_t i = 0; i < processes.size() && id > 0 && id != root; ++i)
            id = processes[id].parent;
        return id == root;
    };
    double bytes = 0;
    std::vector<pid_t> ids;
    for (const auto &[id, process] : processes)
        ids.push_back(id);
    for (pid_t id : ids)
        if (is_below(id) && processes[id].name != "cat") bytes += static_cast<double>(private_bytes(id));
    return bytes;
}

// Feeds a command on a thread of its own, whose memory is taken before the first measurement.
class Feeder {
public:
    Feeder() : m_thread([this] { run(); }) { m_ready.wait(false); }
    void feed(Command &command) {
        m_command = &command;
        m_command.notify_one();
    }
    void stop() { m_stopped = true; }
    std::size_t join() {
        m_thread.join();
        return m_fed;
    }
    std::size_t fed() const { return m_fed; }

private:
    void run() {
        char block[4'096] = {};
        m_ready = true;
        m_ready.notify_one();
        m_command.wait(nullptr);
        Command &command = *m_command;
        try {
            while (!m_stopped) {
                command.write(block, sizeof block);
                m_fed += sizeof block;
            }
            command.end_input();
        } catch (const Gone &) {  // less comes back then
        }
    }
    std::atomic<bool> m_ready = false, m_stopped = false;
    std::atomic<Command *> m_command = nullptr;
    std::atomic<std::size_t> m_fed = 0;
    std::thread m_thread;
};

void await_standstill(const std::deque<Feeder> &feeders) {
    std::size_t before = 1, now = 0;
    while (before != now) {
        usleep(300'000);
        before = now;
        now = 0;
        for (const Feeder &feeder : feeders)
            now += feeder.fed();
    }
}

std::size_t count_output(Command &command) {
    std::vector<char> block(65'536);
    std::size_t count = 0;
    while (const std::size_t got = command.read(block.data(), block.size()))
        count += got;
    return count;
}

Memory measure(Shell &shell) {
    constexpr std::size_t count = 10;
    std::deque<Feeder> feeders(count);
    const double client = bytes_of_side(getpid()), server = bytes_of_side(shell.server());
    std::vector<std::unique_ptr<Command>> commands;
    for (Feeder &feeder : feeders) {
        commands.push_back(shell.start("cat"));
        feeder.feed(*commands.back());
    }
    await_standstill(feeders);
    const Memory taken{(bytes_of_side(getpid()) - client) / count,
                       (bytes_of_side(shell.server()) - server) / count};
    for (Feeder &feeder : feeders)
        feeder.stop();
    bool right = true;
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t read = count_output(*commands[i]);
        right = feeders[i].join() == read && commands[i]->await() == 0 && right;
    }
    if (!right) throw std::runtime_error("another number of bytes comes back");
    return taken;
}

}  // namespace

// In a child, in which every page that is written to from now on counts as new, also one that runs before
// have left on the heap.
Memory memory_of_stuck_commands(Shell &shell) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    const pid_t child = fork();
    if (child == 0) {
        try {
            const Memory taken = measure(shell);
            _exit(write(ends[1], &taken, sizeof taken) == sizeof taken ? 0 : 1);
        } catch (const std::exception &) {
            _exit(1);
        }
    }
    close(ends[1]);
    Memory taken;
    const bool there = read(ends[0], &taken, sizeof taken) == sizeof taken;
    close(ends[0]);
    if (child > 0) waitpid(child, nullptr, 0);
    if (!there) throw std::runtime_error("another number of bytes comes back");
    return taken;
}

}  // namespace bench
