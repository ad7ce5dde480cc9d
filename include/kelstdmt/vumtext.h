// Text helpers: the locale's kind, wide text to and from the locale's and the neutral form, a plain
// string, locked files and the environment.
//
// Wide text is 16-bit units with surrogate pairs, ended by a zero unit.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <kelstdmt/export.h>
#include <kelstdmt/vumrt_stream.h>

// One byte for every character in the current locale: character positions are byte offsets.
KELSTDMT_API bool isLocaleSingle();

// The neutral form is UTF-8, in which a lone surrogate has its three-byte form, so that every wide text
// comes back as it was. Both answer the length of the result without its terminator.
// At most four bytes for a unit, and the terminator.
KELSTDMT_API std::size_t mbxWideToNeut(char *neutral, const unsigned short *wide);
// At most one unit for a byte, and the terminator. A malformed byte becomes U+FFFD.
KELSTDMT_API std::size_t mbxNeutToWide(const char *neutral, unsigned short *wide);

// To and from the multibyte form of the current locale: bytes or units without the terminator, or
// (size_t)-1 for a character that has no counterpart. At most max bytes or units are written, whole
// characters only, and the terminator if it still fits. A null out counts and writes nothing.
KELSTDMT_API std::size_t btkWideToNative(const unsigned short *wide, char *out, std::size_t max);
KELSTDMT_API std::size_t btkNativeToWide(const char *native, unsigned short *out, std::size_t max);

// A text or none.
class KELSTDMT_API dsString {
public:
    dsString() = default;
    explicit dsString(const char *text) { StrNew(text); }

    void StrNew(const char *text);                             // a copy; a null pointer and the markers: none
    bool StrEmpty() const noexcept { return m_text.empty(); }  // none, or without characters
    void Cleanup() noexcept;                                   // none, and its memory freed
    const char *Str() const noexcept { return m_text.c_str(); }  // never null

private:
    std::string m_text;
};

// True when the environment variable exists; its value, or none. Not while another thread changes the
// environment.
KELSTDMT_API bool Getenv(const char *name, dsString &value);

// A file buffer that holds a lock on its file: shared when opened for reading only, exclusive otherwise.
// The lock is advisory: it keeps out other lock holders (also in this process), not plain opens. It is a
// lock on the whole file that belongs to the open file, not to the process.
//
// A holder may replace its file as a whole. Whoever waited for the old one then goes on with the new one, so
// that all who hold a lock by one name hold it on one file. Regular files only.
class KELSTDMT_API lockFileBuf : public btkFileBuf {
public:
    static constexpr double LockWait = 5;  // seconds

    // FALSE when the file is open and locked, TRUE when it failed. Waits at most the given seconds for
    // other holders, then fails with the last error 33. Reading only does not create a missing file.
    // Emptying is left until the lock is held. Devices, FIFOs and sockets are refused (error 50).
    bool Open(const char *name, int mode, int protection = openprot, double wait = LockWait);
    // Puts a file with these bytes in the place of the open one, which must be open for writing, in one step:
    // a reader, and a machine that stops at any moment, finds the old bytes or the new ones whole. On success
    // the new bytes are on the disk, the new file is the open and locked one, with the position at its
    // beginning. Owner, group, permissions and extended attributes are kept; links by which the file was
    // opened stay and lead to the new file, while other hard links keep the old bytes. What was written
    // before and not flushed goes to the old file.
    //
    // False with the last error set, the old file as it was and still locked: the disk is full (112), the
    // folder may not be written or the owner not be kept (5), someone who takes no locks put another file
    // there (1006). A file that was only removed is made anew.
    bool Replace(std::string_view bytes);
    bool Close();  // releases file and lock; false as btkFileBuf::Close

private:
    std::string m_path;  // the host's, without links; set when open for writing
};
