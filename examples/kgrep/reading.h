// Bytes of a file or of the standard input, in blocks of whole lines.
//
// A block is as much as one reading gives, cut behind its last line end; the rest begins the next block. So
// a line may be of any length up to a limit, each byte is moved a few times at most, and memory depends on
// the longest line only. From its first NUL on a file counts as binary, and every NUL ends a line.
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

// A file that cannot be read; the reason as the system gives it.
struct Unreadable {
    std::string reason;
};

// A file; "-" is the standard input, of which a reading gives what has arrived.
class Input {
public:
    explicit Input(const std::string &path);  // throws an Unreadable

    // At least one byte, except at the end. Throws an Unreadable.
    std::size_t Read(char *to, std::size_t room);
    bool IsStream() const { return !m_file; }

private:
    struct Close {
        void operator()(std::FILE *file) const { std::fclose(file); }
    };
    std::unique_ptr<std::FILE, Close> m_file;
    std::string m_path;
    bool m_ended = false;
};

class Blocks {
public:
    static constexpr std::size_t longest_line = std::size_t{1} << 30;

    // To begin with another file. The folding table, if any, makes the second text of each block.
    void Begin(Input &input, const char *folding);
    // Makes the next block; false at the end. Throws an Unreadable.
    bool Next();

    // The lines; the last one of a file may lack its end. A NUL stands behind both texts.
    const char *begin() const { return m_bytes.data(); }
    const char *end() const { return m_bytes.data() + m_end; }
    // The text that is searched, as long as the block. A search ends lines there with a NUL and puts back
    // what it found.
    char *searched() { return m_folding ? m_folded.data() : m_bytes.data(); }
    bool IsBinary() const { return m_binary; }

private:
    bool ReadMore();
    void Fold();

    Input *m_input = nullptr;
    const char *m_folding = nullptr;
    std::vector<char> m_bytes, m_folded;
    std::size_t m_end = 0, m_filled = 0;
    char m_kept = 0;  // the byte behind the block, where the NUL stands
    bool m_binary = false;
};
