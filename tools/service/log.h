// The log of a daemon, and what any program complains of before it has one.
#pragma once

#include <fstream>
#include <mutex>
#include <string>
#include <utility>

namespace service {

// Lines with the time, at the end of a file; or without, on standard error, behind the program's name. Any
// thread.
class log_writer {
public:
    explicit log_writer(std::string program) : m_program(std::move(program)) {}
    bool open(const std::string &path);  // "": standard error
    void write(const std::string &line);

private:
    std::string m_program;
    std::mutex m_guard;
    std::ofstream m_file;
};

}  // namespace service
