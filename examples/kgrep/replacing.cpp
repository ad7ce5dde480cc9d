#include "replacing.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <random>
#include <vector>

#include "printing.h"

namespace fs = std::filesystem;

namespace {

[[noreturn]] void Fail(const std::string &what, int error) {
    throw NotReplaced{what + ": " + std::strerror(error)};
}

void Check(const std::error_code &error) {
    if (error) throw NotReplaced{error.message()};
}

}  // namespace

Replacer::Replacer(const Options &options, Pattern &pattern, const std::string &path)
    : m_options(options), m_pattern(pattern) {
    std::error_code error;
    m_path = fs::canonical(path, error);
    Check(error);
    if (!fs::is_regular_file(m_path, error)) throw NotReplaced{"only files can be replaced"};
}

Replacer::~Replacer() {
    if (!m_new) return;
    std::error_code ignored;
    fs::remove(m_new_path, ignored);
}

bool Replacer::BlockBegins(const Blocks &block) {
    m_binary = block.IsBinary();
    if (m_binary && m_new) throw NotReplaced{"binary file matches"};
    return true;
}

bool Replacer::OtherLines(const char *begin, const char *end) {
    Write(begin, static_cast<std::size_t>(end - begin));
    return true;
}

bool Replacer::MatchingLine(const Line &line) {
    const bool change = m_lines < m_options.max_count;
    if (change && m_binary) throw NotReplaced{"binary file matches"};
    if (change && !m_new) Start();
    m_line.clear();
    if (change)
        AppendReplaced(m_pattern, m_options, line, m_line);
    else
        m_line = line.text();
    if (line.ended) m_line += '\n';
    m_lines += change;
    Write(m_line.data(), m_line.size());
    return true;
}

std::uint64_t Replacer::Finish() {
    if (!m_new) return 0;
    if (std::fclose(m_new.release()) != 0) {
        int error = errno;
        std::error_code ignored;
        fs::remove(m_new_path, ignored);
        Fail(m_new_path, error);
    }
    std::error_code error, ignored;
    fs::rename(m_new_path, m_path, error);
    if (error) fs::remove(m_new_path, ignored);
    Check(error);
    return m_lines;
}

void Replacer::Start() {
    CreateBeside();
    std::error_code error;
    // Before a byte is in it: nobody reads there what he may not read here.
    fs::perms permissions = fs::status(m_path, error).permissions();
    if (!error) fs::permissions(m_new_path, permissions, error);
    Check(error);
    CopyBeginning();
}

void Replacer::CreateBeside() {
    std::random_device chance;
    for (int tries = 0; tries < 100; ++tries) {
        m_new_path = m_path.parent_path() / (".kgrep-" + std::to_string(chance()));
        m_new.reset(std::fopen(m_new_path.c_str(), "wbx"));  // x: only a new one
        if (m_new) return;
        if (errno != EEXIST) break;
    }
    Fail(m_new_path, errno);
}

// What was told before there was a new file.
void Replacer::CopyBeginning() {
    File old(std::fopen(m_path.c_str(), "rb"));
    if (!old) Fail(m_path, errno);
    std::vector<char> block(1 << 16);
    for (std::uint64_t left = std::exchange(m_bytes, 0); left > 0;) {
        std::size_t wanted = static_cast<std::size_t>(std::min<std::uint64_t>(left, block.size()));
        std::size_t count = std::fread(block.data(), 1, wanted, old.get());
        if (count == 0) throw NotReplaced{"it changes while it is read"};
        Write(block.data(), count);
        left -= count;
    }
}

void Replacer::Write(const char *bytes, std::size_t count) {
    m_bytes += count;
    if (m_new && std::fwrite(bytes, 1, count, m_new.get()) != count) Fail(m_new_path, errno);
}
