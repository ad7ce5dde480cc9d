#include "progress.h"

#include <cstdio>
#include <iostream>

#include "text.h"

namespace tool {

namespace {

Progress *shown_one = nullptr;

}  // namespace

Progress::Progress() : m_wanted(IsTerminal(Stream::error)) {
    shown_one = this;
}

Progress::~Progress() {
    Wipe();
    shown_one = nullptr;
}

kel::file_observer Progress::Observer() {
    return [this](const kel::file_progress &now) { Step(now); };
}

void Progress::Add() {
    m_files += m_now_files;
    m_bytes += m_now_bytes;
    m_now_files = m_now_bytes = 0;
}

void Progress::WipeAll() {
    if (shown_one) shown_one->Wipe();
}

void Progress::Step(const kel::file_progress &now) {
    if (Interruption::Signal()) throw Interrupted();
    m_now_files = now.files;
    m_now_bytes = now.bytes;
    if (!m_wanted || clock::now() < m_next) return;
    m_next = clock::now() + std::chrono::milliseconds(200);
    Show(now);
}

void Progress::Show(const kel::file_progress &now) {
    double bytes = m_bytes + m_now_bytes;
    double seconds = std::chrono::duration<double>(clock::now() - m_start).count();
    char files[48];
    std::snprintf(files, sizeof files, "%.0f files, ", m_files + m_now_files);
    std::string line = files + SizeText(bytes) + ", " + SizeText(bytes / seconds) + "/s";
    if (now.path) line += "  " + PrintablePath(now.path);
    // The last column stays free: some terminals would go to the next line.
    std::cerr << '\r' << Fitted(line, SizeOf(Stream::error).columns - 1) << "\033[K" << std::flush;
    m_shown = true;
}

void Progress::Wipe() {
    if (m_shown) std::cerr << "\r\033[K" << std::flush;
    m_shown = false;
}

}  // namespace tool
