#include "progress.h"

#include <filesystem>
#include <iostream>

namespace fs = std::filesystem;

Progress::Progress(bool wanted)
    : m_wanted(wanted && IsTerminal("/dev/stderr")), m_next(clock::now() + std::chrono::milliseconds(500)) {}

void Progress::Step(std::uint64_t selected) {
    ++m_files;
    if (!m_wanted) return;
    clock::time_point now = clock::now();
    if (now < m_next) return;
    m_next = now + std::chrono::milliseconds(200);
    m_shown = true;
    std::cerr << "\r\033[K" << m_files << " files, " << selected << " lines found" << std::flush;
}

void Progress::Wipe() {
    if (m_shown) std::cerr << "\r\033[K" << std::flush;
    m_shown = false;
}

bool IsTerminal(const char *path) {
    std::error_code ignored;
    return fs::is_character_file(path, ignored) && !fs::equivalent(path, "/dev/null", ignored);
}
