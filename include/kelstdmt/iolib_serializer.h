// Serializers: how the five basic values become bytes on a streambuf and are read back.
//
// There are three encodings, one shared object each. An encoded stream is nothing but its values one
// behind the other: no header, no type tags, no separators. A reader asks for the types in the order in
// which they were written; in the text encoding the writer puts the separators in.
//
// A serializer never throws for what it reads or writes: every outcome is an ioTryCode. It keeps no
// state after construction, so one object serves any number of streams and threads.
#pragma once

#include <streambuf>

#include <kelstdmt/declare.h>
#include <kelstdmt/export.h>

class ioStream;

// The outcome of reading or writing one value.
enum ioTryCode : int {
    ioSuccess,
    ioWouldBlock,    // a text whose end has not arrived, and more may come
    ioEndOfFile,     // what there is ends before the value does; more may come where it was a trial
    ioIOError,       // the bytes were not taken
    ioFormatError,   // what stands there is no value of this type; a length that cannot be
    ioNotSupported,  // the stream's buffer cannot try
};
KEL_DECLARE_ENUM(ioTryCode)

KEL_DECLARE_STRUCT(ioSerializer)
class KELSTDMT_API ioSerializer : public virtual xobject {
    KEL_CLASS(ioSerializer, xobject)
public:
    ~ioSerializer() override;

    // The shared encoders, made on first use (from any thread) and owned by the library.
    static ioSerializer *getAscii();
    static ioSerializer *getBinary();
    static ioSerializer *getXDR();

    // False for the text encoding. Tells a stream whether to go into text or binary mode.
    bool getIsBinary() const noexcept { return m_binary; }

protected:
    explicit ioSerializer(bool binary) noexcept : m_binary(binary) {}

    // Called by ioStream only. Rd: a read that fails leaves its target alone, except the text encoding's
    // byte, int and real (see ioAsciiSerializer). Wr: ioIOError when not all bytes were taken.
    // Sz: the bytes that Wr would write.
    virtual unsigned RdBytes(void *buffer, unsigned count, std::streambuf *from) = 0;  // bytes read
    virtual ioTryCode WrBytes(void *buffer, unsigned count, std::streambuf *to) = 0;
    virtual ioTryCode RdByte(char &value, std::streambuf *from) = 0;
    virtual ioTryCode WrByte(char value, std::streambuf *to) = 0;
    virtual unsigned SzByte(char value) = 0;
    virtual ioTryCode RdInt(int &value, std::streambuf *from) = 0;
    virtual ioTryCode WrInt(int value, std::streambuf *to) = 0;
    virtual unsigned SzInt(int value) = 0;
    virtual ioTryCode RdBool(unsigned char &value, std::streambuf *from) = 0;
    virtual ioTryCode WrBool(unsigned char value, std::streambuf *to) = 0;
    virtual unsigned SzBool(unsigned char value) = 0;
    virtual ioTryCode RdReal(double &value, std::streambuf *from) = 0;
    virtual ioTryCode WrReal(double value, std::streambuf *to) = 0;
    virtual unsigned SzReal(double value) = 0;
    // A null pointer and the text markers 1 and 2 are written as the empty text.
    virtual ioTryCode RdString(xstring &value, std::streambuf *from, const char *delimiters) = 0;
    virtual ioTryCode WrString(const char *text, std::streambuf *to) = 0;
    virtual unsigned SzString(const char *text) = 0;

private:
    bool m_binary;

    friend class ioStream;
};

// What the encodings share: raw blocks for all of them, single bytes and length-prefixed strings for the
// two binary ones. A length is not believed: a negative one is ioFormatError, one beyond the data is
// ioEndOfFile, and memory is taken as the bytes arrive. A NUL among a string's bytes ends the value that
// is handed out; the bytes behind it are consumed all the same.
class KELSTDMT_API ioByteSerializer : public ioSerializer {
protected:
    explicit ioByteSerializer(bool binary) noexcept : ioSerializer(binary) {}

