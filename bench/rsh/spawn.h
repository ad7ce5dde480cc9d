// A program of this machine with its input and output at pipes of ours.
#pragma once

#include "work.h"

namespace bench {

// -1 is none.
struct Descriptor {
    int number = -1;
    Descriptor() = default;
    explicit Descriptor(int owned) : number(owned) {}
    Descriptor(Descriptor &&other) noexcept : number(other.number) { other.number = -1; }
    Descriptor &operator=(Descriptor &&) = delete;
    ~Descriptor() { close(); }
    void close();
};

struct Pipe {
    Descriptor read, write;
};
Pipe make_pipe();  // throws Gone

// Both go on after a signal; throw Gone.
void write_all(int descriptor, const char *bytes, std::size_t count);
std::size_t read_all(int descriptor, char *bytes, std::size_t count);  // fewer only at the end

// Waits for it. -1 when it did not exit by itself.
int code_of(pid_t process);

// Throws Gone when it cannot be started.
class SpawnedCommand : public Command {
public:
    explicit SpawnedCommand(const std::vector<std::string> &words);
    ~SpawnedCommand() override;
    void write(const char *bytes, std::size_t count) override { write_all(m_in.write.number, bytes, count); }
    void end_input() override { m_in.write.close(); }
    std::size_t read(char *bytes, std::size_t count) override {
        return read_all(m_out.read.number, bytes, count);
    }
    int await() override;

    int in() const { return m_in.write.number; }
    int out() const { return m_out.read.number; }

private:
    Pipe m_in, m_out;
    pid_t m_id = -1;
};
std::vector<std::string> split(const std::string &words);

}  // namespace bench
