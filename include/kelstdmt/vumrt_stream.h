// Stream buffers, pipes and files.
//
// An xstreambuf wraps a std::streambuf and adds what the streams need beside it: trials, which look at
// the bytes that can be had now without consuming them, and events. A file buffer is a std::streambuf
// of its own.
//
// A buffer belongs to one thread at a time. No descriptor made here is inherited by a new program, and
// no write here ever raises SIGPIPE, whatever the program does with that signal.
#pragma once

#include <cstddef>
#include <istream>
#include <memory>
#include <streambuf>
#include <utility>

#include <kelstdmt/export.h>
#include <kelstdmt/vumrt.h>
#include <kelstdmt/vumrt_event.h>

namespace kel::detail {
class byte_channel;
class descriptor_buffer;
}  // namespace kel::detail

// Trials ---------------------------------------------------------------------------------------

// A read-only view of bytes that belong to someone else.
class KELSTDMT_API xtrystreambuf : public std::streambuf {
public:
    xtrystreambuf() = default;
    xtrystreambuf(const char *bytes, std::size_t count) { TakeBuf(bytes, count); }
    ~xtrystreambuf() override;

    void TakeBuf(const char *bytes, std::size_t count);
    void FreeBuf() noexcept { setg(nullptr, nullptr, nullptr); }
    std::size_t GetAvail() const noexcept { return static_cast<std::size_t>(egptr() - gptr()); }

protected:
    std::streamsize xsgetn(char *to, std::streamsize count) override;
    pos_type seekoff(off_type offset, std::ios_base::seekdir from, std::ios_base::openmode which) override;
    pos_type seekpos(pos_type position, std::ios_base::openmode which) override;
};

class KELSTDMT_API xstreambuf {
public:
    xstreambuf() = default;
    virtual ~xstreambuf();
    xstreambuf(const xstreambuf &) = delete;
    xstreambuf &operator=(const xstreambuf &) = delete;

    // For blocking reads, writes and flushes.
    std::streambuf *GetStreamBuf() const noexcept { return m_wrapped; }

    // Begins an input trial: a buffer with the bytes that can be had now without blocking, or null when
    // this buffer cannot try. Whatever is read from it, the position is as before after FreeTryIBuf.
    std::streambuf *GetTryIBuf() {
        m_eof_reached = false;
        return OnGetTryIBuf();
    }
    void FreeTryIBuf() { OnFreeTryIBuf(); }
    // The same for output; what commits is the buffer's choice.
    std::streambuf *GetTryOBuf() {
        m_eof_reached = false;
        return OnGetTryOBuf();
    }
    void FreeTryOBuf() { OnFreeTryOBuf(); }
    // The end of the last trial's bytes is the end of the data.
    bool IsEofReached() const noexcept { return m_eof_reached; }

    // A new event that the caller owns, or null when there is none. It may outlive the buffer and is
    // signalled from then on. It looks into the buffer, so it belongs to the thread that reads from it.
    virtual btkBaseEvent *GetInputEvent();
    virtual btkBaseEvent *GetOutputEvent();

    virtual int GetBufSize();           // bytes; 0 when that is not the buffer's to tell
    virtual int SetBufSize(int bytes);  // the size in force afterwards

protected:
    void InitStreamBuf(std::streambuf *wrapped) noexcept { m_wrapped = wrapped; }
    void SetEofReached() noexcept { m_eof_reached = true; }

    virtual std::streambuf *OnGetTryIBuf();  // default: null
    virtual void OnFreeTryIBuf();
    virtual std::streambuf *OnGetTryOBuf();  // default: null
    virtual void OnFreeTryOBuf();

private:
    std::streambuf *m_wrapped = nullptr;
    bool m_eof_reached = false;
};

// Pipes ----------------------------------------------------------------------------------------

// Owns a descriptor.
class KELSTDMT_API btkPipeEnd {
public:
    btkPipeEnd() = default;
    explicit btkPipeEnd(int fd) noexcept : m_fd(fd) {}
    ~btkPipeEnd() { Close(); }
    btkPipeEnd(btkPipeEnd &&from) noexcept : m_fd(from.Release()) {}
    btkPipeEnd &operator=(btkPipeEnd &&from) noexcept {
        if (this != &from) {
            Close();
            m_fd = from.Release();
        }
        return *this;
    }

