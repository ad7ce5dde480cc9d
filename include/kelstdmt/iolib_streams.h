// The concrete streams and the two stream buffers behind files and texts in memory. The buffers behind
// pipes and the console are the runtime's.
//
// Every factory gives a new stream that the caller owns and deletes, or null when what is underneath
// cannot be opened.
#pragma once

#include <cstddef>
#include <memory>
#include <streambuf>

#include <kelstdmt/declare.h>
#include <kelstdmt/iolib_stream.h>
#include <kelstdmt/vumrt_stream.h>

enum ioOpenMode : int { ioReadOnly, ioWriteOnly, ioReadWrite };
KEL_DECLARE_ENUM(ioOpenMode)

enum ioDirection : int { ioBegin, ioEnd, ioCur };
KEL_DECLARE_ENUM(ioDirection)

// Stream buffers -------------------------------------------------------------------------------------

// A stream buffer over a file. Owns the btkFileBuf. Tries on the file itself and seeks back afterwards.
class KELSTDMT_API xfilebuf : public xstreambuf {
public:
    explicit xfilebuf(btkFileBuf *file);
    ~xfilebuf() override;

    btkBaseEvent *GetInputEvent() override;  // always signalled

protected:
    std::streambuf *OnGetTryIBuf() override;
    void OnFreeTryIBuf() override;
    void OnFreeTryOBuf() override;

private:
    std::unique_ptr<btkFileBuf> m_file;
    std::streampos m_saved;
};

// Bytes in memory: either a growing buffer that is written at its end and read from its start, or a
// private copy of a text that is only read. What has been written can be read at once.
class KELSTDMT_API xmemorybuf : public std::streambuf {
public:
    xmemorybuf() = default;                 // growing
    explicit xmemorybuf(const char *text);  // read-only
    ~xmemorybuf() override;

    const char *GetData() const noexcept { return m_data.get(); }  // null when nothing was ever written
    std::size_t GetSize() const noexcept;                          // bytes written so far
    // The bytes not read yet. Valid until the next write.
    const char *GetUnread(std::size_t &size);

protected:
    int_type underflow() override;
    std::streamsize xsgetn(char *to, std::streamsize count) override;
    int_type overflow(int_type character) override;
    std::streamsize xsputn(const char *from, std::streamsize count) override;

private:
    bool Grow(std::size_t needed);
    void ShowWritten();

    std::unique_ptr<char[]> m_data;
    bool m_writable = true;
};

class KELSTDMT_API xstringbuf : public xstreambuf, public xmemorybuf {
public:
    xstringbuf();
    explicit xstringbuf(const char *text);
    ~xstringbuf() override;

protected:
    std::streambuf *OnGetTryIBuf() override;
    void OnFreeTryIBuf() override;

private:
    xtrystreambuf m_try;
};

// Streams --------------------------------------------------------------------------------------------

// A file, at one position for reading and writing. In text encoding to start with.
KEL_DECLARE_STRUCT(ioFileStream)
class KELSTDMT_API ioFileStream : public ioStream {
    KEL_CLASS(ioFileStream, ioStream)
public:
    ~ioFileStream() override;

    // Opening for writing only empties the file; for reading and writing it does not.
    static ioFileStream *Open(const char *path, ioOpenMode mode);  // a file that exists
    // With overwrite false, a file that exists makes the call fail.
    static ioFileStream *Create(const char *path, ioOpenMode mode, bool overwrite);

    // For what must be a file on a disk: anything else fails at once with error 50 (a folder with 5).
    static ioFileStream *OpenPlain(const char *path, ioOpenMode mode);
    static ioFileStream *CreatePlain(const char *path, ioOpenMode mode);

    xstring getPath() const { return m_path; }

    // Offsets in bytes. A seek that fails is ioStreamState; one that succeeds clears IsEof.
    void SeekOff(int offset, ioDirection direction);
    int TellPos();   // -1 on failure, and for a position beyond what an int holds
    int TellSize();  // of the file, with what was written so far
    // Sets the file's length in bytes; the nil int means the present position.
    void Truncate(int size);

