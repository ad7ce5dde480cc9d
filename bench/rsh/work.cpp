#include "work.h"

#include <algorithm>
#include <barrier>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "harness/stopwatch.h"
#include "memory.h"

namespace bench {
namespace {

constexpr std::size_t block_size = 65'536, bulk_blocks = 8'192, bulk = bulk_blocks * block_size,
                      few = bulk / 8;

// Runs the work once on a shell that is opened for it; what it throws is a wrong result, unless it begins
// with cannot_prefix.
template <class Body>
void add_run(Suite &suite, const char *name, Library library, std::string way, OpenShell open, Body body) {
    suite.add(name, library, std::move(way), [open = std::move(open), body](benchmark::State &state) {
        std::string wrong;
        run_once(state, [&]() -> const char * {
            try {
                const std::unique_ptr<Shell> shell = open();
                body(state, *shell);
                return nullptr;
            } catch (const std::exception &error) {
                wrong = error.what();
                return wrong.c_str();
            }
        });
    });
}

void expect(bool right, const char *wrong) {
    if (!right) throw std::runtime_error(wrong);
}

// Time is kept for each of 10^6 bytes.
template <class Work>
void time_bulk(benchmark::State &state, std::size_t bytes, Work work) {
    time_wall_phase(state, "MB/s", 1, work);
    state.counters["MB/s"] = state.counters["MB/s"] * 1e6 / static_cast<double>(bytes);
}

// A block begins with its number, so that one that is lost, or comes in another's place, is seen.
void write_blocks(Command &command, std::size_t count) {
    std::vector<char> block(block_size, 'b');
    for (std::size_t i = 0; i < count; ++i) {
        std::memcpy(block.data(), &i, sizeof i);
        command.write(block.data(), block_size);
    }
    command.end_input();
}

// How many there are until the end.
std::size_t read_blocks(Command &command) {
    std::vector<char> block(block_size);
    std::size_t count = 0, number = 0;
    while (const std::size_t got = command.read(block.data(), block_size)) {
        std::memcpy(&number, block.data(), sizeof number);
        expect(got == block_size && number == count && block[block_size - 1] == 'b', "other bytes come back");
        ++count;
    }
    return count;
}

std::string read_text(Command &command) {
    char bytes[256];
    return {bytes, command.read(bytes, sizeof bytes)};
}

void run_short(Shell &shell, const std::string &words) {
    const std::unique_ptr<Command> command = shell.start(words);
    command->end_input();
    expect(read_text(*command).empty(), "output of nothing");
    expect(command->await() == 0, "another exit code");
}

constexpr char line[] = "a line of some length, as a person types it\n";
constexpr std::size_t line_size = sizeof line - 1;

void exchange_line(Command &command) {
    char answer[line_size];
    command.write(line, line_size);
    expect(command.read(answer, line_size) == line_size && std::memcmp(answer, line, line_size) == 0,
           "another line comes back");
}

void end(Command &command) {
    command.end_input();
    expect(read_text(command).empty(), "output behind the end");
    expect(command.await() == 0, "another exit code");
}

// The words write so many zeros.
void read_zeros(Shell &shell, const std::string &words, std::size_t wanted) {
    const std::unique_ptr<Command> command = shell.start(words);
    command->end_input();
    std::vector<char> block(block_size);
    std::size_t count = 0;
    while (const std::size_t got = command->read(block.data(), block_size)) {
        expect(block[0] == 0 && block[got - 1] == 0, "no zeros");
        count += got;
    }
    expect(count == wanted, "another number of bytes comes out");
    expect(command->await() == 0, "another exit code");
}

void read_all_at_once(Shell &shell) {
    read_zeros(shell, "head -c " + std::to_string(bulk) + " /dev/zero", bulk);
}

void read_pieces(Shell &shell) {
    read_zeros(shell, "dd if=/dev/zero bs=512 status=none count=" + std::to_string(few / 512), few);
}

void write_counted(Shell &shell) {
    const std::unique_ptr<Command> command = shell.start("wc -c");
    write_blocks(*command, bulk_blocks);
    expect(read_text(*command) == std::to_string(bulk) + "\n", "another number of bytes goes in");
    expect(command->await() == 0, "another exit code");
}

void write_and_read(Shell &shell) {
    const std::unique_ptr<Command> command = shell.start("cat");
    std::thread writer([&] {
        try {
            write_blocks(*command, bulk_blocks);
        } catch (const Gone &) {  // the reader sees it
        }
    });
    std::size_t count = 0;
    std::exception_ptr failed;
    try {
        count = read_blocks(*command);
    } catch (...) {
        failed = std::current_exception();
        while (read_text(*command).size()) {
        }
    }
    writer.join();
    if (failed) std::rethrow_exception(failed);
    expect(count == bulk_blocks, "another number of bytes comes back");
    expect(command->await() == 0, "another exit code");
}

}  // namespace

void add_short(Suite &suite, const char *name, Library library, std::string way, OpenShell open, int times,
               const std::string &words) {
    add_run(suite, name, library, std::move(way), std::move(open),
            [=](benchmark::State &state, Shell &shell) {
                run_short(shell, words);
                time_wall_phase(state, whole, static_cast<std::size_t>(times), [&] {
                    for (int i = 0; i < times; ++i)
                        run_short(shell, words);
                });
            });
}

void add_line(Suite &suite, Library library, std::string way, OpenShell open) {
    add_run(suite, "line", library, std::move(way), std::move(open),
            [](benchmark::State &state, Shell &shell) {
                constexpr int times = 1'000;
                const std::unique_ptr<Command> command = shell.start("cat");
                exchange_line(*command);
                time_wall_phase(state, whole, times, [&] {
                    for (int i = 0; i < times; ++i)
                        exchange_line(*command);
                });
                end(*command);
            });
}

void add_bulk(Suite &suite, Library library, std::string way, OpenShell open) {
    static constexpr struct {
        const char *name;
        std::size_t bytes;
        void (*work)(Shell &shell);
    } cases[] = {{"output", bulk, read_all_at_once},
                 {"pieces", few, read_pieces},
                 {"input", bulk, write_counted},
                 {"both", bulk, write_and_read}};
    for (const auto &each : cases)
        add_run(suite, each.name, library, way, open, [each](benchmark::State &state, Shell &shell) {
            time_bulk(state, each.bytes, [&] { each.work(shell); });
        });
}

// All hundred run before the first of them is given its line.
void add_crowd(Suite &suite, Library library, std::string way, OpenShell open) {
    add_run(suite, "crowd", library, std::move(way), std::move(open),
            [](benchmark::State &state, Shell &shell) {
                constexpr int count = 100;
                run_short(shell, "true");
                std::mutex mutex;
                std::string wrong;
                time_wall_phase(state, whole, 1, [&] {
                    std::barrier all_run(count);
                    std::vector<std::thread> threads;
                    auto run = [&] {
                        std::unique_ptr<Command> command;
                        try {
                            command = shell.start("cat");
                            all_run.arrive_and_wait();
                            exchange_line(*command);
                            end(*command);
                        } catch (const std::exception &error) {
                            if (!command) all_run.arrive_and_drop();
                            const std::scoped_lock lock(mutex);
                            wrong = error.what();
                        }
                    };
                    for (int i = 0; i < count; ++i)
                        threads.emplace_back(run);
                    for (std::thread &thread : threads)
                        thread.join();
                });
                if (!wrong.empty()) throw std::runtime_error(wrong);
            });
}

void add_memory(Suite &suite, Library library, std::string way, OpenShell open) {
    add_run(suite, "memory", library, std::move(way), std::move(open),
            [](benchmark::State &state, Shell &shell) {
                const Memory taken = memory_of_stuck_commands(shell);
                state.counters["bytes, client's side"] = taken.client;
                state.counters["bytes, server's side"] = taken.server;
            });
}

}  // namespace bench
