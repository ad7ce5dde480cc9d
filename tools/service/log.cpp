#include "log.h"

#include <chrono>
#include <ctime>
#include <iostream>

#include <kelstdmt/vumtext.h>

namespace service {

bool log_writer::open(const std::string &path) {
    if (!path.empty()) m_file.open(btkHostPath(path.c_str()), std::ios::app);
    return path.empty() || m_file.is_open();
}

void log_writer::write(const std::string &line) {
    const std::lock_guard held(m_guard);
    if (!m_file.is_open()) {
        std::cerr << m_program + ": " + line + "\n" << std::flush;
        return;
    }
    const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    char text[32] = "";
    if (const std::tm *time = std::localtime(&now))
        std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S%z ", time);
    // A disk that was full may have room again.
    m_file.clear();
    m_file << text << line << std::endl;
}

}  // namespace service