    int GetHandle() const noexcept { return m_fd; }  // -1 when closed
    int Release() noexcept { return std::exchange(m_fd, -1); }
    void Close() noexcept;

private:
    int m_fd = -1;
};

class btkOutputPipe : public btkPipeEnd {
public:
    using btkPipeEnd::btkPipeEnd;
};
class btkInputPipe : public btkPipeEnd {
public:
    using btkPipeEnd::btkPipeEnd;
};

class KELSTDMT_API btkAnonymousPipe {
public:
    // False, with the last error set and the ends left alone, when the system refuses.
    static bool Create(btkOutputPipe &output, btkInputPipe &input);
};

// Buffers over descriptors ---------------------------------------------------------------------

// What pipes, the console and sockets share. Input is read ahead; output is gathered until the buffer
// is full or flushed, and what is left goes out when the buffer dies. A write that the other side does
// not take any more is a failed write.
class KELSTDMT_API xdescriptorbuf : public xstreambuf {
public:
    ~xdescriptorbuf() override;

    int GetHandle() const noexcept;
    btkBaseEvent *GetInputEvent() override;   // bytes wait, here or in the system, or the end was met
    btkBaseEvent *GetOutputEvent() override;  // the system takes bytes
    int GetBufSize() override;
    int SetBufSize(int bytes) override;  // before the first byte; later it has no effect

protected:
    enum Sides : int { Input = 1, Output = 2 };
    // With through, every write goes out at once.
    xdescriptorbuf(int fd, int sides, bool through);
    // Over a channel of another kind, with areas that start small.
    xdescriptorbuf(int fd, std::unique_ptr<kel::detail::byte_channel> channel);
    kel::detail::descriptor_buffer &Buffer() const noexcept { return *m_buffer; }

    std::streambuf *OnGetTryIBuf() override;
    void OnFreeTryIBuf() override;

    void Finish() noexcept;  // flushes and lets go of the descriptor

private:
    std::unique_ptr<kel::detail::descriptor_buffer> m_buffer;
    xtrystreambuf m_try;
    int m_sides;
};

// The buffer of a pipe's read end. It closes that end when it dies, also an end that it only refers to;
// such an end must outlive it.
class KELSTDMT_API xipipebuf : public xdescriptorbuf {
public:
    explicit xipipebuf(int fd);
    explicit xipipebuf(btkInputPipe &end);
    ~xipipebuf() override;

private:
    btkInputPipe m_own;
    btkInputPipe *m_end;
};

// The same for the write end, flushed before it is closed.
class KELSTDMT_API xopipebuf : public xdescriptorbuf {
public:
    explicit xopipebuf(int fd);
    explicit xopipebuf(btkOutputPipe &end);
    ~xopipebuf() override;

private:
    btkOutputPipe m_own;
    btkOutputPipe *m_end;
};

// Standard input. Never closes the descriptor.
class KELSTDMT_API xistdbuf : public xdescriptorbuf {
public:
    xistdbuf();
};

// Standard output (kind 0) or error (kind 1). Errors, and what goes to a terminal, go out at once.
class KELSTDMT_API xostdbuf : public xdescriptorbuf {
public:
    explicit xostdbuf(int kind);
};

// Files ----------------------------------------------------------------------------------------

// A file at one position for reads and writes, which may follow one another without a seek.
//
// A move with pubseekoff and a flush forget what was read ahead, so that the next read sees what others
// have written; pubseekpos goes back to a place already seen and keeps it. Only bytes that were written
// here are ever written. The descriptor's own offset is not used, except on what cannot seek (a FIFO, a
// terminal): that is read and written in order, and every seek on it fails.
class KELSTDMT_API btkFileBuf : public std::streambuf {
public:
    enum Mode : int {
        In = 1,
        Out = 2,
        AtEnd = 4,
        Append = 8,  // every write goes to the end; implies Out
        Truncate = 0x10,
        NoCreate = 0x20,
        NoReplace = 0x40,  // fail when the file exists; atomic
        Binary = 0x80,     // no difference on this platform
        Plain = 0x100      // fail, without a wait, for what is no file on a disk: error 50
    };
    static constexpr int openprot = 0666;  // permissions of a new file, less the process's mask

