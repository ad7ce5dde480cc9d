// The stream: one type for files, pipes, texts in memory, the console and sockets.
//
// A stream reads and writes typed values through its serializer. Operations check in this order that the
// stream is open, that its state word is 0, that it goes in the asked direction, and (blocking typed
// operations) that no finite time-out is set; they throw an ioXStream where a check fails. The Try
// operations answer a code instead of failing or waiting, and consume and write nothing.
//
// A stream and what belongs to it are used by one thread at a time. Whoever receives a new stream owns it
// and deletes it.
#pragma once

#include <kelstdmt/declare.h>
#include <kelstdmt/eventlib.h>
#include <kelstdmt/iolib_serializer.h>
#include <kelstdmt/vumrt_stream.h>

enum ioEventType : int { ioInputPending, ioOutputPending };
KEL_DECLARE_ENUM(ioEventType)

enum ioError : int {
    ioStreamState,  // closed, or a bit of the state word is set
    ioInputNotAllowed,
    ioOutputNotAllowed,
    ioIncompatibleFormat,
    ioImproperFunction,
    ioUnsupportedFunction,
};
KEL_DECLARE_ENUM(ioError)

// A waitable event about a stream. Owned by the caller who asked for it; it holds no reference on the
// stream and must be deleted before it.
KEL_DECLARE_STRUCT(ioEvent)
class KELSTDMT_API ioEvent : public evtEvent {
    KEL_CLASS(ioEvent, evtEvent)
public:
    ~ioEvent() override;

    ioStream *getStream() const noexcept { return m_stream; }
    // A socket's out-of-band event has type 2, beyond the declared names: it reads as nil.
    ioEventType getType() const noexcept { return m_type; }

private:
    ioEvent(ioStream *stream, ioEventType type, btkBaseEvent *event);

    ioStream *m_stream;
    ioEventType m_type;

    friend class ioStream;
};

// The stream error. Not counted: the catcher deletes it with xdelete, in any thread. Its stream and its
// message are for the thread that uses the stream.
KEL_DECLARE_STRUCT(ioXStream)
class KELSTDMT_API ioXStream : public xthrowable {
    KEL_CLASS(ioXStream, xthrowable)
public:
    ~ioXStream() override;
    ioXStream(const ioXStream &) = delete;
    ioXStream &operator=(const ioXStream &) = delete;

    // The stream that failed; null once it has been deleted.
    ioStream *getStream() const;
    ioError getError() const noexcept { return m_error; }
    // Built from the stream's state at the time of this call; of a stream that has been deleted, from its
    // state when it threw.
    xstring getMsg() const;

private:
    ioXStream(ioStream *stream, ioError error, const char *function);

    // Live errors of one stream form a list, so that a stream that dies first can be forgotten.
    ioStream *m_stream;
    ioError m_error;
    xstring m_function;
    bool m_wasopen;
    int m_state;
    ioXStream *m_next = nullptr;
    ioXStream **m_here = nullptr;  // what points at this one

    friend class ioStream;
};

KEL_DECLARE_STRUCT(ioStream)
class KELSTDMT_API ioStream : public virtual xobject {
    KEL_CLASS(ioStream, xobject)
public:
    // Bits of the state word. Once one is set, guarded operations throw ioStreamState.
    enum StateBits : int { Eof = 1, Fail = 2, Bad = 4, Timeout = 8, DataLost = 16 };

    ~ioStream() override;
    ioStream(const ioStream &) = delete;
    ioStream &operator=(const ioStream &) = delete;

    // The process-wide streams, made on first use (from any thread) in text encoding, owned by the library.
    static ioStream *getStdin();
    static ioStream *getStdout();
    static ioStream *getStderr();
    // Not supported: reports an internal error and changes nothing.
    static void setStdin(ioStream *stream);
    static void setStdout(ioStream *stream);
    static void setStderr(ioStream *stream);

    // Blocking reads of one value.
    int ReadByte();  // -128 to 127
    int ReadInt();
    xbool ReadBool();  // binary: the byte as it was written
    double ReadReal();
    xstring ReadString(const char *delimiters = xstrNullStr);
    // Waits for all of the bytes. Fewer only where the data end before; none left at their end throws. For
    // what has come so far, ask for PeekNBytes of them. A count of 0 gives 0.
    unsigned ReadBytes(void *buffer, unsigned count);

    // Blocking writes of one value. Bytes may wait in the buffer until Flush or Close.
    void WriteByte(int value);  // the low 8 bits
    void WriteInt(int value);
    void WriteBool(xbool value);
    void WriteReal(double value);
    // A null pointer and the text markers write the empty text.
    void WriteString(const char *text);
    void WriteBytes(const void *buffer, unsigned count);

    // Whether a whole value of the type has arrived: ioSuccess, and the blocking read will find it.
    // ioNotSupported when the stream cannot tell. The state word never changes.
    ioTryCode TryReadByte();
    ioTryCode TryReadInt();
    ioTryCode TryReadBool();
    ioTryCode TryReadReal();
    // In text encoding a field counts as whole when its delimiter, or the end of the data, has arrived;
    // until then the answer is ioWouldBlock.
    ioTryCode TryReadString(const char *delimiters = xstrNullStr);

    // ioNotSupported for all streams of this library.
    ioTryCode TryWriteByte(int value);
    ioTryCode TryWriteInt(int value);
    ioTryCode TryWriteBool(xbool value);
    ioTryCode TryWriteReal(double value);
    ioTryCode TryWriteString(const char *text);

    // The bytes that can be read now without waiting. 0 at the end of a pipe, whose event is signalled.
    unsigned PeekNBytes();

    // New events, owned by the caller; null when the stream has none.
    ioEvent *InputEvent();
    ioEvent *OutputEvent();

