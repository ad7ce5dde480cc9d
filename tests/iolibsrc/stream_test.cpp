// The stream core over a buffer and an encoder of the test's own: guards and their order, codes, the state
// word, messages, trials, copying, and what is declared.
#include "iolibsrc/stream_support.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <random>
#include <thread>
#include <vector>

namespace {

// A buffer without areas: every byte goes through the virtual calls, writes are refused from `limit` on.
class Plain : public std::streambuf {
public:
    std::string data, written;
    std::size_t at = 0, limit = SIZE_MAX;
    int synced = 0, sync_result = 0;

protected:
    int_type underflow() override { return at < data.size() ? static_cast<unsigned char>(data[at]) : -1; }
    int_type uflow() override { return at < data.size() ? static_cast<unsigned char>(data[at++]) : -1; }
    int_type overflow(int_type byte) override {
        if (written.size() >= limit) return -1;
        written.push_back(static_cast<char>(byte));
        return 0;
    }
    int sync() override {
        ++synced;
        return sync_result;
    }
};

// Tries input with `shown` and output into `taken`, when it may.
class Buffer : public xstreambuf {
public:
    Buffer() { InitStreamBuf(&plain); }
    btkBaseEvent *GetInputEvent() override {
        ++asked;
        return has_event ? new btkAlwaysEvent : nullptr;
    }
    btkBaseEvent *GetOutputEvent() override { return GetInputEvent(); }

    Plain plain, taken;
    std::string shown;
    bool tries = false, at_end = false, has_event = false;
    int begun = 0, ended = 0, asked = 0;

protected:
    std::streambuf *OnGetTryIBuf() override {
        if (!tries) return nullptr;
        if (at_end) SetEofReached();
        ++begun;
        m_view.TakeBuf(shown.data(), shown.size());
        return &m_view;
    }
    void OnFreeTryIBuf() override { ++ended; }
    std::streambuf *OnGetTryOBuf() override {
        begun += tries;
        return tries ? &taken : nullptr;
    }
    void OnFreeTryOBuf() override { ++ended; }

private:
    xtrystreambuf m_view;
};

// Answers the code that it is told to.
class Coder : public ioBinarySerializer {
public:
    ioTryCode code = ioSuccess;
    bool throws = false;

protected:
    ioTryCode RdInt(int &value, std::streambuf *from) override {
        if (throws) throw std::bad_alloc();
        return code == ioSuccess ? ioBinarySerializer::RdInt(value, from) : code;
    }
    ioTryCode WrInt(int value, std::streambuf *to) override {
        return code == ioSuccess ? ioBinarySerializer::WrInt(value, to) : code;
    }
};

class Stream : public ioStream {
public:
    explicit Stream(bool canwrite = true, bool canread = true, ioSerializer *with = ioSerializer::getBinary(),
                    Buffer *over = new Buffer)
        : ioStream(with, over, canwrite, canread), buffer(over) {}
    ~Stream() override {
        Close();
        if (closed_at_death) *closed_at_death = closed;
    }
    using ioStream::CheckTryCode;
    using ioStream::SetState;
    using ioStream::Throw;
    using ioStream::ThrowState;

