#include "progress.h"

#include <filesystem>
#include <iostream>

namespace {

bool ErrorsGoToTerminal() {
    std::error_code ignored;
    static const bool terminal = std::filesystem::is_character_file("/dev/stderr", ignored);
    return terminal;
}

}  // namespace

void Progress::Show(const char *unit) {
    clock::time_point now = clock::now();
    if (now < m_next || m_what.empty() || !ErrorsGoToTerminal()) return;
    m_next = now + std::chrono::milliseconds(200);
    m_shown = true;
    std::cerr << "\r\033[K" << m_what << ": " << m_items << ' ' << unit << std::flush;
}

void Progress::Wipe() {
    if (m_shown) std::cerr << "\r\033[K" << std::flush;
    m_shown = false;
}