    // Hands on what waits in the buffer, and answers null. Bytes that could not be handed on set IsBad
    // without a throw, so the next operation fails. Flush(false) throws ioUnsupportedFunction.
    ioEvent *Flush(bool blocking = true);
    // Releases what is underneath; once. Bytes that could not be handed on set IsBad, which may still be
    // asked for.
    void Close();

    // Everything that the other stream holds: from `source` into this one, from this one into `target`.
    void ReadStream(ioStream *source);
    void WriteStream(ioStream *target);

    // The bytes that writing the value would take.
    int SizeOfByte(int value);
    int SizeOf(int value);
    int SizeOf(bool value);
    int SizeOf(xbool value);
    int SizeOf(double value);
    int SizeOf(const char *text);

    ioSerializer *getSerializer() const noexcept { return m_serializer; }
    // Only before the first read, write, trial, peek or copy; else ioImproperFunction. Not owned.
    void setSerializer(ioSerializer *serializer);

    bool getIsOpen() const noexcept { return m_open; }
    bool getCanRead() const noexcept { return m_canread; }
    bool getCanWrite() const noexcept { return m_canwrite; }

    // Seconds. While one is other than INFINITE, the blocking typed reads (writes) refuse to run.
    double getITimeout() const noexcept { return m_itimeout; }
    double getOTimeout() const noexcept { return m_otimeout; }
    void setITimeout(double seconds);
    void setOTimeout(double seconds);

    bool getIsEof() const noexcept { return (m_state & Eof) != 0; }
    bool getIsFail() const noexcept { return (m_state & Fail) != 0; }
    bool getIsBad() const noexcept { return (m_state & Bad) != 0; }
    bool getIsTimeout() const noexcept { return (m_state & Timeout) != 0; }
    bool getIsDataLost() const noexcept { return (m_state & DataLost) != 0; }
    bool getIsGood() const noexcept { return m_state == 0; }
    // True sets the bit; false clears the whole state word.
    void setIsFail(bool value);
    void setIsBad(bool value);

    // Not supported by any stream: ioUnsupportedFunction.
    bool getIsBuffered();
    int getBufferSize();
    void setBufferSize(int bytes);
    void Ignore();
    bool getWouldDataLost();

protected:
    // The order of the virtual operations is fixed: this one comes first.
    virtual void OnClose() = 0;

public:
    // The descriptor that a child process may inherit for this stream, owned by the stream; -1 when it has
    // none.
    virtual int GetInheritHandle();

protected:
    // The derived stream owns the buffer and releases it in OnClose. Its destructor calls Close(), while
    // its OnClose still exists. Mind the order of the flags: write, then read.
    ioStream(ioSerializer *serializer, xstreambuf *buffer, bool canwrite, bool canread);

    virtual void SetTextMode();
    virtual void SetBinaryMode();

    [[noreturn]] void Throw(ioError error, const char *function);
    [[noreturn]] void Throw(ioError error);
    [[noreturn]] void ThrowState(int bits);  // sets the bits and throws ioStreamState
    // Sets the state and throws, except on success and ioWouldBlock.
    void CheckTryCode(ioTryCode code) {
        if (code != ioSuccess) [[unlikely]]
            TakeCode(code);
    }
    void SetActive() noexcept { m_active = true; }
    // A new event, owned by the caller, that owns the base event; null for a null base event.
    ioEvent *CreateEvent(btkBaseEvent *event, ioEventType type);

    // The guards, for operations of derived streams.
    void CheckOpen() {
        if (!m_open) [[unlikely]]
            Throw(ioStreamState);
    }
    void CheckGood() {
        if (m_state != 0) [[unlikely]]
            Throw(ioStreamState);
    }
    void CheckRead() {
        if (!m_canread) [[unlikely]]
            Throw(ioInputNotAllowed);
    }
    void CheckWrite() {
        if (!m_canwrite) [[unlikely]]
            Throw(ioOutputNotAllowed);
    }
    void GuardInput() {
        CheckOpen();
        CheckGood();
        CheckRead();
    }
    void GuardOutput() {
        CheckOpen();
        CheckGood();
        CheckWrite();
    }
    void SetState(int bits) noexcept { m_state |= bits; }
    void ClearState(int bits) noexcept { m_state &= ~bits; }
    xstreambuf *GetBuffer() const noexcept { return m_buffer; }
    // The stored time values; those of INFINITE keep what was there before.
    const btkTimeval &GetITimeval() const noexcept { return m_itimeval; }
    const btkTimeval &GetOTimeval() const noexcept { return m_otimeval; }

private:
    void StartInput();
    void StartOutput();
    void StartTypedInput();
    void StartTypedOutput();
    template <class Read>
    ioTryCode TryRead(Read read);
    template <class Write>
    ioTryCode TryWrite(Write write);
    void TakeCode(ioTryCode code);
    void ForgetErrors() noexcept;

    ioSerializer *m_serializer;
    xstreambuf *m_buffer;
    std::streambuf *m_blocking;  // null once closed
    bool m_active = false;
    bool m_open = true;
    bool m_canread;
    bool m_canwrite;
    double m_itimeout = INFINITE;
    btkTimeval m_itimeval;
    double m_otimeout = INFINITE;
    btkTimeval m_otimeval;
    int m_state = 0;
    ioXStream *m_errors = nullptr;  // those that have not been deleted yet

    friend class ioXStream;
    friend KELSTDMT_API void CopyStream(ioStream *target, ioStream *source);
};

// Copies the bytes that the source holds, up to its end, into the target. Both use the same serializer
// object, else ioIncompatibleFormat on the source. A short write is ioStreamState on the target. The
// source's end does not change its state. A stream is not copied into itself: ioImproperFunction.
KELSTDMT_API void CopyStream(ioStream *target, ioStream *source);