    unsigned RdBytes(void *buffer, unsigned count, std::streambuf *from) override;
    ioTryCode WrBytes(void *buffer, unsigned count, std::streambuf *to) override;
    ioTryCode RdByte(char &value, std::streambuf *from) override;
    ioTryCode WrByte(char value, std::streambuf *to) override;
    unsigned SzByte(char value) override;
    ioTryCode RdString(xstring &value, std::streambuf *from, const char *delimiters) override;
    ioTryCode WrString(const char *text, std::streambuf *to) override;
    unsigned SzString(const char *text) override;
};

// Text, in the classic locale whatever the program's is. Ints are decimal, reals have 6 significant
// digits, a bool is T or F, a byte and a text stand as they are. Reading skips leading white space.
//
// Results are those of an istream on the same bytes. A number that ends where the data ends reads as
// ioEndOfFile, so the last number of a file needs a separator too. A byte, int or real that fails stores
// what an istream stores: 0 for text that is no number, the nearest limit for one out of range.
//
// A string ends ahead of the first character of `delimiters` (null string or empty: a line end), which
// stays unread, or with the data. A field without a character is ioFormatError, never a success that
// does not move. A NUL within a field ends the value that is handed out.
class KELSTDMT_API ioAsciiSerializer : public ioByteSerializer {
public:
    ioAsciiSerializer() noexcept;
    ~ioAsciiSerializer() override;

protected:
    ioTryCode RdByte(char &value, std::streambuf *from) override;
    ioTryCode WrByte(char value, std::streambuf *to) override;
    unsigned SzByte(char value) override;
    ioTryCode RdInt(int &value, std::streambuf *from) override;
    ioTryCode WrInt(int value, std::streambuf *to) override;
    unsigned SzInt(int value) override;
    ioTryCode RdBool(unsigned char &value, std::streambuf *from) override;
    ioTryCode WrBool(unsigned char value, std::streambuf *to) override;
    unsigned SzBool(unsigned char value) override;
    ioTryCode RdReal(double &value, std::streambuf *from) override;
    ioTryCode WrReal(double value, std::streambuf *to) override;
    unsigned SzReal(double value) override;
    ioTryCode RdString(xstring &value, std::streambuf *from, const char *delimiters) override;
    ioTryCode WrString(const char *text, std::streambuf *to) override;
    unsigned SzString(const char *text) override;
};

// Values as this machine keeps them: little-endian, IEEE reals, a bool is its byte unchanged.
class KELSTDMT_API ioBinarySerializer : public ioByteSerializer {
public:
    ioBinarySerializer() noexcept;
    ~ioBinarySerializer() override;

protected:
    ioTryCode RdInt(int &value, std::streambuf *from) override;
    ioTryCode WrInt(int value, std::streambuf *to) override;
    unsigned SzInt(int value) override;
    ioTryCode RdBool(unsigned char &value, std::streambuf *from) override;
    ioTryCode WrBool(unsigned char value, std::streambuf *to) override;
    unsigned SzBool(unsigned char value) override;
    ioTryCode RdReal(double &value, std::streambuf *from) override;
    ioTryCode WrReal(double value, std::streambuf *to) override;
    unsigned SzReal(double value) override;
};

// Big-endian on every host. A bool takes four bytes, a byte one; strings are not padded.
class KELSTDMT_API ioXDRSerializer : public ioByteSerializer {
public:
    ioXDRSerializer() noexcept;
    ~ioXDRSerializer() override;

protected:
    ioTryCode RdInt(int &value, std::streambuf *from) override;
    ioTryCode WrInt(int value, std::streambuf *to) override;
    unsigned SzInt(int value) override;
    ioTryCode RdBool(unsigned char &value, std::streambuf *from) override;
    ioTryCode WrBool(unsigned char value, std::streambuf *to) override;
    unsigned SzBool(unsigned char value) override;
    ioTryCode RdReal(double &value, std::streambuf *from) override;
    ioTryCode WrReal(double value, std::streambuf *to) override;
    unsigned SzReal(double value) override;
};