    std::unique_ptr<Buffer> buffer;
    int closed = 0, *closed_at_death = nullptr;
    std::string modes;

protected:
    void OnClose() override { ++closed; }
    void SetTextMode() override { modes += 't'; }
    void SetBinaryMode() override { modes += 'b'; }
};

const std::string not_open = "stream not open",
                  improper = "function \"\" can not be called in the current context";
std::string unsupported(const std::string &name) {
    return "function \"" + name + "\" not supported";
}

// Guards ---------------------------------------------------------------------------------------

enum Kind { Typed, Raw, Sizes, Setter };
struct Operation {
    const char *name;
    bool input;
    Kind kind;
    std::function<void(Stream &)> run;
};

const std::vector<Operation> &operations() {
    static const char bytes[4] = {1, 2, 3, 4};
    static const std::vector<Operation> all = {
        {"ReadByte", true, Typed, [](Stream &s) { s.ReadByte(); }},
        {"ReadInt", true, Typed, [](Stream &s) { s.ReadInt(); }},
        {"ReadBool", true, Typed, [](Stream &s) { s.ReadBool(); }},
        {"ReadReal", true, Typed, [](Stream &s) { s.ReadReal(); }},
        {"ReadString", true, Typed, [](Stream &s) { s.ReadString(); }},
        {"ReadBytes", true, Raw,
         [](Stream &s) {
             char b[4];
             s.ReadBytes(b, 4);
         }},
        {"ReadBytes 0", true, Raw, [](Stream &s) { EXPECT_EQ(s.ReadBytes(nullptr, 0), 0U); }},
        {"TryReadByte", true, Raw, [](Stream &s) { s.TryReadByte(); }},
        {"TryReadInt", true, Raw, [](Stream &s) { s.TryReadInt(); }},
        {"TryReadBool", true, Raw, [](Stream &s) { s.TryReadBool(); }},
        {"TryReadReal", true, Raw, [](Stream &s) { s.TryReadReal(); }},
        {"TryReadString", true, Raw, [](Stream &s) { s.TryReadString(); }},
        {"PeekNBytes", true, Raw, [](Stream &s) { s.PeekNBytes(); }},
        {"InputEvent", true, Raw, [](Stream &s) { EXPECT_EQ(s.InputEvent(), nullptr); }},
        {"WriteByte", false, Typed, [](Stream &s) { s.WriteByte(1); }},
        {"WriteInt", false, Typed, [](Stream &s) { s.WriteInt(1); }},
        {"WriteBool", false, Typed, [](Stream &s) { s.WriteBool(1); }},
        {"WriteReal", false, Typed, [](Stream &s) { s.WriteReal(1); }},
        {"WriteString", false, Typed, [](Stream &s) { s.WriteString("1"); }},
        {"WriteBytes", false, Raw, [](Stream &s) { s.WriteBytes(bytes, 4); }},
        {"WriteBytes 0", false, Raw, [](Stream &s) { s.WriteBytes(nullptr, 0); }},
        {"TryWriteByte", false, Raw, [](Stream &s) { s.TryWriteByte(1); }},
        {"TryWriteInt", false, Raw, [](Stream &s) { s.TryWriteInt(1); }},
        {"TryWriteBool", false, Raw, [](Stream &s) { s.TryWriteBool(1); }},
        {"TryWriteReal", false, Raw, [](Stream &s) { s.TryWriteReal(1); }},
        {"TryWriteString", false, Raw, [](Stream &s) { s.TryWriteString("1"); }},
        {"OutputEvent", false, Raw, [](Stream &s) { EXPECT_EQ(s.OutputEvent(), nullptr); }},
        {"SizeOfByte", true, Sizes, [](Stream &s) { s.SizeOfByte(1); }},
        {"SizeOf int", true, Sizes, [](Stream &s) { s.SizeOf(1); }},
        {"SizeOf bool", true, Sizes, [](Stream &s) { s.SizeOf(true); }},
        {"SizeOf xbool", true, Sizes, [](Stream &s) { s.SizeOf(xbool{1}); }},
        {"SizeOf real", true, Sizes, [](Stream &s) { s.SizeOf(1.0); }},
        {"SizeOf text", true, Sizes, [](Stream &s) { s.SizeOf("1"); }},
        {"setITimeout", true, Setter, [](Stream &s) { s.setITimeout(INFINITE); }},
        {"setOTimeout", true, Setter, [](Stream &s) { s.setOTimeout(INFINITE); }},
        {"setIsFail", true, Setter, [](Stream &s) { s.setIsFail(true); }},
        {"setIsBad", true, Setter, [](Stream &s) { s.setIsBad(true); }},
        {"setSerializer", true, Setter, [](Stream &s) { s.setSerializer(ioSerializer::getXDR()); }},
    };
    return all;
}

// Every operation in every combination of what may be the matter: the first in the order decides.
TEST(Stream, GuardsInTheirOrder) {
    for (const Operation &operation : operations()) {
        for (int matter = 0; matter < 16; ++matter) {
            bool is_closed = matter & 1, is_bad = matter & 2, wrong_way = matter & 4, timed = matter & 8;
            Stream stream(operation.input ? true : !wrong_way, operation.input ? !wrong_way : true);
            stream.buffer->plain.data = std::string(64, '\0');
            if (timed) operation.input ? stream.setITimeout(5.0) : stream.setOTimeout(0.0);
            if (is_bad) stream.setIsBad(true);
            if (is_closed) stream.Close();
            std::string expected;
            bool guarded = operation.kind == Typed || operation.kind == Raw;
            if (is_closed) {
                expected = not_open;
            } else if (guarded && is_bad) {
                expected = "I/O error";
            } else if (guarded && wrong_way) {
                expected = operation.input ? "input denied" : "output denied";
            } else if (operation.kind == Typed && timed) {
                expected = unsupported(operation.input ? "ITimeout != INFINITE" : "OTimeout != INFINITE");
            }
            EXPECT_EQ(failure([&] { operation.run(stream); }, &stream), expected)
                << operation.name << ", matter " << matter;
            if (!expected.empty() && !is_closed) {
                stream.setIsBad(false);
                EXPECT_EQ(failure([&] { stream.setSerializer(ioSerializer::getXDR()); }), "")
                    << operation.name << " was refused and has made the stream active";
                EXPECT_EQ(stream.buffer->plain.at + stream.buffer->plain.written.size(), 0U);
            }
        }
    }
}

TEST(Stream, ANewOneAndWhatItDoesNotOffer) {
    Stream stream;
    EXPECT_TRUE(stream.getIsOpen() && stream.getIsGood() && stream.getCanRead() && stream.getCanWrite());
    EXPECT_EQ(std::bit_cast<std::uint64_t>(stream.getITimeout()), 0x5A17A2ECC414A040U);
    EXPECT_EQ(std::bit_cast<std::uint64_t>(stream.getOTimeout()), 0x5A17A2ECC414A040U);
    EXPECT_EQ(stream.GetInheritHandle(), -1);
    EXPECT_EQ(failure([&] { stream.getIsBuffered(); }), unsupported("getIsBuffered"));
    EXPECT_EQ(failure([&] { stream.getBufferSize(); }), unsupported("getBufferSize"));
    EXPECT_EQ(failure([&] { stream.setBufferSize(1); }), unsupported("setBufferSize"));
    EXPECT_EQ(failure([&] { stream.Ignore(); }), unsupported("Ignore"));
    EXPECT_EQ(failure([&] { stream.getWouldDataLost(); }), unsupported("getWouldDataLost"));
    EXPECT_EQ(failure([&] { stream.Flush(false); }), unsupported("non-blocking Flush"));
    Buffer unused;
    EXPECT_EQ(failure([&] { Stream(true, true, nullptr, &unused); }),
              "not a stream error: kellib::XNotInitialized");
    EXPECT_EQ(failure([&] { stream.setSerializer(nullptr); }), "not a stream error: kellib::XNotInitialized");
    Stream blind(true, false);
    EXPECT_EQ(failure([&] { blind.Ignore(); }), "input denied");
    EXPECT_EQ(failure([&] { blind.getWouldDataLost(); }), "input denied");
    EXPECT_EQ(failure([&] { blind.getIsBuffered(); }), unsupported("getIsBuffered"));
    blind.Close();
    EXPECT_EQ(failure([&] { blind.getIsBuffered(); }), not_open);
    EXPECT_EQ(failure([&] { blind.Flush(false); }), unsupported("non-blocking Flush"));
    EXPECT_EQ(blind.Flush(), nullptr);
}

// A time-out is the one without limit by its bits; the nearest double to 1e126 is another number.
// Where a pointer to a virtual member of the class says that it stands.
template <class Member>
std::ptrdiff_t slot(Member member) {
    std::ptrdiff_t place;
    std::memcpy(&place, &member, sizeof place);
    return place / static_cast<std::ptrdiff_t>(sizeof(void *));
}

TEST(Stream, VirtualOperationsInTheirOrder) {
    struct Slots : Stream {
        static std::vector<std::ptrdiff_t> of() {
            return {slot(&Slots::OnClose), slot(&Slots::GetInheritHandle), slot(&Slots::SetTextMode),
                    slot(&Slots::SetBinaryMode)};
        }
    };
    std::ptrdiff_t first = Slots::of()[0];
    EXPECT_EQ(Slots::of(), (std::vector{first, first + 1, first + 2, first + 3}));
}

TEST(Stream, OnlyTheExactTimeOutIsNone) {
    Stream stream;
    stream.buffer->plain.data = std::string("\1\0\0\0\2\0\0\0", 8);
    EXPECT_EQ(stream.ReadInt(), 1);
    for (double finite : {5.0, 0.0, -1.0, 1e126, std::nextafter(INFINITE, 0.0)}) {
        stream.setITimeout(finite);
        EXPECT_EQ(failure([&] { stream.ReadInt(); }), unsupported("ITimeout != INFINITE"));
        EXPECT_EQ(failure([&] { stream.WriteInt(1); }), "") << "the other direction goes on";
    }
    char byte;
    EXPECT_EQ(stream.ReadBytes(&byte, 1), 1U) << "raw reads do not mind";
    stream.setITimeout(INFINITE);
    EXPECT_EQ(stream.ReadBytes(&byte, 1), 1U);
    EXPECT_TRUE(stream.getIsGood());
}

TEST(Stream, AnActiveStreamKeepsItsSerializer) {
    for (const Operation &operation : operations()) {
        Stream stream;
        stream.buffer->plain.data = std::string(64, '\0');
        operation.run(stream);
        stream.setIsBad(false);
        std::string name = operation.name;
        bool leaves = operation.kind == Sizes || operation.kind == Setter ||
                      name.find("Event") != name.npos || name.find("Try") == 0;  // the buffer cannot try
        EXPECT_EQ(failure([&] { stream.setSerializer(ioSerializer::getAscii()); }), leaves ? "" : improper)
            << operation.name;
    }
    Stream stream;
    stream.modes.clear();
    stream.setSerializer(ioSerializer::getAscii());
    stream.setSerializer(ioSerializer::getXDR());
    EXPECT_EQ(stream.modes, "tb");
    EXPECT_EQ(stream.getSerializer(), ioSerializer::getXDR());
}

// State ----------------------------------------------------------------------------------------

TEST(Stream, CodesBecomeStatesAndMessages) {
    Coder coder;
    struct {
        ioTryCode code;
        const char *message;
        int state;
    } cases[] = {{ioSuccess, "", 0},
                 {ioWouldBlock, "", 0},
                 {ioEndOfFile, "EOF reached", 1},
                 {ioIOError, "I/O error", 4},
                 {ioFormatError, "conversion error", 2},
                 {ioNotSupported, "function \"\" not supported", 0}};
    for (const auto &one : cases) {
        Stream stream(true, true, &coder);
        stream.buffer->plain.data = std::string(64, '\0');
        for (int way = 0; way < 3; ++way) {
            coder.code = one.code;
            EXPECT_EQ(failure([&] {
                          if (way == 0) stream.ReadInt();
                          if (way == 1) stream.WriteInt(1);
                          if (way == 2) stream.CheckTryCode(one.code);
                      }),
                      one.message);
            EXPECT_EQ(
                (stream.getIsEof() ? 1 : 0) | (stream.getIsFail() ? 2 : 0) | (stream.getIsBad() ? 4 : 0),
                one.state);
            EXPECT_EQ(stream.getIsGood(), one.state == 0);
            stream.setIsFail(false);
        }
    }
}

TEST(Stream, TheFirstBitInTheOrderNamesTheState) {
    auto name = [](int bits) -> std::string {
        return bits & 1    ? "EOF reached"
               : bits & 4  ? "I/O error"
               : bits & 2  ? "conversion error"
               : bits & 8  ? "timeout expired"
               : bits & 16 ? "data lost"
                           : "unknown error";
    };
    for (int bits = 0; bits < 32; ++bits) {
        Stream stream;
        EXPECT_EQ(failure([&] { stream.ThrowState(bits); }), name(bits));
        EXPECT_EQ(failure([&] { stream.ReadInt(); }), bits ? name(bits) : "EOF reached");
        EXPECT_EQ(stream.getIsTimeout(), (bits & 8) != 0);
        EXPECT_EQ(stream.getIsDataLost(), (bits & 16) != 0);
        bits & 1 ? stream.setIsFail(false) : stream.setIsBad(false);
        EXPECT_TRUE(stream.getIsGood()) << "false clears all bits";
        stream.setIsFail(true);
        stream.setIsBad(true);
        EXPECT_EQ(failure([&] { stream.ReadInt(); }), "I/O error");
        stream.SetState(bits);
        stream.Close();
        EXPECT_EQ(failure([&] { stream.ReadInt(); }), not_open);
    }
    Stream stream;
    EXPECT_EQ(failure([&] { stream.Throw(ioImproperFunction, "here"); }),
              "function \"here\" can not be called in the current context");
    EXPECT_EQ(failure([&] { stream.Throw(ioIncompatibleFormat); }), "incompatible format");
    EXPECT_EQ(failure([&] { stream.Throw(static_cast<ioError>(6)); }), "unknown error");
    EXPECT_EQ(failure([&] { stream.Throw(static_cast<ioError>(-1)); }), "unknown error");
}

kel::caught error_of(Stream &stream) {
    try {
        stream.ReadInt();
    } catch (xthrowable *thrown) {
        return kel::caught(thrown);
    }
    ADD_FAILURE() << "nothing was thrown";
    return kel::caught(nullptr);
}

// An error reports its stream as it is now, and may outlive it.
TEST(Stream, ErrorsAndStreamsMayDieInAnyOrder) {
    std::mt19937 random(3);
    for (int round = 0; round < 50; ++round) {
        auto stream = std::make_unique<Stream>();
        std::vector<kel::caught> errors;
        for (int i = 0; i < 20; ++i) {
            errors.push_back(error_of(*stream));
            auto *error = errors.back().as<ioXStream>();
            EXPECT_STREQ(error->getMsg(), "Stream Error (iolib):EOF reached");
            stream->setIsBad(false);
            EXPECT_STREQ(error->getMsg(), "Stream Error (iolib):unknown error") << "as it is now";
            if (random() % 3 == 0) errors.erase(errors.begin() + static_cast<int>(random() % errors.size()));
        }
        stream->Close();
        for (auto &error : errors) {
            EXPECT_EQ(error.as<ioXStream>()->getStream(), stream.get());
            EXPECT_STREQ(error.as<ioXStream>()->getMsg(), "Stream Error (iolib):stream not open");
        }
        stream.reset();
        std::shuffle(errors.begin(), errors.end(), random);
        for (auto &error : errors) {
            EXPECT_EQ(error.as<ioXStream>()->getStream(), nullptr);
            EXPECT_TRUE(error->lookupfield("Stream").isnil());
            EXPECT_STREQ(error.as<ioXStream>()->getMsg(), "Stream Error (iolib):EOF reached")
                << "as it was when it threw";
        }
    }
}

// Errors are deleted elsewhere while their stream goes on.
TEST(Stream, AnErrorMayEndInAnotherThread) {
    auto stream = std::make_unique<Stream>();
    std::vector<kel::caught> errors;
    for (int i = 0; i < 200; ++i) {
        errors.push_back(error_of(*stream));
        stream->setIsBad(false);
    }
    std::thread other([&] {
        while (errors.size() > 20)
            errors.erase(errors.begin() + static_cast<int>(errors.size() / 2));
    });
    for (int i = 0; i < 200; ++i) {
        error_of(*stream);
        stream->setIsBad(false);
    }
    other.join();
    stream.reset();
}

TEST(Stream, ClosesOnce) {
    int closed = 0;
    {
        Stream stream;
        stream.closed_at_death = &closed;
        stream.Close();
        stream.Close();
        EXPECT_FALSE(stream.getIsOpen());
        EXPECT_EQ(stream.closed, 1);
    }
    EXPECT_EQ(closed, 1);
    {
        Stream stream;
        stream.closed_at_death = &closed;
        closed = 0;
    }
    EXPECT_EQ(closed, 1);
    struct Careless : ioStream {
        explicit Careless(Buffer *buffer) : ioStream(ioSerializer::getAscii(), buffer, true, true) {}
        void OnClose() override {}
    };
    Buffer buffer;
    { Careless never_closed_itself(&buffer); }
}

TEST(Stream, AFlushThatFailsIsRemembered) {
    Stream stream, input(false, true);
    for (Stream *one : {&stream, &input}) {
        EXPECT_EQ(one->Flush(), nullptr);
        EXPECT_TRUE(one->getIsGood());
        one->buffer->plain.sync_result = -1;
        EXPECT_EQ(one->Flush(), nullptr);
        EXPECT_EQ(one->buffer->plain.synced, 2);
    }
    EXPECT_TRUE(stream.getIsBad());
    EXPECT_TRUE(input.getIsGood()) << "it had nothing to hand on";
    EXPECT_EQ(failure([&] { stream.WriteInt(1); }), "I/O error");
    EXPECT_EQ(stream.Flush(), nullptr) << "no guards";
}

// Values ---------------------------------------------------------------------------------------

TEST(Stream, ValuesThroughTheEncoder) {
    Stream stream;
    stream.WriteByte(-1);
    stream.WriteByte(0x1FF);
    stream.WriteBool(7);
    stream.WriteInt(-2);
    stream.WriteReal(1.0);
    stream.WriteString("abc");
    stream.WriteString(xstrNullStr);
    stream.WriteBytes("xy", 2);
    EXPECT_EQ(stream.buffer->plain.written,
              std::string("\xFF\xFF\7\xFE\xFF\xFF\xFF\0\0\0\0\0\0\xF0\x3F\3\0\0\0abc\0\0\0\0xy", 28));
    stream.buffer->plain.data = stream.buffer->plain.written;
    EXPECT_EQ(stream.ReadByte(), -1);
    EXPECT_EQ(stream.ReadByte(), -1);
    EXPECT_EQ(stream.ReadBool(), 7);
    EXPECT_EQ(stream.ReadInt(), -2);
    EXPECT_EQ(stream.ReadReal(), 1.0);
    EXPECT_EQ(text_of(stream.ReadString()), "abc");
    EXPECT_EQ(text_of(stream.ReadString()), "");
    char bytes[5] = "....";
    EXPECT_EQ(stream.ReadBytes(bytes, 4), 2U) << "a part of a block is no error";
    EXPECT_STREQ(bytes, "xy..");
    EXPECT_TRUE(stream.getIsGood());
    EXPECT_EQ(failure([&] { stream.ReadBytes(bytes, 4); }), "EOF reached");
    EXPECT_TRUE(stream.getIsEof());
    EXPECT_EQ(stream.SizeOfByte(1) + 10 * stream.SizeOf(1) + 100 * stream.SizeOf(true) +
                  1000 * stream.SizeOf(1.0) + 10000 * stream.SizeOf("abc"),
              1 + 40 + 100 + 8000 + 70000)
        << "sizes mind no state";
    Stream full;
    full.buffer->plain.limit = 3;
    EXPECT_EQ(failure([&] { full.WriteBytes("abcd", 4); }), "I/O error");
    EXPECT_TRUE(full.getIsBad());
}

// Trials ---------------------------------------------------------------------------------------

TEST(Stream, TrialsAnswerCodesAndLeaveTheStateAlone) {
    Coder coder;
    Stream stream(true, true, &coder);
    Buffer &buffer = *stream.buffer;
    EXPECT_EQ(stream.TryReadInt(), ioNotSupported);
    EXPECT_EQ(stream.TryWriteInt(1), ioNotSupported);
    stream.setSerializer(&coder);
    EXPECT_EQ(buffer.begun + buffer.ended, 0);
    buffer.tries = true;
    int trials = 0;
    for (bool at_end : {false, true}) {
        buffer.at_end = at_end;
        for (int code = ioWouldBlock; code <= ioNotSupported; ++code) {
            coder.code = static_cast<ioTryCode>(code);
            ioTryCode expected = at_end && code == ioWouldBlock ? ioEndOfFile : coder.code;
            EXPECT_EQ(stream.TryReadInt(), expected);
            EXPECT_EQ(stream.TryWriteInt(1), code == ioWouldBlock ? ioWouldBlock : expected);
            trials += 2;
        }
    }
    EXPECT_TRUE(stream.getIsGood());
    EXPECT_EQ(failure([&] { stream.setSerializer(&coder); }), improper);
    coder.code = ioSuccess;
    buffer.shown = std::string("\1\0\0", 3);
    EXPECT_EQ(stream.TryReadInt(), ioEndOfFile);
    buffer.shown = std::string("\1\0\0\0", 4);
    EXPECT_EQ(stream.TryReadInt(), ioSuccess);
    EXPECT_EQ(stream.TryReadReal(), ioEndOfFile);
    EXPECT_EQ(stream.TryWriteInt(1), ioSuccess);
    EXPECT_EQ(buffer.taken.written, buffer.shown);
    EXPECT_EQ(stream.PeekNBytes(), 4U);
    coder.throws = true;
    EXPECT_THROW(stream.TryReadInt(), std::bad_alloc);
    trials += 6;
    EXPECT_EQ(buffer.begun, trials);
    EXPECT_EQ(buffer.ended, trials) << "every trial that began has ended";
    buffer.tries = false;
    EXPECT_EQ(stream.PeekNBytes(), 0U);
}

// Whether a text is whole shows at its delimiter or at the end of the data, not at the end of what came.
TEST(Stream, ATextIsWholeAtItsDelimiter) {
    Stream stream(true, true, ioSerializer::getAscii());
    Buffer &buffer = *stream.buffer;
    buffer.tries = true;
    struct {
        const char *shown, *delimiters;
        ioTryCode open, at_end;
    } cases[] = {
        {"", "\n", ioEndOfFile, ioEndOfFile},       {" \n ", "\n", ioEndOfFile, ioEndOfFile},
        {"abc", "\n", ioWouldBlock, ioSuccess},     {"abc", xstrNullStr, ioWouldBlock, ioSuccess},
        {"  abc\n", "", ioSuccess, ioSuccess},      {"abc def", " ", ioSuccess, ioSuccess},
        {"abc def", "; ", ioWouldBlock, ioSuccess}, {"abc;", ";", ioSuccess, ioSuccess},
        {";", ";", ioFormatError, ioFormatError},
    };
    for (const auto &one : cases) {
        buffer.shown = one.shown;
        buffer.at_end = false;
        EXPECT_EQ(stream.TryReadString(one.delimiters), one.open) << one.shown;
        buffer.at_end = true;
        EXPECT_EQ(stream.TryReadString(one.delimiters), one.at_end) << one.shown;
    }
    Stream binary;
    binary.buffer->tries = true;
    binary.buffer->shown = std::string("\2\0\0\0ab", 6);
    EXPECT_EQ(binary.TryReadString(), ioSuccess) << "its length is known";
}

TEST(Stream, EventsBelongToTheCaller) {
    Stream stream;
    EXPECT_EQ(stream.InputEvent(), nullptr);
    EXPECT_EQ(stream.buffer->asked, 1);
    stream.buffer->has_event = true;
    std::unique_ptr<ioEvent> input(stream.InputEvent()), output(stream.OutputEvent());
    EXPECT_EQ(input->getType(), ioInputPending);
    EXPECT_EQ(output->getType(), ioOutputPending);
    EXPECT_EQ(input->getStream(), &stream);
    EXPECT_TRUE(input->getIsSignaled() && output->Wait(0.0));
    xobject *object = output.get();
    EXPECT_EQ(ioEvent::cast(object), output.get());
    EXPECT_EQ(evtEvent::cast(object), output.get());
    EXPECT_STREQ(object->gettypename(), "iolib::Event");
    EXPECT_EQ(static_cast<xobject *>(object->lookupfield("Stream")), &stream);
    EXPECT_STREQ(xrtti_get_p_ioEventType()->getenumvalue(object->lookupfield("Type")), "ioOutputPending");
    EXPECT_EQ(failure([&] { stream.setSerializer(ioSerializer::getXDR()); }), "") << "events do not activate";
}

// Copying --------------------------------------------------------------------------------------

TEST(CopyStream, CopiesAllAndLeavesTheSourceGood) {
    std::mt19937 random(11);
    for (std::size_t size : {0U, 1U, 4095U, 4096U, 4097U, 8192U, 65536U, 1000003U}) {
        std::string bytes(size, '\0');
        for (char &byte : bytes)
            byte = static_cast<char>(random());
        for (bool plain : {true, false}) {
            Stream target, source;
            source.buffer->plain.data = bytes;
            std::unique_ptr<ioPipe> pipe;
            if (plain) {
                CopyStream(&target, &source);
            } else {
                std::unique_ptr<ioStringStream> memory(ioStringStream::Create());
                memory->setSerializer(ioSerializer::getBinary());
                memory->WriteBytes(bytes.data(), static_cast<unsigned>(size));
                memory->WriteStream(&target);
                EXPECT_EQ(memory->PeekNBytes(), 0U);
                EXPECT_TRUE(memory->getIsGood());
            }
            EXPECT_TRUE(target.buffer->plain.written == bytes) << size;
            EXPECT_TRUE(source.getIsGood() && target.getIsGood());
            EXPECT_EQ(failure([&] { target.setSerializer(ioSerializer::getXDR()); }), improper);
            if (plain) {
                EXPECT_EQ(failure([&] { source.setSerializer(ioSerializer::getXDR()); }), improper);
            }
        }
    }
}

TEST(CopyStream, Refuses) {
    Stream source, target, other(true, true, ioSerializer::getXDR()), reader(false, true),
        writer(true, false);
    source.buffer->plain.data = "abc";
    EXPECT_EQ(failure([&] { other.ReadStream(&source); }, &source), "incompatible format");
    ioBinarySerializer twin;
    Stream same_format(true, true, &twin);
    EXPECT_EQ(failure([&] { CopyStream(&same_format, &source); }, &source), "incompatible format")
        << "encoders are told apart as objects";
    EXPECT_EQ(failure([&] { CopyStream(&source, &source); }, &source),
              "function \"CopyStream\" can not be called in the current context");
    EXPECT_EQ(failure([&] { CopyStream(&target, &writer); }, &writer), "input denied");
    EXPECT_EQ(failure([&] { CopyStream(&reader, &source); }, &reader), "output denied");
    EXPECT_EQ(failure([&] { CopyStream(&reader, &writer); }, &writer), "input denied") << "the source first";
    EXPECT_EQ(failure([&] { CopyStream(nullptr, &source); }), "not a stream error: kellib::XNotInitialized");
    target.setIsFail(true);
    EXPECT_EQ(failure([&] { CopyStream(&target, &source); }, &target), "conversion error");
    target.Close();
    EXPECT_EQ(failure([&] { source.WriteStream(&target); }, &target), not_open);
    EXPECT_EQ(source.buffer->plain.at, 0U) << "nothing was read";
    source.setSerializer(ioSerializer::getAscii());
}

TEST(CopyStream, AShortWriteIsTheTargetsFailure) {
    Stream source, target;
    source.buffer->plain.data = std::string(10000, 'x');
    target.buffer->plain.limit = 5000;
    EXPECT_EQ(failure([&] { CopyStream(&target, &source); }, &target), "I/O error");
    EXPECT_TRUE(target.getIsBad() && source.getIsGood());
    EXPECT_EQ(target.buffer->plain.written.size(), 5000U);
    Stream full;
    full.buffer->plain.limit = 7;
    std::unique_ptr<ioStringStream> memory(ioStringStream::Create());
    memory->setSerializer(ioSerializer::getBinary());
    memory->WriteBytes("0123456789", 10);
    EXPECT_EQ(failure([&] { CopyStream(&full, memory.get()); }, &full), "I/O error");
    EXPECT_EQ(drain(*memory), "789") << "what was not taken is still there";
}

class DescriptorStream : public ioStream {
public:
    explicit DescriptorStream(xipipebuf *over)
        : ioStream(ioSerializer::getAscii(), over, false, true), m_over(over) {}
    ~DescriptorStream() override { Close(); }

private:
    void OnClose() override { m_over.reset(); }
    std::unique_ptr<xipipebuf> m_over;
};

// The end that is typed at a terminal passes: who asks once too often waits for what is typed behind it.
TEST(CopyStream, EndsAtTheFirstEndOfATerminal) {
    for (bool as_file : {true, false}) {
        int keyboard = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        ASSERT_TRUE(keyboard >= 0 && ::grantpt(keyboard) == 0 && ::unlockpt(keyboard) == 0);
        const char *path = ::ptsname(keyboard);
        std::unique_ptr<ioStream> terminal;
        if (as_file)
            terminal.reset(ioFileStream::Open(path, ioReadOnly));
        else
            terminal = std::make_unique<DescriptorStream>(new xipipebuf(::open(path, O_RDONLY | O_NOCTTY)));
        std::string keys = "\4a\n\4b\n";
        ASSERT_EQ(::write(keyboard, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
        std::unique_ptr<ioStringStream> copy(ioStringStream::Create());
        CopyStream(copy.get(), terminal.get());
        EXPECT_EQ(text_of(copy->getStr()), "");
        CopyStream(copy.get(), terminal.get());
        EXPECT_EQ(text_of(copy->getStr()), "a\n");
        EXPECT_EQ(text_of(terminal->ReadString()), "b");
        ::close(keyboard);
    }
}

// Declared types -------------------------------------------------------------------------------

std::string declaration(brtti *type) {
    std::string text = type->gettypename().Str();
    if (type->isenum()) {
        for (int i = 0; i < type->getnenumvalues(); ++i)
            text += std::string(i ? ", " : ": ") + type->getenumvaluebyindex(i).Str();
        return text;
    }
    auto *whole = static_cast<xrttistruct *>(type);
    EXPECT_FALSE(whole->getisrefcount()) << text;
    if (type->getnparents()) text += std::string(" of ") + type->getparenttype(0)->gettypename().Str();
    for (int i = 0; i < type->getnfields(); ++i) {
        xrttifield *field = whole->getfields()->getbyindex(i);
        text += (i ? ", " : ": ") + text_of(field->getname()) + " " + field->gettype()->gettypename().Str();
        if (field->getisoptional()) text += "?";
    }
    return text;
}

TEST(Declared, TypesOfTheModule) {
    brtti *types[] = {xrtti_get_p_ioEventType(),   xrtti_get_p_ioEvent(),      xrtti_get_p_ioSerializer(),
                      xrtti_get_p_ioTryCode(),     xrtti_get_p_ioStream(),     xrtti_get_p_ioError(),
                      xrtti_get_p_ioXStream(),     xrtti_get_p_ioOpenMode(),   xrtti_get_p_ioDirection(),
                      xrtti_get_p_ioFileStream(),  xrtti_get_p_ioPipeStream(), xrtti_get_p_ioPipe(),
                      xrtti_get_p_ioStringStream()};
    const char *expected[] = {
        "iolib::EventType: ioInputPending, ioOutputPending",
        "iolib::Event of eventlib::Event: Stream iolib::Stream, Type iolib::EventType",
        "iolib::Serializer: Ascii iolib::Serializer, Binary iolib::Serializer, XDR iolib::Serializer",
        "iolib::TryCode: ioSuccess, ioWouldBlock, ioEndOfFile, ioIOError, ioFormatError, ioNotSupported",
        "iolib::Stream: Serializer iolib::Serializer, IsOpen bool, CanRead bool, CanWrite bool, IsBuffered "
        "bool, BufferSize int, ITimeout real?, OTimeout real?, IsEof bool, IsFail bool, IsBad bool, IsGood "
        "bool, IsTimeout bool, IsDataLost bool, WouldDataLost bool, Stdin iolib::Stream, Stdout "
        "iolib::Stream, Stderr iolib::Stream",
        ("iolib::Error: ioStreamState, ioInputNotAllowed, ioOutputNotAllowed, ioIncompatibleFormat, "
         "ioImproperFunction, ioUnsupportedFunction"),
        "iolib::XStream: Stream iolib::Stream, Error iolib::Error, Msg string?",
        "iolib::OpenMode: ioReadOnly, ioWriteOnly, ioReadWrite",
        "iolib::Direction: ioBegin, ioEnd, ioCur",
        "iolib::FileStream of iolib::Stream: Path string",
        "iolib::PipeStream of iolib::Stream",
        "iolib::Pipe",
        "iolib::StringStream of iolib::Stream: Str string",
    };
    for (std::size_t i = 0; i < std::size(types); ++i)
        EXPECT_EQ(declaration(types[i]), expected[i]);
}

TEST(Declared, FieldsReadTheStream) {
    Stream stream(true, false);
    xobject *object = &stream;
    EXPECT_STREQ(object->gettypename(), "iolib::Stream");
    EXPECT_EQ(ioStream::cast(object), &stream) << "through a virtual base";
    EXPECT_EQ(static_cast<xobject *>(object->lookupfield("Serializer")), ioSerializer::getBinary());
    EXPECT_TRUE(object->lookupfield("IsOpen").getbool() == 1 &&
                object->lookupfield("CanRead").getbool() == 0);
    EXPECT_TRUE(object->lookupfield("ITimeout").isnil()) << "without limit is nil";
    stream.setITimeout(2.5);
    EXPECT_EQ(object->lookupfield("ITimeout").getreal(), 2.5);
    EXPECT_EQ(failure([&] { object->lookupfield("BufferSize"); }), unsupported("getBufferSize"));
    EXPECT_EQ(failure([&] { object->lookupfield("WouldDataLost"); }), "input denied");
    EXPECT_EQ(static_cast<xobject *>(object->lookupfield("Stdout")), ioStream::getStdout());
    Stream reader(false, true);
    kel::caught error = error_of(reader);
    EXPECT_STREQ(error.type_name(), "iolib::XStream");
    EXPECT_FALSE(error->isrefcountable());
    EXPECT_EQ(static_cast<xobject *>(error->lookupfield("Stream")), &reader);
    EXPECT_STREQ(xrtti_get_p_ioError()->getenumvalue(error->lookupfield("Error")), "ioStreamState");
    EXPECT_STREQ(error->lookupfield("Msg").getstring(), "Stream Error (iolib):EOF reached");
    EXPECT_EQ(object->lookupfield("IsGood").getbool() + reader.lookupfield("IsEof").getbool(), 2);
}

}  // namespace