    // Bytes at a position counted from the start, which may lie beyond what an int holds. They neither use
    // nor move the stream's own position, and go past the state word; what waits in the buffer is written
    // first. A failure of the system is ioStreamState.
    unsigned ReadAt(long long position, void *to, unsigned count);  // fewer than asked at the end of the file
    void WriteAt(long long position, const void *from, unsigned count);
    void AwaitWrite();  // comes back when a write of another process that is under way is done
    long long GetFileSize();
    void SetFileSize(long long bytes);

    // A descriptor of its own on the same file, opened on first call and closed with the stream.
    int GetInheritHandle() override;

protected:
    void OnClose() override;
    void SetTextMode() override;
    void SetBinaryMode() override;

private:
    ioFileStream(xfilebuf *buffer, btkFileBuf *file, const char *path, bool canwrite, bool canread);
    static ioFileStream *CreateFS(const char *path, ioOpenMode mode, int extrabits);
    int SettledHandle();  // of the open file, after what waits in the buffer

    xfilebuf *m_buffer;
    btkFileBuf *m_file;
    int m_mode;  // 1 can read, 2 can write
    xstring m_path;
    int m_inherit = -1;
};

// One end of a pipe, in binary encoding to start with.
KEL_DECLARE_STRUCT(ioPipeStream)
class KELSTDMT_API ioPipeStream : public ioStream {
    KEL_CLASS(ioPipeStream, ioStream)
public:
    ~ioPipeStream() override;

    int GetInheritHandle() override;  // this end's descriptor; -1 once closed

protected:
    void OnClose() override;

private:
    ioPipeStream(xstreambuf *buffer, int handle, bool writeend);

    xstreambuf *m_end;
    int m_handle;

    friend class ioPipe;
};

// An anonymous pipe as two streams, which live as long as the pipe. Those modules that connect a pipe to
// a process or a thread take the ends from it.
KEL_DECLARE_STRUCT(ioPipe)
class KELSTDMT_API ioPipe : public xobject {
    KEL_CLASS(ioPipe, xobject)
public:
    ~ioPipe() override;
    ioPipe(const ioPipe &) = delete;
    ioPipe &operator=(const ioPipe &) = delete;

    static ioPipe *Create();  // null when no descriptors are left

private:
    ioPipe();

    btkOutputPipe m_output;
    btkInputPipe m_input;
    ioPipeStream *m_writestream = nullptr;
    ioPipeStream *m_readstream = nullptr;

    friend struct kel_pipe_access;
};

// The two ends, which stay the pipe's.
struct kel_pipe_access {
    static ioPipeStream *WriteStream(ioPipe &pipe) noexcept { return pipe.m_writestream; }
    static ioPipeStream *ReadStream(ioPipe &pipe) noexcept { return pipe.m_readstream; }
};

// A text in memory, in text encoding to start with.
KEL_DECLARE_STRUCT(ioStringStream)
class KELSTDMT_API ioStringStream : public ioStream {
    KEL_CLASS(ioStringStream, ioStream)
public:
    ~ioStringStream() override;

    // Without a text (the null string or a null pointer): empty, to be written and read back. Otherwise
    // read-only, over a copy of the text.
    static ioStringStream *Create(const char *text = xstrNullStr);

    // All that was written so far, up to the first NUL among it. Throws ioOutputNotAllowed on a read-only
    // stream.
    xstring getStr();

protected:
    void OnClose() override;

private:
    ioStringStream(xstringbuf *buffer, bool canwrite);

    xstringbuf *m_buffer;
};

// The console's streams; see ioStream::getStdin and its neighbours.
class KELSTDMT_API ioStdinStream : public ioStream {
public:
    explicit ioStdinStream(xistdbuf *buffer);  // takes the buffer over
    ~ioStdinStream() override;

    int GetInheritHandle() override;

protected:
    void OnClose() override;

private:
    xistdbuf *m_buffer;
};

class KELSTDMT_API ioStdoutStream : public ioStream {
public:
    explicit ioStdoutStream(xostdbuf *buffer);  // takes the buffer over
    ~ioStdoutStream() override;

    int GetInheritHandle() override;

protected:
    void OnClose() override;

private:
    xostdbuf *m_buffer;
};