    btkFileBuf();
    ~btkFileBuf() override;

    // A path in the callers' form (see btkHostPath). A missing file is created unless NoCreate says no,
    // also for reading only. Writing only (no In, Append or AtEnd) empties an existing file; reading and
    // writing does not. False with the last error set on failure, for a folder, and when open already.
    bool Open(const char *path, int mode, int protection = openprot);
    // False when the file was not open or what was written could not be kept; closed either way.
    bool Close();
    bool IsOpen() const noexcept { return m_fd >= 0; }
    int GetHandle() const noexcept { return m_fd; }  // -1 when closed
    // Lines end in the same way in both modes on this platform.
    void SetMode(bool) noexcept {}

protected:
    int_type underflow() override;
    int_type overflow(int_type character) override;
    int_type pbackfail(int_type character) override;
    std::streamsize xsgetn(char *to, std::streamsize count) override;
    std::streamsize xsputn(const char *from, std::streamsize count) override;
    pos_type seekoff(off_type offset, std::ios_base::seekdir from, std::ios_base::openmode which) override;
    pos_type seekpos(pos_type position, std::ios_base::openmode which) override;
    int sync() override;

private:
    void MakeBuffer();
    std::size_t Here() const noexcept;
    void Settle() noexcept;
    bool FlushDirty();
    bool Drop();
    bool BeginWriting();
    std::streamsize Read(char *to, std::size_t count, long long at);
    std::streamsize Write(const char *from, std::size_t count, long long at);
    pos_type MoveTo(long long position);

    // The buffer is a window on the file: byte i of it is byte m_base + i of the file, for i < m_valid.
    // The bytes from m_dirty_from to m_dirty_to were written and are not in the file yet. The position is
    // that of the get area while reading, of the put area while writing, m_at otherwise.
    std::unique_ptr<char[]> m_buffer;
    long long m_base = 0;
    std::size_t m_valid = 0;
    std::size_t m_dirty_from = 0;
    std::size_t m_dirty_to = 0;
    std::size_t m_run = 0;  // where the present run of writes began
    std::size_t m_at = 0;
    std::size_t m_read_ahead = 0;  // bytes; grows while reads go on without a seek
    int m_fd = -1;
    int m_mode = 0;
    bool m_seekable = false;
};

// Bytes of the open file; -1 with the last error set on failure.
KELSTDMT_API long long File_GetSize(int handle);
// At a position in bytes, which need not be the end of anything before it; neither uses nor moves the
// descriptor's own offset. Read: how many bytes came, fewer than asked only at the end of the file; -1 with
// the last error set on failure. Write: how many bytes were taken; fewer is a failure, with the last error
// set.
KELSTDMT_API long long File_ReadAt(int handle, void *to, std::size_t count, long long position);
KELSTDMT_API long long File_WriteAt(int handle, const void *from, std::size_t count, long long position);
// Comes back when a write to the file that was under way, in whatever process, is done. A read that meets a
// write can get a part of it; reads before and after this that agree have met no write, or two alike.
KELSTDMT_API void File_AwaitWrite(int handle) noexcept;
// Cuts or lengthens the file. False with the last error set on failure, and for a negative size.
KELSTDMT_API bool File_Truncate(int handle, long long size);
// Comes back when what was written to the file is on the disk. False with the last error set when that
// failed.
KELSTDMT_API bool File_Sync(int handle);
// A descriptor for a child on a path in the callers' form; a missing file is created. -1 on failure.
KELSTDMT_API int File_OpenInherit(const char *path, bool read, bool write);
KELSTDMT_API void File_Close(int handle);

// Texts ----------------------------------------------------------------------------------------

namespace kel::detail {
struct text_source {
    xtrystreambuf bytes;
};
}  // namespace kel::detail

// An input stream over a text, which must outlive it. A null pointer and the markers read as empty.
class KELSTDMT_API btkStrstream : private kel::detail::text_source, public std::istream {
public:
    explicit btkStrstream(const char *text);
    btkStrstream(const char *text, std::size_t count);
    ~btkStrstream() override;
};
